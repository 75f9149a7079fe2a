// The journal as a file: opening it beside others, appending to it, replacing it.
//
// The lock file excludes processes that look for it at one path. Processes that do not (in two
// mount namespaces, or with two spellings of the folder) still meet at the journal itself: a reader
// holds a shared open-file-description lock on all of it, a writer an exclusive one.
//
// Results name the path and carry an errno.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "QvStd/FreshFile.h"
#include "QvStd/NewFile.h"
#include "QvStd/Result.h"

enum class TJournalAccess
{
    Read,
    Change, ///< must exist
    Append, ///< is created when missing
};

/// Which file it is, also after its inode number was used again.
struct TJournalIdentity
{
    dev_t Device = 0;
    ino_t Inode = 0;
    std::int64_t BornSeconds = 0;
    std::uint32_t BornNanoseconds = 0; ///< 0, as the seconds, where the file system does not know

    bool operator==(const TJournalIdentity& other) const
    {
        return Device == other.Device && Inode == other.Inode && BornSeconds == other.BornSeconds &&
               BornNanoseconds == other.BornNanoseconds;
    }
};

class TJournalFile
{
public:
    /// Nothing when the journal is missing. Failed with EBUSY when another process holds it, or has
    /// replaced it just now: another try may succeed. A failure leaves the file as it was.
    TQvResult Open(const std::string& path, TJournalAccess access);
    explicit operator bool() const { return static_cast<bool>(m_file); }

    /// In bytes and Unix seconds, as the file system's server says, when the file was opened or
    /// after the last change.
    std::uint64_t Size() const { return m_size; }
    std::uint32_t Time() const { return m_time; }
    /// Releases the locks and keeps the file open: no other file can be taken for it meanwhile.
    void Unlock() const;
    /// Whether `other` is this file, of the same size.
    bool IsUnchanged(const TJournalFile& other) const;
    int Descriptor() const { return m_file.Number(); }
    mode_t Permissions() const { return m_status.st_mode & 0777; }

    /// The next bytes; 0 at the end, TQvStream::invalid_value with errno on failure, and when the
    /// file ends before Size().
    std::size_t Read(char* buffer, std::size_t count);

    /// Cuts off what the last checkpoint line does not cover: a writer that ended early has left it
    /// and never reported it as done. A file without any checkpoint loses only the bytes that no
    /// line feed ends.
    TQvResult CutUnsealed();
    /// Cuts as above, appends the block with one write, and closes. Done when it is on the disk;
    /// else it was cut off again as far as that was possible. The name is brought to the disk, too,
    /// unless the file is `synced`, which receives the file whose name is there.
    TQvResult AppendAndClose(std::string_view block, TJournalIdentity* synced);

private:
    int LockContent(short kind) const;
    int AskServer();
    int CompareWithPath() const;
    TQvResult ExplainMissing() const;
    int FindSealedEnd(std::uint64_t* end) const;
    int SyncName() const;
    int Write(std::string_view block);
    void CutBack(std::uint64_t size, std::size_t blockSize);
    TQvResult Answer(int error) const;

    std::string m_path;
    TQvFreshFile m_file;
    struct stat m_status = {};
    TJournalIdentity m_identity;
    std::uint64_t m_size = 0;
    std::uint32_t m_time = 0;
    std::uint64_t m_position = 0;
};

/// New content for a journal, which stays as it is until Publish renames the new file over it.
class TJournalRewrite
{
public:
    /// `old` is open for a change, or not open when the journal is missing; it stays open until the
    /// rewrite ends.
    TQvResult Open(const std::string& path, const TJournalFile& old);
    TQvResult Write(std::string_view bytes);
    /// Bytes written until now.
    std::uint64_t Size() const { return m_size; }
    /// Brings the content to the disk.
    TQvResult Sync() { return m_file.Sync(); }
    /// Gives the content its name and brings the name to the disk. With `keepsOld` the old journal
    /// is kept with ".damaged" behind its name. A failure before the rename leaves the old journal.
    TQvResult Publish(bool keepsOld);
    /// Whether Publish came as far as the rename: when it failed then, a power cut may bring the
    /// old journal back.
    bool HasReplaced() const { return m_hasReplaced; }

private:
    int Rename() const;
    int KeepOld() const;

    std::string m_path;      ///< as it was given
    std::string m_target;    ///< behind all links
    std::string m_temporary; ///< beside the target
    bool m_replaces = false;
    bool m_hasReplaced = false;
    int m_old = -1; ///< a descriptor of the file that is replaced
    std::uint64_t m_size = 0;
    std::uint64_t m_started = 0; ///< bytes on their way to the disk
    TQvNewFile m_file;
};
