#include "resid/ResId.h"

#include <algorithm>
#include <array>

#include "QvStd/Message.h"
#include "QvStd/Path.h"
#include "QvStd/Strings.h"

namespace
{
constexpr std::size_t kNone = std::string::npos;

/// The start of the segment before the one at `segment`, as far as a later "../" may remove it:
/// never one that is itself a "../", so that a ".." never removes another "..".
std::size_t SegmentBefore(const std::string& id, std::size_t segment, std::size_t start)
{
    if (segment == start || segment < 2)
        return kNone;
    const std::size_t slash = id.rfind('/', segment - 2);
    const std::size_t before = slash == kNone || slash < start ? start : slash + 1;
    return id.compare(before, 3, "../") == 0 ? kNone : before;
}

enum : unsigned char
{
    kOrdinary = 0,
    kWildcard = 1,
    kForbidden = 2,
    kControl = 4,
    kSlash = 8
};

constexpr std::array<unsigned char, 256> MakeCharacterClasses()
{
    std::array<unsigned char, 256> classes{};
    for (unsigned char c = 0; c < 0x20; ++c)
        classes[c] = kControl;
    for (const char c : {'\\', '"', '<', '>', '|', ':'})
        classes[static_cast<unsigned char>(c)] = kForbidden;
    for (const char c : {'*', '?'})
        classes[static_cast<unsigned char>(c)] = kWildcard;
    classes['/'] = kSlash;
    return classes;
}

constexpr std::array<unsigned char, 256> kCharacterClasses = MakeCharacterClasses();

/// The classes of all characters together.
/// Without a branch for each character: most ids are valid, and are read completely anyway.
unsigned ClassesIn(const std::string& text)
{
    unsigned classes = kOrdinary;
    for (const char c : text)
        classes |= kCharacterClasses[static_cast<unsigned char>(c)];
    return classes;
}
} // namespace

std::string QvIncludeTrailingSlash(const std::string& id)
{
    return id.empty() || id.back() == '/' ? id : id + '/';
}

std::string QvExcludeTrailingSlash(const std::string& id)
{
    const std::size_t last = id.find_last_not_of('/');
    if (last == kNone)
        return id.substr(0, 1);
    return id.substr(0, last + 1);
}

std::string QvNormalizeResId(const std::string& id)
{
    return toupper_locale(id);
}

std::string QvNormalizeResId(const std::wstring& id)
{
    return toupper_locale(QvWCharToChar(id));
}

std::string QvExtractResPath(const std::string& id)
{
    return id.substr(0, id.rfind('/') + 1);
}

std::string QvExtractResName(const std::string& id)
{
    return id.substr(id.rfind('/') + 1);
}

std::string QvExtractResNameExt(const std::string& id)
{
    return QvExtractResName(id);
}

std::string QvExtractResNameOnly(const std::string& id)
{
    return QvExtractFileNameOnly(TQvPath(QvExtractResName(id)));
}

std::string QvExtractResExt(const std::string& id)
{
    return QvExtractFileExt(TQvPath(QvExtractResName(id)));
}

std::string QvExtractResPathNameOnly(const std::string& id)
{
    return QvExtractResPath(id) + QvExtractResNameOnly(id);
}

bool QvIsAbsoluteResId(const std::string& id)
{
    return !id.empty() && id.front() == '/';
}

bool QvIsRelativeResId(const std::string& id)
{
    return !QvIsAbsoluteResId(id);
}

bool QvIsDeeperRelativeResId(const std::string& id)
{
    return !id.empty() && id.front() != '/' && id.compare(0, 3, "../") != 0;
}

