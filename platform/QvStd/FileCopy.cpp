// Calls on the content of files: copying, moving, replacing and reading whole ones.
#include "QvStd/Files.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "QvStd/Message.h"
#include "QvStd/Strings.h"

namespace
{
constexpr std::size_t kBlock = 256 * 1024;
constexpr std::uint64_t kReportEvery = 8 * 1024 * 1024;
constexpr std::size_t kMaxComponent = 255;
constexpr mode_t kPermissionBits = 0777;

bool Fail(int error)
{
    errno = error;
    return false;
}

/// Owns a file descriptor. Its destructor leaves errno alone.
class TDescriptor
{
public:
    explicit TDescriptor(int number) : m_number(number) {}
    ~TDescriptor()
    {
        const int error = errno;
        Close();
        errno = error;
    }
    TDescriptor(TDescriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    TDescriptor& operator=(TDescriptor&&) = delete;

    explicit operator bool() const { return m_number >= 0; }
    int Number() const { return m_number; }
    bool Close() { return m_number < 0 || close(std::exchange(m_number, -1)) == 0; }

private:
    int m_number;
};

/// With the "/" it ends in; "" for a name without one.
std::string FolderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

bool SyncFolder(int folder)
{
    // Some file systems have no sync for folders, and say so like this.
    return fsync(folder) == 0 || errno == EINVAL || errno == EOPNOTSUPP;
}

TDescriptor OpenFolderOf(const std::string& path)
{
    const std::string folder = FolderOf(path);
    return TDescriptor(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// Opens a regular file for reading; never waits for a FIFO's writer.
TDescriptor OpenRegular(const std::string& path, struct stat* status)
{
    TDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file && errno == ENXIO) // a socket
        errno = EINVAL;
    if (!file || fstat(file.Number(), status) != 0)
        return TDescriptor(-1);
    if (!S_ISREG(status->st_mode)) {
        errno = S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
        return TDescriptor(-1);
    }
    return file;
}

ssize_t ReadSome(int file, char* buffer, std::size_t count)
{
    ssize_t done = 0;
    do
        done = read(file, buffer, count);
    while (done < 0 && errno == EINTR);
    return done;
}

bool WriteAll(int file, std::string_view data)
{
    while (!data.empty()) {
        const ssize_t done = write(file, data.data(), data.size());
        if (done > 0)
            data.remove_prefix(static_cast<std::size_t>(done));
        else if (done == 0)
            return Fail(EIO);
        else if (errno != EINTR)
            return false;
    }
    return true;
}

std::uint64_t NextRandom()
{
    static std::atomic<std::uint64_t> state = [] {
        std::uint64_t seed = 0;
        if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != sizeof seed)
            seed = static_cast<std::uint64_t>(std::time(nullptr)) << 32 ^
                   static_cast<std::uint64_t>(getpid());
        return seed;
    }();
    // SplitMix64; numbers that repeat (after a fork) only cost another try at the name.
    std::uint64_t value = state += 0x9E3779B97F4A7C15u;
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9u;
    value = (value ^ value >> 27) * 0x94D049BB133111EBu;
    return value ^ value >> 31;
}

/// ".<name>.<random>.tmp" beside `target`, the name cut between characters where it is too long.
std::string TemporaryName(const std::string& target)
{
    constexpr std::size_t kAdded = 1 + 1 + 16 + 4;
    const std::string folder = FolderOf(target);
    std::string name = target.substr(folder.size());
    if (name.size() > kMaxComponent - kAdded) {
        std::size_t cut = kMaxComponent - kAdded;
        while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80)
            --cut;
        name.resize(cut);
    }
    return folder + '.' + name +
           Korvadel::ssprintf(".%016llx.tmp", static_cast<unsigned long long>(NextRandom()));
}

/// Renames with the promise that nothing is replaced (EEXIST).
bool RenameToFreeName(const std::string& from, const std::string& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // The file system cannot do it in one step: take the name with an empty file or folder, which
    // fails where anything is, and rename over that.
    struct stat status = {};
    if (lstat(from.c_str(), &status) != 0)
        return false;
    const bool isFolder = S_ISDIR(status.st_mode);
    if (isFolder ? mkdir(to.c_str(), S_IRWXU) != 0
                 : !TDescriptor(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)))
        return false;
    if (rename(from.c_str(), to.c_str()) == 0)
        return true;
    const int error = errno;
    isFolder ? rmdir(to.c_str()) : unlink(to.c_str());
    return Fail(error);
}

/// The new content of `target` while it is made: a hidden file beside it that is renamed over it in
/// the end, or is gone with this object. errno stays that of the failure.
class TTemporaryNeighbour
{
public:
    TTemporaryNeighbour(const std::string& target, mode_t mode)
        : m_target(target), m_file(Create(mode))
    {
    }
    ~TTemporaryNeighbour()
    {
        const int error = errno;
        if (m_exists)
            unlink(m_name.c_str());
        errno = error;
    }
    TTemporaryNeighbour(const TTemporaryNeighbour&) = delete;
    TTemporaryNeighbour& operator=(const TTemporaryNeighbour&) = delete;

