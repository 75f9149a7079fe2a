// Attributes of files and folders, and the extended attributes of the tree.
#include "FileSystem.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "Identity.h"

namespace
{
/// "../" for each folder from `id` up to the root of the tree.
std::string WayUp(const std::string& id)
{
    std::string way;
    for (std::size_t slash = id.find('/', 1); slash != std::string::npos;
         slash = id.find('/', slash + 1))
        way += "../";
    return way;
}

bool IsInside(const std::string& path, const std::string& folder)
{
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

/// Whether a relative link text leads out of the folder `depth` levels above that of the link.
bool Climbs(const std::string& text, std::ptrdiff_t depth)
{
    for (const std::filesystem::path& part : std::filesystem::path(text)) {
        depth += part == ".." ? -1 : part == "." || part.empty() ? 0 : 1;
        if (depth < 0)
            return true;
    }
    return false;
}

/// Of any length.
int ReadLinkText(const std::string& path, std::string* text)
{
    constexpr std::size_t kLongest = 4096;
    text->resize(kLongest);
    const ssize_t size = readlink(path.c_str(), text->data(), text->size());
    text->resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return size > 0 ? 0 : errno;
}

int Result(int result)
{
    return result == 0 ? 0 : errno;
}

/// Owners cannot be changed: setting the present owner succeeds.
int RequireOwner(const TChange& change, const struct stat& status)
{
    const bool isSame = (change.User == static_cast<uid_t>(-1) || change.User == status.st_uid) &&
                        (change.Group == static_cast<gid_t>(-1) || change.Group == status.st_gid);
    return isSame ? 0 : EPERM;
}
} // namespace

int TFileSystem::GetStatus(TInode& inode, TFileHandle* handle, struct stat* status)
{
    int error = 0;
    if (handle != nullptr) {
        error = Result(fstat(handle->Descriptor(), status));
    } else {
        TNameHold hold;
        TPlace place;
        error = HoldName(inode, &hold, &place);
        if (error == 0)
            error = LookAt(place, status);
        // Its name is gone or names another file: the file lives on while it is open.
        const bool isLost =
            error == ENOENT || error == ESTALE || (error == 0 && !IsSame(inode, *status));
        if (isLost) {
            const TQvDescriptor open = m_inodes.CopyDescriptor(inode);
            error = open ? Result(fstat(open.Number(), status)) : ESTALE;
        }
    }
    if (error == 0 && status->st_dev != 0)
        m_numbers.Show(status);
    return error;
}

/// Writing takes the set-user-id and set-group-id bits off, whoever writes.
static int SetMode(int descriptor, mode_t mode)
{
    constexpr mode_t kSetIds = S_ISUID | S_ISGID;
    struct stat status = {};
    if (fchmod(descriptor, mode) == 0)
        return 0;
    const int error = errno;
    if (error != EPERM || fstat(descriptor, &status) != 0 ||
        (status.st_mode & 07777 & ~kSetIds) != (mode & ~kSetIds) ||
        (mode & kSetIds & ~status.st_mode) != 0)
        return error;
    const TServerIdentity server;
    return Result(fchmod(descriptor, mode));
}

/// On an open file, which may have no name any more.
static int ChangeOpen(int descriptor, const TChange& change)
{
    int error = 0;
    struct stat status = {};
    if (change.HasOwner) {
        error = Result(fstat(descriptor, &status));
        if (error == 0)
            error = RequireOwner(change, status);
    }
    if (error == 0 && change.HasSize)
        error = Result(QvRetryInterrupted([&] { return ftruncate(descriptor, change.Size); }));
    if (error == 0 && change.HasMode)
        error = SetMode(descriptor, change.Mode);
    if (error == 0 && change.HasTimes)
        error = Result(futimens(descriptor, change.Times));
    return error;
}

/// `status` is that of the place.
int TFileSystem::ChangeAt(const TPlace& place, const struct stat& status, const TChange& change)
{
    int error = status.st_dev == 0 ? EROFS : 0; // above the mount points
    if (error == 0 && change.HasOwner)
        error = RequireOwner(change, status);
    // Through the library, which respects the file's other openers.
    std::unique_ptr<TFileHandle> handle;
    if (error == 0 && change.HasSize) {
        error = TFileHandle::Open(place.Id, O_WRONLY, &handle);
        if (error == 0)
            error = handle->Truncate(change.Size);
        if (error == 0)
            error = handle->Close();
    }
    const char* const path = place.Path.c_str();
    const bool isLink = S_ISLNK(status.st_mode);
    if (error == 0 && change.HasMode)
        error = isLink ? ENOTSUP : Result(chmod(path, change.Mode));
    if (error == 0 && change.HasTimes)
        error = Result(utimensat(AT_FDCWD, path, change.Times, isLink ? AT_SYMLINK_NOFOLLOW : 0));
    return error;
}

int TFileSystem::Change(TInode& inode, TFileHandle* handle, const TChange& change,
                        struct stat* status)
{
    int error = 0;
    if (handle != nullptr && (handle->IsWritable() || !change.HasSize)) {
        error = ChangeOpen(handle->Descriptor(), change);
    } else {
        TNameHold hold;
        TPlace place;
        error = HoldName(inode, &hold, &place);
        struct stat now = {};
        if (error == 0)
            error = LookAt(place, &now);
        if (error == 0 && !IsSame(inode, now))
            error = ESTALE;
        if (error == 0)
            error = ChangeAt(place, now, change);
        const bool isModeAlone = !change.HasOwner && !change.HasSize && !change.HasTimes;
        if (error == ENOENT || error == ESTALE || (error == EPERM && isModeAlone))
            if (const TQvDescriptor open = m_inodes.CopyDescriptor(inode))
                error = ChangeOpen(open.Number(), change);
    }
    return error != 0 ? error : GetStatus(inode, handle, status);
}

/// A relative link that stays in its mount has the text of the disk. Any other one into a mounted
/// folder leads to the same place of the served tree, and the rest where it leads on the disk, so
/// that the caller follows it with its own rights. No link is followed here: it may lead into the
/// served folder, and the server would wait for itself.
int TFileSystem::ReadLink(TInode& inode, std::string* target)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    if (const int error = ReadLinkText(place.Path, target))
        return error;
    const std::string& rootId = m_inodes.RootId();
    const auto* const node = ResourceManager.GetNode4Id(place.Id, true, true, false);
    const std::string& mountId = node->MountPointId();
    const std::size_t top = std::max(mountId.size(), rootId.size()) + 1;
    const auto depth =
        std::count(place.Id.begin() + static_cast<std::ptrdiff_t>(top), place.Id.end(), '/');
    if (target->front() != '/') {
        if (!Climbs(*target, depth))
            return 0;
        target->insert(0, QvExtractResPath(place.Path));
    }
    const std::string plain = std::filesystem::path(*target).lexically_normal().string();
    for (const TMountedFolder& folder : m_mounts.Folders())
        for (const std::string& path : {folder.Path, folder.RealPath}) {
            if (!IsInside(plain, path))
                continue;
            const std::string id = folder.Id + plain.substr(path.size());
            if (!IsInside(id, rootId))
                continue;
            *target = WayUp(place.Id.substr(rootId.size()));
            if (id.size() > rootId.size())
                target->append(id, rootId.size() + 1);
            if (target->empty())
                *target = ".";
            return 0;
        }
    return 0;
}

