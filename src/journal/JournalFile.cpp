#include "journal/JournalFile.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "QvStd/Files.h"
#include "journal/JournalFormat.h"

namespace
{
/// Enough for the last block of most journals: one read finds its checkpoint.
constexpr std::size_t kTail = 4096;
/// Large enough that the disk writes in long runs, small enough that little is left for the sync.
constexpr std::uint64_t kWriteBackEvery = std::uint64_t{4} * 1024 * 1024;

int FlagsOf(TJournalAccess access)
{
    // O_APPEND: the kernel appends at the end that the file system's server reports, not at a
    // cached one.
    switch (access) {
    case TJournalAccess::Look:
    case TJournalAccess::Read:
        return O_RDONLY;
    case TJournalAccess::Change:
        return O_RDWR | O_APPEND;
    case TJournalAccess::Append:
        return O_RDWR | O_APPEND | O_CREAT;
    }
    return O_RDONLY;
}

/// 0, EBUSY for a refusal that may be temporary, or another errno.
int Passing(int error)
{
    return error == EAGAIN || error == EACCES || error == ESTALE ? EBUSY : error;
}

/// On a file system without locks only the lock file beside the folder protects the journal.
bool LacksLocks(int error)
{
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
}
} // namespace

/// The order matters: the share lock and the content lock come before the size and the comparison
/// with the path, so that what is compared and read cannot change any more.
TQvResult TJournalFile::Open(const std::string& path, TJournalAccess access)
{
    m_path = path;
    m_position = 0;
    int error = m_file.Open(path, FlagsOf(access), &m_status);
    if (error == ENOENT)
        return ExplainMissing();
    if (error == ESTALE)
        error = EBUSY;
    // Some file systems refuse to open a file that another process has locked exclusively.
    const int wanted = FlagsOf(access) == O_RDONLY ? R_OK : R_OK | W_OK;
    if (error == EACCES && faccessat(AT_FDCWD, path.c_str(), wanted, AT_EACCESS) == 0)
        error = EBUSY;
    if (error == 0)
        error = Lock(access);
    if (error == 0)
        error = Passing(m_file.Refresh(path));
    if (error == 0)
        error = AskServer();
    if (error == 0)
        error = CompareWithPath();
    if (error != 0)
        m_file = TQvFreshFile();
    return Answer(error);
}

int TJournalFile::Lock(TJournalAccess access) const
{
    if (access == TJournalAccess::Look)
        return 0;
    const int error = Passing(QvTakeShareLock(m_file.Number(), kQvShareAll));
    return error != 0 ? error : LockContent(access == TJournalAccess::Read ? F_RDLCK : F_WRLCK);
}

int TJournalFile::LockContent(short kind) const
{
    struct flock lock = {}; // of length 0: up to the end, wherever that is
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    if (fcntl(m_file.Number(), F_OFD_SETLK, &lock) == 0 || LacksLocks(errno))
        return 0;
    return Passing(errno);
}

void TJournalFile::Unlock() const
{
    LockContent(F_UNLCK);
    // Neither result is checked: closing the file releases both locks at the latest.
    flock(m_file.Number(), LOCK_UN);
}

/// Appends only make the file longer, and a rewrite is another file: the size is enough.
bool TJournalFile::IsUnchanged(const TJournalFile& other) const
{
    return QvIsSameInode(m_status, other.m_status) && m_size == other.m_size;
}

int TJournalFile::AskServer()
{
    struct statx now = {};
    if (statx(m_file.Number(), "", AT_EMPTY_PATH | AT_STATX_FORCE_SYNC,
              STATX_SIZE | STATX_MTIME | STATX_BTIME, &now) != 0)
        return Passing(errno);
    m_identity = {m_status.st_dev, m_status.st_ino, now.stx_btime.tv_sec, now.stx_btime.tv_nsec};
    m_size = now.stx_size;
    m_time = static_cast<std::uint32_t>(now.stx_mtime.tv_sec);
    return Passing(m_file.CorrectSize(&m_size));
}

/// EBUSY when the journal was replaced before its content was locked.
int TJournalFile::CompareWithPath() const
{
    return Passing(QvCompareWithPath(m_path, m_status));
}