    explicit operator bool() const { return static_cast<bool>(m_file); }
    int Number() const { return m_file.Number(); }

    bool SetPermissions(mode_t wanted)
    {
        struct stat status = {};
        if (fstat(Number(), &status) != 0)
            return false;
        // Mostly the umask took nothing away: looking is cheaper than changing. A file system
        // without permission bits answers EPERM to the owner.
        return (status.st_mode & kPermissionBits) == wanted || fchmod(Number(), wanted) == 0 ||
               errno == EPERM || errno == EOPNOTSUPP;
    }

    /// Closes and gives the content its name.
    bool Publish(bool failIfExists)
    {
        if (!m_file.Close())
            return false;
        if (failIfExists ? !RenameToFreeName(m_name, m_target)
                         : rename(m_name.c_str(), m_target.c_str()) != 0)
            return false;
        m_exists = false;
        return true;
    }

private:
    int Create(mode_t mode)
    {
        constexpr int kTries = 100;
        int file = -1;
        for (int i = 0; i < kTries && file < 0 && (i == 0 || errno == EEXIST); ++i) {
            m_name = TemporaryName(m_target);
            file = open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        }
        m_exists = file >= 0;
        return file;
    }

    const std::string& m_target;
    std::string m_name;
    bool m_exists = false;
    TDescriptor m_file;
};

/// Tells a handler (may be null) how far a copy of `size` bytes is. Throws TQvUserBreak.
class TCopyReport
{
public:
    TCopyReport(TQvProgressHandler* handler, std::uint64_t size) : m_progress(handler), m_size(size)
    {
    }

    void Advance(std::uint64_t bytes)
    {
        m_done += bytes;
        QvPollProgress(m_progress.Handler());
        if (m_done < m_reported + kReportEvery || m_done >= m_size)
            return;
        m_reported = m_done;
        m_progress.Report(static_cast<double>(m_done) / static_cast<double>(m_size));
    }
    void Whole()
    {
        QvPollProgress(m_progress.Handler());
        m_progress.Report(1.0);
    }

private:
    TQvProgress m_progress;
    std::uint64_t m_size;
    std::uint64_t m_done = 0;
    std::uint64_t m_reported = 0;
};

/// Copies to the end of the file, which need not be where its size said.
bool CopyBlocks(int from, int to, std::uint64_t size, TCopyReport& report)
{
    // One byte more than expected: a small file is read, and known to have ended, in one call.
    const std::size_t block =
        static_cast<std::size_t>(std::clamp<std::uint64_t>(size + 1, 4096, kBlock));
    const std::unique_ptr<char[]> buffer(new char[block]);
    std::uint64_t copied = 0;
    for (;;) {
        const ssize_t count = ReadSome(from, buffer.get(), block);
        if (count <= 0)
            return count == 0;
        const auto length = static_cast<std::size_t>(count);
        if (!WriteAll(to, std::string_view(buffer.get(), length)))
            return false;
        copied += length;
        report.Advance(length);
        if (length < block && copied == size)
            return true;
    }
}

bool CopyContent(int from, int to, std::uint64_t size, TCopyReport& report)
{
    // For small files the question costs more than the copy.
    if (size > kBlock && ioctl(to, FICLONE, from) == 0)
        return true;
    return CopyBlocks(from, to, size, report);
}

/// The times of a file for futimens, the access time to be left alone.
struct TKeptTimes
{
    explicit TKeptTimes(const struct stat& status) : Values{{0, UTIME_OMIT}, status.st_mtim} {}
    timespec Values[2];
};

enum class TCopyCheck
{
    Go,
    Refused,
    SameFile
};

TCopyCheck CheckTarget(const struct stat& source, const std::string& to, bool failIfExists)
{
    struct stat target = {};
    if (stat(to.c_str(), &target) != 0)
        return TCopyCheck::Go;
    if (failIfExists || S_ISDIR(target.st_mode)) {
        errno = failIfExists ? EEXIST : EISDIR;
        return TCopyCheck::Refused;
    }
    const bool same = source.st_dev == target.st_dev && source.st_ino == target.st_ino;
    return same ? TCopyCheck::SameFile : TCopyCheck::Go;
}

bool CopyFile(const std::string& from, const std::string& to, bool failIfExists, bool sync,
              TQvProgressHandler* progress)
{
    struct stat source = {};
    const TDescriptor input = OpenRegular(from, &source);
    if (!input)
        return false;
    const auto size = static_cast<std::uint64_t>(source.st_size);
    TCopyReport report(progress, size);
    const TCopyCheck check = CheckTarget(source, to, failIfExists);
    if (check == TCopyCheck::SameFile)
        report.Whole();
    if (check != TCopyCheck::Go)
        return check == TCopyCheck::SameFile;

    const mode_t mode = source.st_mode & kPermissionBits;
    TTemporaryNeighbour output(to, mode);
    if (!output || !CopyContent(input.Number(), output.Number(), size, report) ||
        !output.SetPermissions(mode) || futimens(output.Number(), TKeptTimes(source).Values) != 0 ||
        (sync && fsync(output.Number()) != 0))
        return false;
    report.Whole();
    return output.Publish(failIfExists);
}

