/// @file
/// Writing X-Ini documents (QvStd/XIniTree.h describes the format).
///
/// A writer that is made for a file or a stream begins an empty document and appends to it; a tree
/// writer changes an existing one.
///
///     const auto writer = GetXIniWriter(TQvPath("/etc/example.x-ini"));
///     const TQvXIniWriteSection mount = writer->BeginSectionSE("mount");
///     if (!writer->WriteS("node", std::string("/Data")))
///         writer->RaiseErrorE();
///     writer->EndSection(mount);
///     writer->CommitE(); // the file is replaced here, or stays as it was
///
/// Thread-safety: one writer belongs to one thread at a time.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniValue.h"

/// The section that was begun. Pass it to EndSection.
using TQvXIniWriteSection = TQvXIniEntry*;

/// Writes a document section by section.
class QVSTD_API TQvXIniWriter
{
public:
    virtual ~TQvXIniWriter();
    TQvXIniWriter(const TQvXIniWriter&) = delete;
    TQvXIniWriter& operator=(const TQvXIniWriter&) = delete;

    /// Begins a section in the current one. Throws a TQvMessage on a name that cannot be written
    /// (empty, a leading "/", a "[" or "]", a byte below 0x20) or beyond 64 levels.
    TQvXIniWriteSection BeginSectionSE(const std::string& name);
    /// Ends `section`, and sections that were begun inside it. Null does nothing.
    void EndSection(TQvXIniWriteSection section);

    /// Writes a key into the current section. False, with the error kept for RaiseErrorE, on a name
    /// that cannot be written (empty, blanks around it, a "=", a leading ";" or "[", a byte below
    /// 0x20) or after the document was committed.
    template <class T>
    bool WriteS(const std::string& name, const T& value)
    {
        return WriteText(name, QvXIniFormatValue(value));
    }

    /// Throws the last error as a TQvMessage that names the document.
    [[noreturn]] void RaiseErrorE() const;

    /// Writes the document to its file or stream. Throws a TQvMessage that names it; the old
    /// content of a file is left then. Nothing can be written afterwards.
    virtual void CommitE() = 0;

protected:
    /// Over a tree, or a new one; `name` is what messages show.
    explicit TQvXIniWriter(std::string name, var_a<TQvXIniTree*> tree = nullptr);
    /// What WriteS does with the formatted value.
    virtual bool WriteText(const std::string& name, const std::string& value);
    /// False, always; the reason is a sentence.
    bool Refuse(std::string reason);
    /// Whether a key or section of that name can be added here; notes the refusal otherwise.
    bool CheckKey(const std::string& name);
    /// @copydoc CheckKey
    bool CheckSection(const std::string& name);
    /// Writes the formatted document to its file or stream; returns why that failed, or "".
    using TStore = std::function<std::string(const std::string& text)>;
    /// What CommitE does: once, and only when nothing was refused.
    void Commit(const TStore& store);
    /// For the destructors of the writers that commit.
    void CommitSilently() noexcept;
    /// The section that is written into.
    TQvXIniEntry* Current() const { return m_levels.back(); }

    var_a<TQvXIniTree*> m_tree;          ///< the document so far
    std::string m_name;                  ///< what messages show
    std::string m_error;                 ///< the first refusal, a sentence; "" without one
    std::vector<TQvXIniEntry*> m_levels; ///< the sections from the top level to the current one
    bool m_committed = false;            ///< nothing can be written any more

private:
    int m_exceptions; ///< number of active exceptions when the writer was made
};

/// Writes the document over a stream, which it keeps alive: on CommitE or, without an error report,
/// on destruction (unless a write was refused or an exception is active): from the stream's start,
/// truncated to its length, flushed.
class QVSTD_API TQvXIniStreamWriter : public TQvXIniWriter
{
public:
    /// The stream must be open for writing.
    explicit TQvXIniStreamWriter(var_a<TQvStream*> stream);
    ~TQvXIniStreamWriter() override;
    void CommitE() override;

private:
    std::string Store(const std::string& text);

    var_a<TQvStream*> m_stream;
};

/// A writer of a new document that replaces the file as a whole (temporary file, synced, renamed)
/// on CommitE or, without an error report, when the last reference is destroyed. The old file stays
/// when a write failed or was refused or an exception is active. A missing file is no error; its
/// folder must exist.
QVSTD_API var_a<TQvXIniWriter*> GetXIniWriter(const TQvPath& path);

/// Changes a tree in place and keeps everything else in it. Positions are those of the reader: keys
/// and sections of the current section, numbered from 0.
class QVSTD_API TQvXIniTreeWriter : public TQvXIniWriter
{
public:
    /// The tree must outlive the writer, which commits nothing.
    explicit TQvXIniTreeWriter(var_a<TQvXIniTree*> tree);
    ~TQvXIniTreeWriter() override;

    /// The kind of an element.
    using Kind = TQvXIniEntry::Kind;

    /// The position of the first element of that name and kind; -1 when there is none.
    int FindF(const std::string& name, Kind kind = Kind::Key) const;
    /// As FindF, creating an empty one at the end of the current section when there is none; -1 on
    /// a name that cannot be written.
    int FindCreateF(const std::string& name, Kind kind = Kind::Key);
    /// Makes the section at a position the current one; false when there is no section.
    bool OpenSection(int position);
    /// Back to the enclosing section; false at the top level.
    bool ExitSection();
    /// Replaces the value of the key at a position; false when there is no key. When the key has
    /// that value already, the line stays unchanged.
    template <class T>
    bool Write(int position, const T& value)
    {
        return WriteAt(position, QvXIniFormatValue(value));
    }
    /// Removes the element at a position with its content; false when there is none.
    bool Delete(int position);

    /// Does nothing: write the tree with WriteQvXIniTree.
    void CommitE() override;

protected:
    /// Replaces the first key of that name, or appends one.
    bool WriteText(const std::string& name, const std::string& value) override;

private:
    TQvXIniEntry* At(int position) const;
    bool WriteAt(int position, const std::string& value);
};
