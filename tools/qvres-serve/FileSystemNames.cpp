// Removing and renaming.
#include "FileSystem.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <unistd.h>

#include <QvStd/Files.h>

namespace
{
dev_t DeviceOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

/// 0 or an errno. A folder is no sidecar, and a name that is too long for one has none.
int UnlinkSidecar(const std::string& path)
{
    const std::string sidecar = path + kSidecarSuffix;
    const bool isGone =
        unlink(sidecar.c_str()) == 0 || errno == ENOENT || errno == EISDIR || errno == ENAMETOOLONG;
    return isGone ? 0 : errno;
}
} // namespace

int TFileSystem::HoldToRemove(TInode& parent, const std::string& name, TNameHold* hold,
                              TPlace* place)
{
    const int error = HoldName(parent, name, hold, place);
    return error == 0 && place->MountPoint != nullptr ? EBUSY : error;
}

/// The sidecar of a file that a program moves by a copy goes to that copy, if it has the size and
/// the time of the source, which the program removes now.
int TFileSystem::CarrySidecar(const TPlace& place)
{
    const std::string target = m_copies.CopyOf(place.Id);
    struct stat source = {};
    struct stat copy = {};
    const bool isCopied = !target.empty() && lstat(place.Path.c_str(), &source) == 0 &&
                          lstat(PathOf(target).c_str(), &copy) == 0 && S_ISREG(source.st_mode) &&
                          S_ISREG(copy.st_mode) && copy.st_size == source.st_size &&
                          copy.st_mtim.tv_sec == source.st_mtim.tv_sec &&
                          copy.st_mtim.tv_nsec == source.st_mtim.tv_nsec;
    if (!isCopied || ResourceManager.ResourceMetaExists(target) ||
        ResourceManager.CopyResourceMeta(place.Id, target))
        return 0;
    const int error = TResourceManager::LastFailure().Error;
    return error == ENOENT ? 0 : error; // most have none
}

/// As the library deletes a resource. It would look at what a link leads to, which may be nothing,
/// or this server.
int TFileSystem::Unlink(TInode& parent, const std::string& name)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldToRemove(parent, name, &hold, &place))
        return error;
    if (const int error = CarrySidecar(place))
        return error;
    if (unlink(place.Path.c_str()) != 0)
        return errno;
    m_copies.Forget(place.Id);
    m_inodes.Remove({&parent, place.Name});
    return UnlinkSidecar(place.Path);
}

/// Replaces an empty folder, as on a disk, but not in one step.
int TFileSystem::RenameFolder(const TPlace& from, const TPlace& to, bool isSameParent,
                              unsigned flags)
{
    if (!isSameParent) {
        m_copies.Expect(from.Id, to.Id);
        return EXDEV;
    }
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

/// To another disk or mount: programs copy and delete then, which can be interrupted. They do not
/// know of sidecars: what has one is moved by the library, unless it is so large that the folders
/// would be held for long.
TDiskMove TFileSystem::MoveAcross(const TInodeName& fromName, const TPlace& from, const TPlace& to,
                                  const struct stat& status, unsigned flags)
{
    constexpr off_t kMaxSize = off_t{16} << 20;
    const bool isSmallFile = S_ISREG(status.st_mode) && status.st_size <= kMaxSize;
    // A copy is another file, which what is open would not follow.
    if (!isSmallFile || m_inodes.HasHandles(fromName) ||
        !ResourceManager.ResourceMetaExists(from.Id)) {
        m_copies.Expect(from.Id, to.Id);
        return {EXDEV, false};
    }
    // An empty file keeps the name for the move: whoever else makes it fails, or this does.
    const bool mustBeNew = (flags & RENAME_NOREPLACE) != 0;
    if (mustBeNew) {
        std::unique_ptr<TFileHandle> placeholder;
        if (const int error = TFileHandle::Create(to.Id, &placeholder))
            return {error, false};
    }
    if (ResourceManager.RenMovResource(from.Id, to.Id, nullptr))
        return {0, true};
    const TQvFailure failure = TResourceManager::LastFailure();
    struct stat there = {};
    if (mustBeNew && !failure.OfMetadata && LookAt(to, &there) == 0 && there.st_size == 0)
        ResourceManager.DeleteResource(to.Id);
    return {failure.Error, failure.OfMetadata};
}

TDiskMove TFileSystem::RenameFile(const TInodeName& fromName, const TPlace& from, const TPlace& to,
                                  const struct stat& status, unsigned flags)
{
    const auto* const node = ResourceManager.GetNode4Id(from.Id, true, true, false);
    const bool isOneDisk = node == ResourceManager.GetNode4Id(to.Id, true, true, false) &&
                           status.st_dev == DeviceOf(QvExtractResPath(to.Path));
    return isOneDisk ? MoveOnDisk(from.Path, to.Path, (flags & RENAME_NOREPLACE) != 0)
                     : MoveAcross(fromName, from, to, status, flags);
}

int TFileSystem::Rename(TInode& from, const std::string& name, TInode& to,
                        const std::string& newName, unsigned flags)
{
    if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0)
        return EINVAL;
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
    const bool isFolder = S_ISDIR(status.st_mode);
    const TRenameHold hold(m_locks, m_locks.Of(&from, name), m_locks.Of(&to, newName), isFolder);
    // The ids are those under the lock: a folder above may have been renamed until then.
    if (FindPlace(from, name, &source) != 0 || FindPlace(to, newName, &target) != 0)
        return ENOENT;
    const TInodeName fromName{&from, source.Name};
    const TInodeName toName{&to, target.Name};
    TDiskMove move;
    if (isFolder) {
        move.Error = RenameFolder(source, target, &from == &to, flags);
        move.IsMoved = move.Error == 0;
    } else {
        move = RenameFile(fromName, source, target, status, flags);
    }
    if (!move.IsMoved)
        return move.Error;
    // A move whose sidecar stayed behind is a failure, but the file has its new name.
    m_inodes.Rename(fromName, toName);
    if (!isFolder && LookAt(target, &status) == 0)
        m_inodes.Identify(toName, status);
    return move.Error;
}