/// Where a chain of symbolic links ends, whether or not anything is there.
bool FollowLinks(std::string* path)
{
    constexpr int kMaxLinks = 40;
    char target[PATH_MAX];
    for (int i = 0; i < kMaxLinks; ++i) {
        const ssize_t length = readlink(path->c_str(), target, sizeof target);
        if (length < 0)
            return errno == EINVAL || errno == ENOENT; // no link; nothing
        const std::string_view text(target, static_cast<std::size_t>(length));
        if (text.front() == '/')
            *path = text;
        else
            *path = FolderOf(*path).append(text);
    }
    return Fail(ELOOP);
}

/// Gives `file` the owner and the permission bits that the file it replaces has.
bool KeepOwnerAndPermissions(const struct stat& old, TTemporaryNeighbour& file)
{
    struct stat now = {};
    if (fstat(file.Number(), &now) != 0)
        return false;
    // Only an administrator can give a file away; for others it is theirs from now on.
    if ((old.st_uid != now.st_uid || old.st_gid != now.st_gid) &&
        fchown(file.Number(), old.st_uid, old.st_gid) != 0 && errno != EPERM)
        return false;
    return file.SetPermissions(old.st_mode & kPermissionBits);
}

bool ReadToEnd(int file, std::uint64_t size, std::string* content)
{
    // As in CopyBlocks: the byte more shows the end of the file in the same call.
    content->resize(static_cast<std::size_t>(std::max<std::uint64_t>(size + 1, 4096)));
    std::size_t done = 0;
    for (;;) {
        const std::size_t room = content->size() - done;
        const ssize_t count = ReadSome(file, content->data() + done, room);
        if (count < 0)
            return false;
        done += static_cast<std::size_t>(count);
        if (count == 0 || (static_cast<std::size_t>(count) < room && done == size))
            break;
        if (done == content->size())
            content->resize(done * 2);
    }
    content->resize(done);
    return true;
}
} // namespace

bool QvCopyFile(const std::string& from, const std::string& to, bool failIfExists)
{
    return CopyFile(from, to, failIfExists, false, nullptr);
}

bool QvCopyFileEx(const std::string& from, const std::string& to, bool failIfExists,
                  TQvProgressHandler* progress)
{
    try {
        return CopyFile(from, to, failIfExists, false, progress);
    } catch (const TQvUserBreak&) {
        return Fail(ECANCELED);
    }
}

bool QvMoveFileEx(const std::string& from, const std::string& to, bool overwrite,
                  bool acrossDevices)
{
    if (overwrite ? rename(from.c_str(), to.c_str()) == 0 : RenameToFreeName(from, to))
        return true;
    if (errno != EXDEV || !acrossDevices)
        return false;
    // Two mounts of one file system answer EXDEV too: then the file may be there already, and
    // deleting it here would delete it there.
    if (QvIsSameFile(from, to))
        return overwrite || Fail(EEXIST);
    // Unlike a plain copy this one is synced, its folder too: it is about to be the only one.
    if (!CopyFile(from, to, !overwrite, true, nullptr))
        return false;
    const TDescriptor folder = OpenFolderOf(to);
    return folder && SyncFolder(folder.Number()) && QvDeleteFile(from);
}

bool QvWriteFileAtomically(const std::string& path, const std::string& content)
{
    std::string target = path;
    if (!FollowLinks(&target))
        return false;
    struct stat old = {};
    const bool exists = stat(target.c_str(), &old) == 0;
    if (exists ? !S_ISREG(old.st_mode) : errno != ENOENT)
        return exists ? Fail(S_ISDIR(old.st_mode) ? EISDIR : EINVAL) : false;

    // Opened first, so that a folder that cannot be synced is refused while nothing has changed.
    const TDescriptor folder = OpenFolderOf(target);
    if (!folder)
        return false;
    TTemporaryNeighbour file(target, exists ? old.st_mode & kPermissionBits : 0666);
    return file && (!exists || KeepOwnerAndPermissions(old, file)) &&
           WriteAll(file.Number(), content) && fsync(file.Number()) == 0 && file.Publish(false) &&
           SyncFolder(folder.Number());
}

bool QvReadWholeFile(const std::string& path, std::string* content)
{
    struct stat status = {};
    const TDescriptor file = OpenRegular(path, &status);
    if (!file)
        return false;
    try {
        std::string read;
        if (!ReadToEnd(file.Number(), static_cast<std::uint64_t>(status.st_size), &read))
            return false;
        *content = std::move(read);
        return true;
    } catch (const std::bad_alloc&) {
        return Fail(ENOMEM);
    } catch (const std::length_error&) {
        return Fail(ENOMEM);
    }
}