/// A journal counts as missing only when the folder does not list it: a link may be dangling, and a
/// network file system may have cached an entry that was replaced meanwhile.
TQvResult TJournalFile::ExplainMissing() const
{
    if (QvIsSymLink(m_path))
        return Answer(ENOENT);
    std::vector<std::string> listed;
    const TQvResult searched =
        QvSearchFiles(QvFolderPart(m_path), kJournalFileName, false, false, &listed);
    if (!searched)
        return Answer(searched.Error());
    return listed.empty() ? TQvResult::Nothing(m_path) : Answer(EBUSY);
}

std::size_t TJournalFile::Read(char* buffer, std::size_t count)
{
    const ssize_t got = m_file.ReadAt(m_position, buffer, count);
    if (got == 0 && m_position < m_size)
        errno = EIO;
    if (got < 0 || (got == 0 && m_position < m_size))
        return TQvStream::invalid_value;
    m_position += static_cast<std::uint64_t>(got);
    return static_cast<std::size_t>(got);
}

/// Searches the last checkpoint line from the end, in windows that grow. 0 or an errno.
int TJournalFile::FindSealedEnd(std::uint64_t* end) const
{
    std::string tail;
    for (std::uint64_t window = std::min<std::uint64_t>(kTail, m_size);; window *= 2) {
        window = std::min(window, m_size);
        tail.resize(window);
        assert(window <= m_size);
        const std::uint64_t start = m_size - window;
        for (std::size_t done = 0; done < window;) {
            const ssize_t got = m_file.ReadAt(start + done, tail.data() + done, window - done);
            if (got <= 0)
                return got < 0 ? errno : EIO;
            done += static_cast<std::size_t>(got);
        }
        std::size_t last = tail.rfind('\n');
        *end = last == std::string::npos ? start : start + last + 1;
        while (last != std::string::npos) {
            const std::size_t before = last == 0 ? std::string::npos : tail.rfind('\n', last - 1);
            const bool isKnown = before != std::string::npos || start == 0;
            const std::size_t line = before == std::string::npos ? 0 : before + 1;
            if (isKnown && tail[line] == kCheckpointMark) {
                *end = start + last + 1;
                return 0;
            }
            last = before;
        }
        if (start == 0)
            return 0;
    }
}

TQvResult TJournalFile::CutUnsealed()
{
    std::uint64_t end = m_size;
    if (m_size != 0)
        if (const int error = FindSealedEnd(&end))
            return Answer(error);
    assert(end <= m_size);
    if (end == m_size)
        return TQvResult::Done();
    if (ftruncate(m_file.Number(), static_cast<off_t>(end)) != 0 || fdatasync(m_file.Number()) != 0)
        return Answer(errno);
    return Answer(AskServer());
}

TQvResult TJournalFile::AppendAndClose(std::string_view block, TJournalIdentity* synced)
{
    assert(m_file && synced != nullptr);
    assert(!block.empty() && block.back() == '\n'); // else the next append would cut it off
    // First the tail of a writer that was killed: the new block would continue its last line.
    if (const TQvResult cut = CutUnsealed(); !cut)
        return cut;
    // The size after the cut, which a failed append restores.
    const std::uint64_t before = m_size;
    int error = Write(block);
    if (error == 0 && fdatasync(m_file.Number()) != 0)
        error = errno;
    // The file may be new, or from a rewrite by a process that was killed: its name may not be on
    // the disk.
    if (error == 0 && !(*synced == m_identity))
        error = SyncName();
    if (error == 0)
        *synced = m_identity;
    if (error == 0)
        error = AskServer();
    // Network file systems may report only here that the bytes did not reach the server.
    if (error == 0 && !m_file.Close())
        error = errno;
    if (error != 0)
        CutBack(before, block.size());
    return Answer(error);
}

int TJournalFile::SyncName() const
{
    std::string target = m_path;
    return QvFollowLinks(&target) && QvSyncFolderOf(target, m_file.Number()) ? 0 : errno;
}

/// One write where the kernel takes all of it, so that a reader without locks sees whole lines.
int TJournalFile::Write(std::string_view block)
{
    while (!block.empty()) {
        const ssize_t put =
            QvRetryInterrupted([&] { return write(m_file.Number(), block.data(), block.size()); });
        if (put <= 0)
            return put < 0 ? errno : EIO;
        block.remove_prefix(static_cast<std::size_t>(put));
    }
    return 0;
}

