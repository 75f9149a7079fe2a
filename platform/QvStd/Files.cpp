#include "QvStd/Files.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
bool Look(const std::string& path, struct stat* status)
{
    return stat(path.c_str(), status) == 0;
}

/// Creates a folder or finds it there; on failure errno is that of the creation.
bool MakeOrFindFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) == 0)
        return true;
    const int error = errno;
    if (QvDirExists(path))
        return true;
    errno = error;
    return false;
}

/// The end of the parent's part of a path that ends at `end`; 0 when there is none.
std::size_t ParentEnd(const std::string& path, std::size_t end)
{
    while (end > 0 && path[end - 1] == '/')
        --end;
    while (end > 0 && path[end - 1] != '/')
        --end;
    while (end > 1 && path[end - 1] == '/')
        --end;
    return end;
}

std::size_t NextEnd(const std::string& path, std::size_t end)
{
    const std::size_t start = path.find_first_not_of('/', end);
    return std::min(path.find('/', start), path.size());
}
} // namespace

bool QvGetFileInfo(const std::string& path, TQvFileInfo* info)
{
    return QvGetFileInfoAt(AT_FDCWD, path.c_str(), info);
}

bool QvGetFileInfoAt(int folderDescriptor, const char* name, TQvFileInfo* info)
{
    struct statx status = {};
    constexpr unsigned kWanted = STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_CTIME | STATX_BTIME;
    if (statx(folderDescriptor, name, AT_STATX_SYNC_AS_STAT, kWanted, &status) != 0)
        return false;
    const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
    const struct statx_timestamp& born = hasBirth ? status.stx_btime : status.stx_ctime;
    info->IsFolder = S_ISDIR(status.stx_mode);
    info->IsRegular = S_ISREG(status.stx_mode);
    info->Size = status.stx_size;
    info->UpdateTime = TQvDateTime::FromTimespec(status.stx_mtime.tv_sec, status.stx_mtime.tv_nsec);
    info->CreationTime = TQvDateTime::FromTimespec(born.tv_sec, born.tv_nsec);
    return true;
}

bool QvIsSameFile(const std::string& a, const std::string& b)
{
    struct stat statusA = {};
    struct stat statusB = {};
    return Look(a, &statusA) && Look(b, &statusB) && statusA.st_dev == statusB.st_dev &&
           statusA.st_ino == statusB.st_ino;
}

bool QvFileExists(const std::string& path)
{
    struct stat status = {};
    return Look(path, &status) && !S_ISDIR(status.st_mode);
}

bool QvDirExists(const std::string& path)
{
    struct stat status = {};
    return Look(path, &status) && S_ISDIR(status.st_mode);
}

bool QvFileDirExists(const std::string& path, bool* isFolder)
{
    struct stat status = {};
    if (!Look(path, &status))
        return false;
    if (isFolder != nullptr)
        *isFolder = S_ISDIR(status.st_mode);
    return true;
}

bool QvIsSymLink(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

std::uint64_t QvGetFileSize(const std::string& path)
{
    struct stat status = {};
    return Look(path, &status) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint32_t GetUnixFileTime(const std::string& path)
{
    struct stat status = {};
    if (!Look(path, &status))
        return 0;
    constexpr time_t kLast = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<time_t>(status.st_mtim.tv_sec, 0, kLast));
}

bool QvCopyPermissions(const std::string& from, const std::string& to)
{
    struct stat status = {};
    return Look(from, &status) && chmod(to.c_str(), status.st_mode & 0777) == 0;
}

bool QvCreateDirectory(const std::string& path)
{
    return mkdir(path.c_str(), 0777) == 0;
}

bool QvForceDirectories(const std::string& path)
{
    if (MakeOrFindFolder(path))
        return true;
    // Back to the first parent that can be made or is there, then forward again.
    std::size_t end = path.size();
    do {
        if (errno != ENOENT)
            return false;
        end = ParentEnd(path, end);
        if (end == 0) {
            errno = ENOENT;
            return false;
        }
    } while (!MakeOrFindFolder(path.substr(0, end)));
    while (end < path.size()) {
        end = NextEnd(path, end);
        if (!MakeOrFindFolder(path.substr(0, end)))
            return false;
    }
    return true;
}

bool QvDeleteFile(const std::string& path)
{
    return unlink(path.c_str()) == 0;
}

bool QvRemoveDirectory(const std::string& path)
{
    // With its trailing "/", a link to a folder would be neither folder nor link to the system.
    const std::size_t last = path.find_last_not_of('/');
    const std::string plain = last == std::string::npos ? path : path.substr(0, last + 1);
    if (rmdir(plain.c_str()) == 0)
        return true;
    if (errno != ENOTDIR)
        return false;
    if (QvIsSymLink(plain) && QvDirExists(plain))
        return unlink(plain.c_str()) == 0;
    errno = ENOTDIR;
    return false;
}
