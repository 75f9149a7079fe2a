#include "QvStd/XIniWriter.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <exception>

#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/xini/XIniFormat.h"

namespace
{
using TKind = TQvXIniEntry::Kind;

/// Entries are allocated one by one, so that pointers to open sections stay valid.
TQvXIniEntry& Append(TQvXIniEntry& section, TKind kind, const std::string& name)
{
    assert(kind != TKind::Other && !name.empty()); // else the document would be malformed
    auto entry = std::make_unique<TQvXIniEntry>();
    entry->Type = kind;
    entry->Name = name;
    section.Children.push_back(std::move(entry));
    return *section.Children.back();
}

/// Writes a new document over a file as a whole.
class TXIniFileWriter : public TQvXIniWriter
{
public:
    explicit TXIniFileWriter(const TQvPath& path)
        : TQvXIniWriter(path.toSysStr()), m_path(path.toSysStr())
    {
    }
    ~TXIniFileWriter() override { CommitSilently(); }

    void CommitE() override
    {
        Commit([this](const std::string& text) {
            return QvWriteFileAtomically(m_path, text) ? "" : QvErrorText(errno) + ".";
        });
    }

private:
    std::string m_path;
};
} // namespace

TQvXIniWriter::TQvXIniWriter(std::string name, var_a<TQvXIniTree*> tree)
    : m_tree(tree ? std::move(tree) : make_var<TQvXIniTree>()),
      m_name(std::move(name)), m_levels{&m_tree->Root}, m_exceptions(std::uncaught_exceptions())
{
}

TQvXIniWriter::~TQvXIniWriter() = default;

TQvXIniWriteSection TQvXIniWriter::BeginSectionSE(const std::string& name)
{
    if (!CheckSection(name))
        RaiseErrorE();
    TQvXIniEntry& section = Append(*Current(), TKind::Section, name);
    m_levels.push_back(&section);
    return &section;
}

/// The top level stays: its pointer is never searched. A section that is not open changes nothing.
void TQvXIniWriter::EndSection(TQvXIniWriteSection section)
{
    assert(!m_levels.empty());
    const auto level = std::find(m_levels.begin() + 1, m_levels.end(), section);
    m_levels.erase(level, m_levels.end());
}

void TQvXIniWriter::RaiseErrorE() const
{
    throw QvMsg_helper("Err_XIniWrite_name")
        << m_name << (m_error.empty() ? "nothing was refused." : m_error);
}

void TQvXIniWriter::Commit(const TStore& store)
{
    if (m_committed)
        return;
    // A document without the refused entries must not replace a complete one.
    if (m_error.empty())
        m_error = store(QvFormatXIniTree(*m_tree));
    if (!m_error.empty())
        RaiseErrorE();
    m_committed = true;
}

/// Not after a refused entry, and not while an exception that began after the construction is
/// active: the document is incomplete then.
void TQvXIniWriter::CommitSilently() noexcept
{
    if (!m_error.empty() || std::uncaught_exceptions() > m_exceptions)
        return;
    try {
        CommitE();
    } catch (...) {
        // A destructor cannot report the failure; call CommitE to get it.
    }
}

bool TQvXIniWriter::WriteText(const std::string& name, const std::string& value)
{
    if (!CheckKey(name))
        return false;
    Append(*Current(), TKind::Key, name).Value = value;
    return true;
}

bool TQvXIniWriter::CheckKey(const std::string& name)
{
    if (m_committed)
        return Refuse("it is already committed.");
    std::string fault = XIniKeyNameFault(name);
    return fault.empty() || Refuse(std::move(fault));
}

bool TQvXIniWriter::CheckSection(const std::string& name)
{
    if (m_committed)
        return Refuse("it is already committed.");
    if (m_levels.size() > kXIniMaxLevels)
        return Refuse("sections would be nested more than 64 levels deep.");
    std::string fault = XIniSectionNameFault(name);
    return fault.empty() || Refuse(std::move(fault));
}

bool TQvXIniWriter::Refuse(std::string reason)
{
    m_error = std::move(reason);
    return false;
}

