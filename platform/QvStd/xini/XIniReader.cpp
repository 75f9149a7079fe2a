#include "QvStd/XIniReader.h"

#include <algorithm>
#include <cerrno>

#include "QvStd/FileChange.h"
#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "QvStd/Result.h"
#include "QvStd/files/StaleRetry.h"
#include "QvStd/xini/XIniFormat.h"

using TKind = TQvXIniEntry::Kind;

TQvXIniReader::TQvXIniReader(var_a<TQvXIniTree*> tree, std::string name)
{
    Init(std::move(tree), std::move(name), {});
}

TQvXIniReader::~TQvXIniReader() = default;

/// A reader always has a tree and at least one level, the top one: after an error an empty tree.
void TQvXIniReader::Init(var_a<TQvXIniTree*> tree, std::string name, std::string error,
                         const char* errorKey)
{
    m_tree = tree ? std::move(tree) : make_var<TQvXIniTree>();
    m_name = std::move(name);
    m_error = std::move(error);
    m_errorKey = errorKey;
    m_levels.clear();
    Enter(&m_tree->Root);
}

int TQvXIniReader::FindF(const std::string& name, int start) const
{
    const int count = Count();
    for (int i = std::max(start, 0); i < count; ++i) {
        if (Elements()[static_cast<std::size_t>(i)]->Name == name)
            return i;
    }
    return -1;
}

int TQvXIniReader::FindFE(const std::string& name, int start) const
{
    const int position = FindF(name, start);
    if (position >= 0)
        return position;
    ThrowIfMalformed();
    throw QvMsg_helper("Err_XIniNoKey_name") << m_name << WhereAmI() + name;
}

/// Begins after the position, so that a loop finds every element of that name once.
bool TQvXIniReader::FindFP(const std::string& name, int* position) const
{
    const int next = *position < Count() ? FindF(name, *position + 1) : -1;
    if (next < 0)
        return false;
    *position = next;
    return true;
}

int TQvXIniReader::Count(const std::string& name) const
{
    return static_cast<int>(
        std::count_if(Elements().begin(), Elements().end(),
                      [&name](const TQvXIniEntry* element) { return element->Name == name; }));
}

int TQvXIniReader::Count() const
{
    return static_cast<int>(Elements().size());
}

const TQvXIniEntry* TQvXIniReader::At(int position) const
{
    return Exists(position) ? Elements()[static_cast<std::size_t>(position)] : nullptr;
}

bool TQvXIniReader::IsSection(int position) const
{
    const TQvXIniEntry* element = At(position);
    return element != nullptr && element->Type == TKind::Section;
}

std::string TQvXIniReader::Name(int position) const
{
    const TQvXIniEntry* element = At(position);
    return element == nullptr ? std::string() : element->Name;
}

const std::string* TQvXIniReader::ValueAt(int position) const
{
    const TQvXIniEntry* element = At(position);
    return element != nullptr && element->Type == TKind::Key ? &element->Value : nullptr;
}

TQvXIniSection TQvXIniReader::EnterSectionS(const std::string& name)
{
    for (const TQvXIniEntry* element : Elements()) {
        if (element->Type == TKind::Section && element->Name == name) {
            Enter(element);
            return element;
        }
    }
    return nullptr;
}

TQvXIniSection TQvXIniReader::EnterSectionSE(const std::string& name)
{
    const TQvXIniSection section = EnterSectionS(name);
    if (section != nullptr)
        return section;
    ThrowIfMalformed();
    throw QvMsg_helper("Err_XIniNoSection_name") << m_name << WhereAmI() + name;
}

TQvXIniSection TQvXIniReader::EnterSection(int position)
{
    if (!IsSection(position))
        return nullptr;
    const TQvXIniEntry* section = At(position);
    Enter(section);
    return section;
}

/// Searches the level, since callers may leave several sections at once; the top level stays. A
/// section that is not open (left already, or of another reader) changes nothing.
void TQvXIniReader::ExitSection(TQvXIniSection section)
{
    for (std::size_t level = 1; level < m_levels.size(); ++level) {
        if (m_levels[level].Section == section) {
            m_levels.resize(level);
            return;
        }
    }
}

/// The elements of the section in file order: positions do not count comments and blank lines.
void TQvXIniReader::Enter(const TQvXIniEntry* section)
{
    TLevel level{section, {}};
    for (const auto& child : section->Children) {
        if (child->Type != TKind::Other)
            level.Elements.push_back(child.get());
    }
    m_levels.push_back(std::move(level));
}

std::string TQvXIniReader::WhereAmI() const
{
    std::string path;
    for (std::size_t level = 1; level < m_levels.size(); ++level)
        path += m_levels[level].Section->Name + "/";
    return path;
}

/// A malformed document reads as empty: the parse error, not a missing key, is then the reason.
void TQvXIniReader::ThrowIfMalformed() const
{
    if (ParseError())
        throw QvMsg_helper(m_errorKey) << m_name << m_error;
}

void TQvXIniReader::ThrowBadValue(int position) const
{
    ThrowIfMalformed();
    if (!Exists(position))
        throw QvMsg_helper("Err_XIniNoKey_name")
            << m_name << WhereAmI() + "#" + std::to_string(position);
    throw QvMsg_helper("Err_XIniBadValue_name") << m_name << WhereAmI() + Name(position);
}

TQvXIniStreamReader::TQvXIniStreamReader(var_a<TQvStream*> stream, bool readNow,
                                         TQvProgressHandler* progress)
    : m_stream(std::move(stream))
{
    if (readNow)
        ReadDocument(progress);
    else
        Init(nullptr, m_stream ? m_stream->InfoName() : "", {});
}

TQvXIniStreamReader::~TQvXIniStreamReader() = default;

bool TQvXIniStreamReader::ReadDocument(TQvProgressHandler* progress)
{
    if (!m_stream) {
        Init(nullptr, {}, "there is no stream.");
        return false;
    }
    TXIniFailure failure;
    var_a<TQvXIniTree*> tree = XIniReadDocument(*m_stream, progress, &failure);
    Init(std::move(tree), m_stream->InfoName(), std::move(failure.Reason), failure.Key);
    return !ParseError();
}

/// Tries again while the failure may come from a cache: another machine may have replaced the file
/// between the look-up of its name and the open.
var_a<TQvXIniReader*> GetXIniReader(const TQvPath& path, int* error)
{
    for (const TStaleRetry retry;;) {
        // In the loop: each attempt opens the file that has the name then.
        TQvFileStream stream(path, kQvOpenRead, kQvShareAll);
        const bool isOpen = static_cast<bool>(stream);
        TXIniFailure failure;
        var_a<TQvXIniTree*> tree;
        if (isOpen)
            tree = XIniReadDocument(stream, nullptr, &failure);
        if (tree)
            return make_var<TQvXIniReader>(std::move(tree), path.toSysStr());
        if (!QvIsStale(path.toSysStr(), -stream.getError()) || !retry.Wait()) {
            if (error != nullptr)
                *error = stream.getError() != 0 ? -stream.getError() : EBADMSG;
            if (stream.getError() == -ENOENT)
                throw QvMsg_helper("Err_OpenReadFile_name") << path.toSysStr();
            if (!isOpen)
                throw QvMsg_helper("Err_ReadFile_name")
                    << path.toSysStr() << QvErrorText(-stream.getError());
            throw failure.Message(path.toSysStr());
        }
    }
}
