#include "QvStd/Files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"

namespace
{
bool Look(const std::string& path, struct stat* status)
{
    return stat(path.c_str(), status) == 0;
}

/// Nothing exists below a file, below an endless chain of links, or with a component that is too
/// long: these are answers, no failures. A path that is too long as a whole may exist.
TQvResult AnswerLook(const char* path)
{
    const bool isNothing = errno == ENOTDIR || errno == ELOOP ||
                           (errno == ENAMETOOLONG && std::strlen(path) < PATH_MAX);
    return isNothing ? TQvResult::Nothing() : TQvResult::FromErrno();
}

/// Syncs the name of a folder. False with errno.
bool SyncName(const std::string& path)
{
    const std::string plain = path.substr(0, path.find_last_not_of('/') + 1);
    const TQvDescriptor folder(open(plain.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // The name is in the parent folder; the new folder itself has nothing to be synced.
    return folder && QvSyncFolderOf(plain, folder.Number());
}

/// Creates a folder unless it exists; on failure errno is that of the creation.
bool MakeOrFindFolder(const std::string& path, mode_t mode = 0777, bool synced = false)
{
    if (mkdir(path.c_str(), mode) == 0)
        return !synced || SyncName(path);
    const int error = errno;
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(path, &isFolder);
    if (isFolder)
        return true;
    errno = exists.HasFailed() ? exists.Error() : error;
    return false;
}

/// The end of the parent folder in the first `end` characters of a path; 0 when there is none.
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

TQvResult QvGetFileInfo(const std::string& path, TQvFileInfo* info)
{
    return QvGetFileInfoAt(AT_FDCWD, path.c_str(), info);
}

/// statx, because stat has no birth time.
TQvResult QvGetFileInfoAt(int folderDescriptor, const char* name, TQvFileInfo* info)
{
    struct statx status = {};
    constexpr unsigned kWanted = STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_CTIME | STATX_BTIME;
    if (statx(folderDescriptor, name, AT_STATX_SYNC_AS_STAT, kWanted, &status) != 0)
        return AnswerLook(name);
    const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
    const struct statx_timestamp& born = hasBirth ? status.stx_btime : status.stx_ctime;
    info->IsFolder = S_ISDIR(status.stx_mode);
    info->IsRegular = S_ISREG(status.stx_mode);
    info->Size = status.stx_size;
    info->UpdateTime = TQvDateTime::FromTimespec(status.stx_mtime.tv_sec, status.stx_mtime.tv_nsec);
    info->CreationTime = TQvDateTime::FromTimespec(born.tv_sec, born.tv_nsec);
    return TQvResult::Done();
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

TQvResult QvFileDirExists(const char* path, bool* isFolder)
{
    struct stat status;
    if (stat(path, &status) != 0)
        return AnswerLook(path);
    if (isFolder != nullptr)
        *isFolder = S_ISDIR(status.st_mode);
    return TQvResult::Done();
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
    // Callers store 32 bits: a time outside of them becomes the nearest one, not a random one.
    constexpr time_t kLast = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<time_t>(status.st_mtim.tv_sec, 0, kLast));
}

TQvResult QvCreateDirectory(const std::string& path)
{
    return mkdir(path.c_str(), 0777) == 0 ? TQvResult::Done() : TQvResult::FromErrno();
}

TQvResult QvCreateDirectoryLike(const std::string& path, const std::string& model)
{
    struct stat status = {};
    // With S_IRWXU: its owner must be able to fill the copy of a read-only folder.
    const bool isMade =
        Look(model, &status) && MakeOrFindFolder(path, (status.st_mode & 0777) | S_IRWXU);
    return isMade ? TQvResult::Done() : TQvResult::FromErrno();
}

/// From the end, because most folders have their parents: then one call is enough.
TQvResult QvForceDirectories(const std::string& path, bool synced)
{
    constexpr mode_t kMode = 0777;
    if (MakeOrFindFolder(path, kMode, synced))
        return TQvResult::Done();
    // Goes up to the first parent that exists or can be made, then down again.
    std::size_t end = path.size();
    do {
        if (errno != ENOENT)
            return TQvResult::FromErrno();
        end = ParentEnd(path, end);
        if (end == 0) {
            errno = ENOENT;
            return TQvResult::FromErrno();
        }
    } while (!MakeOrFindFolder(path.substr(0, end), kMode, synced));
    while (end < path.size()) {
        end = NextEnd(path, end);
        if (!MakeOrFindFolder(path.substr(0, end), kMode, synced))
            return TQvResult::FromErrno();
    }
    return TQvResult::Done();
}

TQvResult QvDeleteFile(const std::string& path)
{
    return unlink(path.c_str()) == 0 ? TQvResult::Done() : TQvResult::FromErrno();
}

TQvResult QvRemoveDirectory(const std::string& path)
{
    // With its trailing "/", a link to a folder would be neither folder nor link to the system.
    const std::size_t last = path.find_last_not_of('/');
    const std::string plain = last == std::string::npos ? path : path.substr(0, last + 1);
    if (rmdir(plain.c_str()) == 0)
        return TQvResult::Done();
    if (errno != ENOTDIR)
        return TQvResult::FromErrno();
    // Only a link to a folder: a link to a file, or a dangling one, is no folder.
    if (QvIsSymLink(plain) && QvDirExists(plain))
        return QvDeleteFile(plain);
    errno = ENOTDIR;
    return TQvResult::FromErrno();
}