TQvXIniStreamWriter::TQvXIniStreamWriter(var_a<TQvStream*> stream)
    : TQvXIniWriter(stream ? stream->InfoName() : ""), m_stream(std::move(stream))
{
}

TQvXIniStreamWriter::~TQvXIniStreamWriter()
{
    CommitSilently();
}

void TQvXIniStreamWriter::CommitE()
{
    Commit([this](const std::string& text) { return Store(text); });
}

/// Truncated after the write: when the write fails, no more of the old content is lost than it has
/// overwritten.
std::string TQvXIniStreamWriter::Store(const std::string& text)
{
    // Checked only here: a writer over a stream that did not open reports that at the commit.
    if (!m_stream || !*m_stream)
        return "the stream is not open.";
    const bool isStored = m_stream->setPosition(0) &&
                          m_stream->Write(text.data(), text.size()) == text.size() &&
                          m_stream->setSize(text.size()) && m_stream->Flush();
    return isStored ? "" : QvErrorText(-m_stream->getError()) + ".";
}

var_a<TQvXIniWriter*> GetXIniWriter(const TQvPath& path)
{
    return make_var<TXIniFileWriter>(path);
}

TQvXIniTreeWriter::TQvXIniTreeWriter(var_a<TQvXIniTree*> tree)
    : TQvXIniWriter("X-Ini document", std::move(tree))
{
}

TQvXIniTreeWriter::~TQvXIniTreeWriter() = default;

int TQvXIniTreeWriter::FindF(const std::string& name, Kind kind) const
{
    int position = 0;
    for (const auto& child : Current()->Children) {
        if (child->Type == kind && child->Name == name && kind != Kind::Other)
            return position;
        position += child->Type != Kind::Other ? 1 : 0;
    }
    return -1;
}

/// A new element is the last of its section, so that its position is their number less one.
int TQvXIniTreeWriter::FindCreateF(const std::string& name, Kind kind)
{
    const int position = FindF(name, kind);
    if (position >= 0)
        return position;
    if (kind == Kind::Other || !(kind == Kind::Key ? CheckKey(name) : CheckSection(name)))
        return -1;
    Append(*Current(), kind, name);
    const auto& children = Current()->Children;
    return static_cast<int>(
               std::count_if(children.begin(), children.end(),
                             [](const auto& child) { return child->Type != Kind::Other; })) -
           1;
}

bool TQvXIniTreeWriter::OpenSection(int position)
{
    TQvXIniEntry* const section = At(position);
    if (section == nullptr || section->Type != Kind::Section)
        return false;
    m_levels.push_back(section);
    return true;
}

bool TQvXIniTreeWriter::ExitSection()
{
    assert(!m_levels.empty());
    if (m_levels.size() == 1)
        return false;
    m_levels.pop_back();
    return true;
}

bool TQvXIniTreeWriter::Delete(int position)
{
    const TQvXIniEntry* const entry = At(position);
    auto& children = Current()->Children;
    const auto found = std::find_if(children.begin(), children.end(),
                                    [entry](const auto& child) { return child.get() == entry; });
    if (found == children.end())
        return false;
    children.erase(found);
    return true;
}

void TQvXIniTreeWriter::CommitE() {}

bool TQvXIniTreeWriter::WriteText(const std::string& name, const std::string& value)
{
    const int position = FindCreateF(name);
    return position >= 0 && WriteAt(position, value);
}

TQvXIniEntry* TQvXIniTreeWriter::At(int position) const
{
    int left = position;
    for (const auto& child : Current()->Children) {
        if (child->Type != Kind::Other && left-- == 0)
            return child.get();
    }
    return nullptr;
}

/// The same value changes nothing, so that its quotes and blanks stay as a person wrote them.
bool TQvXIniTreeWriter::WriteAt(int position, const std::string& value)
{
    TQvXIniEntry* const key = At(position);
    if (key == nullptr || key->Type != Kind::Key)
        return Refuse("no key stands at position " + std::to_string(position) + ".");
    if (key->Value != value)
        XIniReplaceValue(*key, value);
    return true;
}
