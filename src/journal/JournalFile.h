// The journal as a file: opening it while others use it, appending to it, replacing it.
//
// The lock file only excludes processes that use the same path. Others (in two mount namespaces, or
// with two spellings of the folder) are excluded by a lock on the journal itself: a shared
// open-file-description lock on all of it for a reader, an exclusive one for a writer.
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
    Look, ///< for reading, without a lock: a writer may be in the middle of its work
    Read,
    Change, ///< must exist
    Append, ///< is created when missing
};

/// Identifies a file, also when its inode number is reused later.
struct TJournalIdentity
{
    dev_t Device = 0;
    ino_t Inode = 0;
    std::int64_t BornSeconds = 0;
    std::uint32_t BornNanoseconds =
        0; ///< 0, as the seconds, where the file system does not record it

    bool operator==(const TJournalIdentity& other) const
    {
        return Device == other.Device && Inode == other.Inode && BornSeconds == other.BornSeconds &&
               BornNanoseconds == other.BornNanoseconds;
    }
};

class TJournalFile
{
public:
    /// Nothing when the journal is missing. Failed with EBUSY when another process has locked it or
    /// has just replaced it: another try may succeed. A failure leaves the file as it was.
    TQvResult Open(const std::string& path, TJournalAccess access);
    explicit operator bool() const { return static_cast<bool>(m_file); }

    /// In bytes and Unix seconds, as the file system's server says, when the file was opened or
    /// after the last change.
    std::uint64_t Size() const { return m_size; }
    std::uint32_t Time() const { return m_time; }
    /// Releases the locks and keeps the file open, so that its inode number is not reused
    /// meanwhile.
    void Unlock() const;
    /// Whether `other` is this file, of the same size.
    bool IsUnchanged(const TJournalFile& other) const;
    int Descriptor() const { return m_file.Number(); }
    mode_t Permissions() const { return m_status.st_mode & 0777; }

    /// The next bytes; 0 at the end, TQvStream::invalid_value with errno on failure, and when the
    /// file ends before Size().
    std::size_t Read(char* buffer, std::size_t count);

    /// Truncates the file after the last checkpoint line: a writer that was killed left the rest
    /// and never reported it as done. A file without any checkpoint loses only the bytes after its
    /// last line feed.
    TQvResult CutUnsealed();
    /// Truncates as above, appends the block with one write, and closes. Done when the block is on
    /// the disk; else it was removed again as far as possible. The name is synced, too, unless
    /// `synced` is this file; `synced` receives the file whose name is on the disk.
    TQvResult AppendAndClose(std::string_view block, TJournalIdentity* synced);

private:
    int Lock(TJournalAccess access) const;
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
    /// Syncs the content.
    TQvResult Sync() { return m_file.Sync(); }
    /// Gives the content its name and syncs the folder. With `keepsOld` the old journal is kept
    /// with ".damaged" appended to its name. A failure before the rename leaves the old journal.
    TQvResult Publish(bool keepsOld);
    /// Whether Publish has done the rename: when it failed after that, the old journal may be there
    /// again after a power cut.
    bool HasReplaced() const { return m_hasReplaced; }

private:
    int Rename() const;
    int KeepOld() const;

    std::string m_path;      ///< as it was given
    std::string m_target;    ///< after all links
    std::string m_temporary; ///< in the target's folder
    bool m_replaces = false;
    bool m_hasReplaced = false;
    int m_old = -1; ///< a descriptor of the file that is replaced
    std::uint64_t m_size = 0;
    std::uint64_t m_started = 0; ///< bytes whose writing to the disk was started
    TQvNewFile m_file;
};