/// In place, from left to right. A "../" removes the last ordinary segment that is still there, so
/// that one at the start, or after another one that has stayed, stays.
std::string QvCompactResId(const std::string& id)
{
    std::string s = id;
    const std::size_t start = QvIsAbsoluteResId(s) ? 1 : 0;
    std::size_t pos = start;
    std::size_t previous = kNone; // the last ordinary segment that a "../" may still remove
    while (pos < s.size()) {
        const std::size_t slash = s.find('/', pos);
        if (slash == kNone)
            break; // a segment without a "/" after it is never resolved: a bare ".." at the end
                   // stays
        const std::size_t length = slash - pos;
        if (length == 1 && s[pos] == '.') {
            s.erase(pos, 2);
        } else if (length == 2 && s.compare(pos, 2, "..") == 0) {
            if (previous == kNone) {
                pos = slash + 1;
                continue;
            }
            s.erase(previous, slash + 1 - previous);
            pos = previous;
            previous = SegmentBefore(s, previous, start);
        } else {
            previous = pos;
            pos = slash + 1;
        }
    }
    return s;
}

std::string QvMergeResId(const std::string& base, const std::string& rel)
{
    return QvCompactResId(QvIsAbsoluteResId(rel) ? rel : QvIncludeTrailingSlash(base) + rel);
}

/// Compares folder by folder; a name is never compared with a folder.
std::string GetRelativeResId(const std::string& id, const std::string& base)
{
    const std::string a = QvCompactResId(id);
    if (QvIsAbsoluteResId(a) != QvIsAbsoluteResId(base))
        return a;
    const std::string b = QvCompactResId(QvIncludeTrailingSlash(base));
    std::size_t i = QvIsAbsoluteResId(a) ? 1 : 0;
    std::size_t j = i;
    for (;;) {
        const std::size_t endA = a.find('/', i);
        const std::size_t endB = b.find('/', j);
        if (endA == kNone || endB == kNone || endA - i != endB - j ||
            !std::equal(a.begin() + static_cast<std::ptrdiff_t>(i),
                        a.begin() + static_cast<std::ptrdiff_t>(endA),
                        b.begin() + static_cast<std::ptrdiff_t>(j),
                        [](char x, char y) { return QvToUpper(x) == QvToUpper(y); }))
            break;
        i = endA + 1;
        j = endB + 1;
    }
    std::string result;
    for (std::size_t k = j; k < b.size(); ++k)
        if (b[k] == '/')
            result += "../";
    return result.append(a, i);
}

std::vector<std::string> BreakIdIntoParts(const std::string& id)
{
    if (!QvIsAbsoluteResId(id))
        throw QvMsg_helper("Err_Internal_msg")
            << (TQvMessage("@BreakIdIntoParts: not an absolute ResId: \"%1%\"") << id);
    std::vector<std::string> parts;
    append_parse_strings(parts, std::string_view(id).substr(1), '/', false);
    return parts;
}

std::string QvResSearchMaskToRegExpPattern(const std::string& mask)
{
    // Characters that mean something to a regular expression pass through unescaped, so that masks
    // may use them.
    std::string pattern;
    for (const char c : mask) {
        if (c == '*')
            pattern += ".*";
        else if (c == '?')
            pattern += '.';
        else if (c == '.')
            pattern += "\\.";
        else
            pattern += c;
    }
    return "/^" + toupper_locale(pattern) + "$/";
}

TQvURL ResId2QvURL(const std::string& id)
{
    return MakeQvURL("qvres", id);
}

bool QvIsValidResId(const std::string& id, bool forbidWildcards)
{
    if (id.empty())
        return true; // an empty id is valid
    const unsigned refused = kControl | kForbidden | (forbidWildcards ? kWildcard : kOrdinary);
    return id.front() == '/' && (ClassesIn(id) & refused) == 0 &&
           id.find("//") == std::string::npos;
}

bool QvIsValidResNamePart(const std::string& name, bool forbidWildcards)
{
    const unsigned refused = kSlash | kForbidden | (forbidWildcards ? kWildcard : kOrdinary);
    return !name.empty() && (ClassesIn(name) & refused) == 0;
}
