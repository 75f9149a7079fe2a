#include "QvStd/Descriptor.h"

#include <cassert>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/file.h>

int QvOpenRegular(const std::string& path, int flags, TQvDescriptor* file, struct stat* status,
                  int folder)
{
    return path.find('\0') != std::string::npos
               ? EINVAL
               : QvOpenRegular(path.c_str(), flags, file, status, folder);
}

int QvOpenRegular(const char* path, int flags, TQvDescriptor* file, struct stat* status, int folder)
{
    // O_NONBLOCK keeps a FIFO from waiting for its other end. Reads and writes of regular files
    // ignore it, so it is not taken back.
    constexpr int kAlways = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    constexpr mode_t kNewFile = 0666;
    int number =
        QvRetryInterrupted([&] { return openat(folder, path, flags | kAlways, kNewFile); });
    // Another process has a lease on a regular file, which the kernel takes back soon: wait for
    // that.
    if (number < 0 && errno == EWOULDBLOCK && fstatat(folder, path, status, 0) == 0 &&
        S_ISREG(status->st_mode))
        number = QvRetryInterrupted(
            [&] { return openat(folder, path, flags | (kAlways & ~O_NONBLOCK), kNewFile); });
    // ENXIO: a FIFO without a reader, a socket or a device without a driver.
    if (number < 0)
        return errno == ENXIO ? EINVAL : errno;
    TQvDescriptor opened(number);
    if (fstat(number, status) != 0)
        return errno;
    if (!S_ISREG(status->st_mode))
        return S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
    *file = std::move(opened);
    return 0;
}

/// O_PATH: the folder need not be readable, only searchable, as for the path itself.
TQvPlace TQvFolderKeeper::Locate(const std::string& path)
{
    const std::size_t length = path.rfind('/') + 1;
    // The system refuses or cuts some paths whose folder and name alone would be accepted.
    if (length == 0 || length == path.size() || path.size() >= PATH_MAX ||
        path.find('\0') != std::string::npos)
        return {AT_FDCWD, path};
    if (path.compare(0, length, m_path) != 0) {
        m_path.assign(path, 0, length);
        m_folder = TQvDescriptor(open(m_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    assert(path.compare(0, length, m_path) == 0); // the open folder is that of the path
    return m_folder ? TQvPlace{m_folder.Number(), path.substr(length)} : TQvPlace{AT_FDCWD, path};
}

/// A file system without locks counts as granted: refusing would make its files unusable.
int QvTakeShareLock(int descriptor, qvShareMode share)
{
    const int kind = share == kQvShareAll ? LOCK_SH : LOCK_EX;
    if (QvRetryInterrupted([&] { return flock(descriptor, kind | LOCK_NB); }) == 0)
        return 0;
    switch (errno) {
    case EWOULDBLOCK:
        return EACCES;
    case ENOLCK:
    case EOPNOTSUPP:
    case ENOSYS:
    case EINVAL:
    case EBADF: // network file systems lock no write-only file shared, no read-only one exclusively
        return 0;
    default:
        return errno;
    }
}

std::string QvFolderPart(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

TQvDescriptor QvOpenForSync(const std::string& path, int file)
{
    const std::string folder = QvFolderPart(path);
    TQvDescriptor opened(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A folder that may be written and not read: the file stands for its file system then.
    if (!opened && errno == EACCES)
        opened = TQvDescriptor(fcntl(file, F_DUPFD_CLOEXEC, 0));
    return opened;
}

bool QvSyncName(int folderOrFile)
{
    struct stat status = {};
    if (fstat(folderOrFile, &status) != 0)
        return false;
    if (!S_ISDIR(status.st_mode))
        return syncfs(folderOrFile) == 0; // the whole file system: there is no smaller way
    // Some file systems have no sync for folders, and answer this.
    return fsync(folderOrFile) == 0 || errno == EINVAL || errno == EOPNOTSUPP;
}

bool QvSyncFolderOf(const std::string& path, int file)
{
    const TQvDescriptor folder = QvOpenForSync(path, file);
    return folder && QvSyncName(folder.Number());
}