int TFileSystem::GetSpace(TInode& inode, struct statvfs* space)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    if (!inode.IsVirtual) {
        const bool isLink = inode.Kind == S_IFLNK;
        const std::string path = isLink ? QvExtractResPath(place.Path) : place.Path;
        return Result(statvfs(path.c_str(), space));
    }
    // Nothing can be written above the mount points.
    *space = {};
    space->f_bsize = space->f_frsize = 4096;
    space->f_namemax = 255;
    return 0;
}

/// ENODATA where the tree knows nothing.
static int AskTree(const std::string& id, const std::string& what, std::string* value)
{
    TQvResAttrib attrib;
    TQvResourceLabel label;
    bool isKnown = false;
    if (what == "size" || what == "time")
        isKnown = ResourceManager.GetResourceAttr(id, &attrib);
    else if (what == "crc")
        isKnown = ReadResResourceLabel(id, &label);
    else
        return ENODATA;
    if (!isKnown) {
        const int failure = TResourceManager::LastFailure().Error;
        const bool hasNoLabel = failure == 0 || (what == "crc" && failure == ENOENT);
        return hasNoLabel ? ENODATA : failure;
    }
    *value = what == "size"   ? std::to_string(attrib.Size)
             : what == "time" ? std::to_string(attrib.UpdateTime.Milliseconds())
                              : std::to_string(label.CRC);
    return 0;
}

int TFileSystem::GetExtended(TInode& inode, const std::string& name, std::string* value)
{
    constexpr char kPrefix[] = "user.qvres.";
    constexpr std::size_t kLength = sizeof(kPrefix) - 1;
    // Others are not kept. The kernel asks for some of them with each write.
    if (name.compare(0, kLength, kPrefix) != 0)
        return ENODATA;
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    const std::string what = name.substr(kLength);
    const std::string id = place.Id.empty() ? "/" : place.Id;
    if (what == "server" && &inode == &m_inodes.Root())
        *value = std::to_string(getpid());
    else if (what == "id")
        *value = id;
    else if (what == "file" && !inode.IsVirtual)
        *value = place.Path;
    else
        return AskTree(id, what, value);
    return 0;
}
