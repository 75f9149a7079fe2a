// Removing and renaming.
#include "FileSystem.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <unistd.h>

#include <QvStd/Files.h>

namespace
{
bool IsFolderOrLinkToOne(const std::string& path, const struct stat& status)
{
    struct stat target = {};
    return S_ISDIR(status.st_mode) ||
           (S_ISLNK(status.st_mode) && stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode));
}

dev_t DeviceOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}
} // namespace

int TFileSystem::HoldToRemove(TInode& parent, const std::string& name, TNameHold* hold,
                              TPlace* place)
{
    const int error = HoldName(parent, name, hold, place);
    return error == 0 && place->MountPoint != nullptr ? EBUSY : error;
}

int TFileSystem::Unlink(TInode& parent, const std::string& name)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldToRemove(parent, name, &hold, &place))
        return error;
    bool isDeleted = ResourceManager.DeleteResource(place.Id);
    // Of a link to a folder only the link is removed.
    struct stat status = {};
    if (!isDeleted && TResourceManager::LastFailure().Error == EISDIR &&
        LookAt(place, &status) == 0 && S_ISLNK(status.st_mode))
        isDeleted = ResourceManager.DeleteFolder(place.Id, false, nullptr);
    if (!isDeleted)
        return TResourceManager::LastFailure().Error;
    m_inodes.Remove({&parent, place.Name});
    return 0;
}

/// Replaces an empty folder, as on a disk, but not in one step.
int TFileSystem::RenameFolder(const TPlace& from, const TPlace& to, bool isSameParent,
                              unsigned flags)
{
    if (!isSameParent)
        return EXDEV;
    struct stat there = {};
    const int error = LookAt(to, &there);
    if (error == 0) {
        if ((flags & RENAME_NOREPLACE) != 0)
            return EEXIST;
        if (!S_ISDIR(there.st_mode))
            return ENOTDIR;
        if (!ResourceManager.DeleteFolder(to.Id, false, nullptr))
            return TResourceManager::LastFailure().Error;
    } else if (error != ENOENT) {
        return error;
    }
    try {
        ResourceManager.RenameFolderE(from.Id, to.Name);
        return 0;
    } catch (const TQvMessage&) {
        const int cause = TResourceManager::LastFailure().Error;
        if (error == 0 && QvCreateDirectory(to.Path))
            chmod(to.Path.c_str(), there.st_mode & 07777);
        return cause != 0 ? cause : EIO;
    }
}

/// The library's move, which includes the sidecar and replaces the target in one step.
int TFileSystem::MoveFile(const TPlace& from, const TPlace& to, unsigned flags)
{
    const bool mustBeNew = (flags & RENAME_NOREPLACE) != 0;
    // An empty file reserves the name for the move: of two processes that create it, one fails.
    if (mustBeNew) {
        std::unique_ptr<TFileHandle> placeholder;
        if (const int error = TFileHandle::Create(to.Id, &placeholder))
            return error;
    }
    if (ResourceManager.RenMovResource(from.Id, to.Id, nullptr))
        return 0;
    const TQvFailure failure = TResourceManager::LastFailure();
    struct stat there = {};
    if (mustBeNew && !failure.OfMetadata && LookAt(to, &there) == 0 && there.st_size == 0)
        ResourceManager.DeleteResource(to.Id);
    return failure.Error;
}

int TFileSystem::RenameFile(const TInodeName& fromName, const TPlace& from, const TPlace& to,
                            const struct stat& status, unsigned flags)
{
    const auto* const node = ResourceManager.GetNode4Id(from.Id, true, true, false);
    const bool isOneDisk = node == ResourceManager.GetNode4Id(to.Id, true, true, false) &&
                           status.st_dev == DeviceOf(QvExtractResPath(to.Path));
    // A move to another disk is a copy; open handles would stay at the old file.
    if (!isOneDisk && m_inodes.HasHandles(fromName))
        return EXDEV;
    return MoveFile(from, to, flags);
}

int TFileSystem::Rename(TInode& from, const std::string& name, TInode& to,
                        const std::string& newName, unsigned flags)
{
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0)
        return EINVAL;
    TResourceManager::SetLastFailure(0, {});
    TPlace source;
    TPlace target;
    int error = FindPlace(from, name, &source);
    if (error == 0)
        error = NewPlace(to, newName, &target);
    if (error == 0 && (source.MountPoint != nullptr || target.MountPoint != nullptr))
        error = EBUSY;
    if (error == 0 && (source.Path.empty() || target.Path.empty() || to.IsVirtual))
        error = EROFS;
    struct stat status = {};
    if (error == 0)
        error = LookAt(source, &status);
    if (error != 0)
        return error;
    const bool isFolder = IsFolderOrLinkToOne(source.Path, status);
    const TRenameHold hold(m_locks, m_locks.Of(&from, name), m_locks.Of(&to, newName), isFolder);
    // The ids are those under the lock: a folder above may have been renamed until then.
    if (FindPlace(from, name, &source) != 0 || FindPlace(to, newName, &target) != 0)
        return ENOENT;
    const TInodeName fromName{&from, source.Name};
    const TInodeName toName{&to, target.Name};
    error = isFolder ? RenameFolder(source, target, &from == &to, flags)
                     : RenameFile(fromName, source, target, status, flags);
    // When only the sidecar could not be moved, the result is a failure, but the file has its new
    // name.
    if (error != 0 && !TResourceManager::LastFailure().OfMetadata)
        return error;
    m_inodes.Rename(fromName, toName);
    if (!isFolder && LookAt(target, &status) == 0)
        m_inodes.Identify(toName, status);
    return error;
}
