#include "QvStd/Path.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <unistd.h>

#include "QvStd/ByteBlock.h"

namespace
{
constexpr std::size_t kMaxComponent = 255;
constexpr std::size_t kMaxPath = 4095;

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

/// Whether a right side can be appended byte by byte: nothing to resolve, drop or replace.
bool IsPlainRelative(std::string_view text)
{
    bool atStart = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\' || c == '\0')
            return false;
        if (atStart && c == '/')
            return false;
        if (atStart && c == '.') {
            std::size_t end = i + 1;
            if (end < text.size() && text[end] == '.')
                ++end;
            if (end == text.size() || IsSeparator(text[end]) || text[end] == '\0')
                return false;
        }
        atStart = c == '/';
    }
    return true;
}

/// The same, checked in blocks. False means that IsPlainRelative must decide.
bool IsSurelyPlainRelative(std::string_view text)
{
    if (text.size() < kQvByteBlockSize)
        return false;
    std::uint64_t odd = 0;
    TQvByteBlock oddBytes = {};
    const auto take = [&](std::size_t start) {
        const TQvByteBlock bytes = QvLoadBytes(text.data() + start);
        const TQvByteBlock slashes = QvBytesThatAre(bytes, '/');
        const std::uint64_t afterSlash = QvBitsOfBytes(slashes) << 1 | (start == 0 ? 1 : 0);
        odd |= afterSlash & QvBitsOfBytes(slashes | QvBytesThatAre(bytes, '.'));
        oddBytes |= QvBytesThatAre(bytes, '\\') | QvBytesThatAre(bytes, '\0');
    };
    // The last byte of a block is the first of the next one: it may be a "/".
    for (std::size_t i = 0; i + kQvByteBlockSize < text.size(); i += kQvByteBlockSize - 1)
        take(i);
    take(text.size() - kQvByteBlockSize);
    return odd == 0 && !QvIsAnyByteSet(oddBytes);
}

bool IsPlain(std::string_view right)
{
    return IsSurelyPlainRelative(right) || IsPlainRelative(right);
}

/// Appends `text` segment by segment; nothing before `floor` is ever removed.
void AppendResolved(std::string& result, std::string_view text)
{
    const std::size_t floor = result.size();
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = start;
        while (end < text.size() && !IsSeparator(text[end]))
            ++end;
        const std::string_view segment = text.substr(start, end - start);
        start = end + 1;
        if (segment == "..") {
            const std::size_t cut = result.rfind('/');
            result.resize(cut == std::string::npos || cut < floor ? floor : cut);
        } else if (!segment.empty() && segment != ".") {
            if (result.size() > floor)
                result += '/';
            result += segment;
        }
    }
    assert(result.size() >= floor); // else the path would lead out of its left side
    if (!text.empty() && IsSeparator(text.back()) && result.size() > floor)
        result += '/';
}

/// Where the extension of a component starts; its length when it has none.
std::size_t ExtensionStart(const std::string& component)
{
    const std::size_t dot = component.rfind('.');
    const bool hasNone = dot == std::string::npos || dot == 0 || component == "..";
    return hasNone ? component.size() : dot;
}
} // namespace

TQvPath::TQvPath(std::string text) : m_text(std::move(text))
{
    std::replace(m_text.begin(), m_text.end(), '\\', '/');
}

bool TQvPath::isPathValid() const
{
    if (m_text.empty() || m_text.size() > kMaxPath)
        return false;
    std::size_t length = 0;
    for (const char c : m_text) {
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
        length = c == '/' ? 0 : length + 1;
        if (length > kMaxComponent)
            return false;
    }
    return true;
}

TQvPath TQvPath::stripAbs() const
{
    TQvPath result;
    const std::size_t start = m_text.find_first_not_of('/');
    if (start != std::string::npos)
        result.m_text.assign(m_text, start);
    return result;
}

TQvPath TQvPath::addSlash() const
{
    TQvPath result(*this);
    if (!m_text.empty() && m_text.back() != '/')
        result.m_text += '/';
    return result;
}

TQvPath TQvPath::excludeSlash() const
{
    TQvPath result;
    const std::size_t last = m_text.find_last_not_of('/');
    if (last != std::string::npos)
        result.m_text.assign(m_text, 0, last + 1);
    else if (!m_text.empty())
        result.m_text = '/';
    return result;
}

TQvPath TQvPath::operator/(const TQvPath& right) const
{
    return *this / std::string_view(right.m_text);
}

/// The left side is never resolved: it comes from the program, the right side may come from
/// anywhere.
TQvPath TQvPath::operator/(std::string_view right) const
{
    TQvPath result;
    std::string& text = result.m_text;
    text.reserve(m_text.size() + 1 + right.size());
    text.append(m_text);
    if (!text.empty() && text.back() != '/')
        text.push_back('/');
    const std::size_t start = text.size();
    if (IsPlain(right))
        text += right;
    else
        // The system ignores the text after a zero byte: it must not hide a "..".
        AppendResolved(text, right.substr(0, right.find('\0')));
    // Nothing was appended: the left side keeps its own end, with or without a separator.
    if (text.size() == start)
        text.resize(m_text.size());
    return result;
}

/// Most paths are short and need no resolution: these are put together on the stack.
TQvJoinedPath::TQvJoinedPath(const TQvPath& folder, std::string_view right)
{
    const std::string& left = folder.toSysStr();
    const std::size_t slash = left.empty() || left.back() == '/' ? 0 : 1;
    if (left.size() + slash + right.size() >= sizeof m_short || right.empty() || !IsPlain(right)) {
        m_long = (folder / right).toSysStr();
        m_text = m_long.c_str();
        return;
    }
    std::memcpy(m_short, left.data(), left.size());
    m_short[left.size()] = '/';
    char* const end = m_short + left.size() + slash;
    std::memcpy(end, right.data(), right.size());
    end[right.size()] = '\0';
    m_text = m_short;
}

std::string TQvPath::fileName() const
{
    return m_text.substr(m_text.rfind('/') + 1);
}

TQvPath TQvPath::homeDir()
{
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return TQvPath(home);
    // Without HOME, as in services: the password file.
    std::array<char, 16384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir[0] == '/')
        return TQvPath(found->pw_dir);
    return TQvPath();
}

std::string QvExtractFileNameOnly(const TQvPath& path)
{
    std::string name = path.fileName();
    name.resize(ExtensionStart(name));
    return name;
}

std::string QvExtractFileExt(const TQvPath& path)
{
    const std::string name = path.fileName();
    return name.substr(ExtensionStart(name));
}

TQvPath QvIncludeTrailingBackslash(const TQvPath& path)
{
    return path.addSlash();
}

TQvPath QvExcludeTrailingBackslash(const TQvPath& path)
{
    return path.excludeSlash();
}