/// After a failed close the file is opened again: it must then have the block and nothing else
/// after the old end.
void TJournalFile::CutBack(std::uint64_t size, std::size_t blockSize)
{
    const bool isHeld = static_cast<bool>(m_file);
    if (!isHeld && (!Open(m_path, TJournalAccess::Change) || m_size != size + blockSize))
        return;
    // Nothing more can be done after a failure here: a tail without a checkpoint remains, or a
    // whole block, which the next load takes although its append was reported as failed.
    if (ftruncate(m_file.Number(), static_cast<off_t>(size)) == 0)
        fdatasync(m_file.Number());
    m_file.Close();
}

TQvResult TJournalFile::Answer(int error) const
{
    return error == 0 ? TQvResult::Done() : TQvResult::Failed(error, m_path);
}

TQvResult TJournalRewrite::Open(const std::string& path, const TJournalFile& old)
{
    m_path = m_target = path;
    m_replaces = static_cast<bool>(old);
    m_old = old.Descriptor();
    TQvNewFile::TOptions options;
    if (m_replaces) {
        if (!QvFollowLinks(&m_target))
            return TQvResult::Failed(errno, path);
        options.Permissions = old.Permissions();
        options.AttributesOf = old.Descriptor();
    }
    // A fixed name, so that the next rewrite replaces the file that a killed one left.
    const std::string folder = QvFolderPart(m_target);
    m_temporary = folder + '.' + m_target.substr(folder.size()) + ".new";
    // Under the lock of the storage: no other process is writing this file now.
    if (unlink(m_temporary.c_str()) != 0 && errno != ENOENT)
        return TQvResult::Failed(errno, m_temporary);
    return m_file.Open(m_temporary, options);
}

TQvResult TJournalRewrite::Write(std::string_view bytes)
{
    assert(m_file.Descriptor() >= 0); // not after Publish
    const TQvResult written = m_file.Write(bytes.data(), bytes.size());
    m_size += bytes.size();
    assert(m_started <= m_size);
    // Starts writing to the disk while the next records are formatted, so that Sync waits less.
    // Only a hint; Sync reports failures.
    if (written && m_size - m_started >= kWriteBackEvery) {
        sync_file_range(m_file.Descriptor(), static_cast<off_t>(m_started),
                        static_cast<off_t>(m_size - m_started), SYNC_FILE_RANGE_WRITE);
        m_started = m_size;
    }
    return written;
}

/// Kept first, then renamed: a kill in between leaves two names of the old journal and no gap.
TQvResult TJournalRewrite::Publish(bool keepsOld)
{
    assert(m_file.Descriptor() >= 0 && m_size > 0); // else an empty file would replace the journal
    if (const TQvResult named = m_file.Publish(); !named)
        return named;
    int error = keepsOld && m_replaces ? KeepOld() : 0;
    if (error == 0)
        error = Rename();
    m_hasReplaced = error == 0;
    if (error != 0)
        unlink(m_temporary.c_str());
    // The rename has happened: this failure says only that a power cut may undo it.
    if (error == 0 && !QvSyncFolderOf(m_target, m_old))
        error = errno;
    return error == 0 ? TQvResult::Done() : TQvResult::Failed(error, m_path);
}

/// By a hard link, which needs no space; else by a copy, which is synced.
int TJournalRewrite::KeepOld() const
{
    const std::string kept = m_path + kDamagedJournalSuffix;
    // An older one is replaced: the newest damage is the one to be examined.
    if (unlink(kept.c_str()) != 0 && errno != ENOENT)
        return errno;
    return link(m_target.c_str(), kept.c_str()) == 0 || QvCopyFileToMove(m_target, kept, nullptr)
               ? 0
               : errno;
}

int TJournalRewrite::Rename() const
{
    const char* const from = m_temporary.c_str();
    const char* const to = m_target.c_str();
    // A journal that has appeared meanwhile is not replaced, where the file system can tell.
    if (!m_replaces) {
        if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
    }
    return rename(from, to) == 0 ? 0 : errno;
}
