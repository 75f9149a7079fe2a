// Folders: making, removing, listing.
#include "FileSystem.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Identity.h"

/// A new folder keeps the set-group-id bit of its parent, which who is not in that group cannot
/// set. A disk without such bits refuses them (EPERM), and the folder has those of the disk.
static int SetMode(int folder, mode_t mode, struct stat* status)
{
    const auto set = [&] {
        return (fchmod(folder, mode) == 0 || errno == EPERM) && fstat(folder, status) == 0;
    };
    if (!set())
        return errno;
    // Another user's folder, which was moved here meanwhile, keeps its bits.
    if ((status->st_mode & 07777) == mode || status->st_uid != ActingUser())
        return 0;
    const TServerIdentity server;
    return set() ? 0 : errno;
}

int TFileSystem::MakeFolder(TInode& parent, const std::string& name, mode_t mode, TEntry* entry)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(parent, name, &hold, &place))
        return error == ENOENT ? EPERM : error;
    if (place.Path.empty() || parent.IsVirtual)
        return EROFS;
    // The library's own operation succeeds when the folder exists; here it must fail. The path is
    // followed once: a link that takes the place of a folder meanwhile leads to no other one.
    const TQvDescriptor above(
        open(QvExtractResPath(place.Path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string diskName = QvExtractResName(place.Path);
    if (!above || mkdirat(above.Number(), diskName.c_str(), 0777) != 0)
        return errno;
    const TQvDescriptor folder(
        openat(above.Number(), diskName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat status = {};
    if (!folder || fstat(folder.Number(), &status) != 0)
        return errno;
    const mode_t inherited = status.st_mode & S_ISGID;
    if (const int error = SetMode(folder.Number(), (mode & 07777) | inherited, &status))
        return error;
    *entry = Enter(parent, place, status);
    return 0;
}

int TFileSystem::RemoveFolder(TInode& parent, const std::string& name)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldToRemove(parent, name, &hold, &place))
        return error;
    if (!ResourceManager.DeleteFolder(place.Id, false, nullptr))
        return TResourceManager::LastFailure().Error;
    m_copies.Forget(place.Id);
    m_inodes.Remove({&parent, place.Name});
    return 0;
}

int TFileSystem::OpenFolder(TInode& inode, std::unique_ptr<TFolderHandle>* folder)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    auto opened = std::make_unique<TFolderHandle>();
    if (!inode.IsVirtual) {
        const TQvResult result =
            opened->Reader.OpenAt(AT_FDCWD, place.Path.c_str(), inode.IsMountPoint);
        if (!result)
            return result.Error();
    }
    *folder = std::move(opened);
    return 0;
}

int TFileSystem::ReadFolder(TInode& inode, TFolderHandle& folder)
{
    folder.Names.clear();
    folder.Error = folder.Reader ? AddDiskNames(folder) : 0;
    folder.HasAttributes = inode.HoldsMounts || m_inodes.WantsAttributes(inode);
    return inode.HoldsMounts ? AddMountPoints(inode, folder) : 0;
}

int TFileSystem::AddMountPoints(TInode& inode, TFolderHandle& folder)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    // Several spellings on the disk are one mount point.
    for (TFolderHandle::TName& name : folder.Names)
        if (const TMountPoint* const mount = m_mounts.Find(place.Id + "/" + name.Name))
            name.Name = mount->ShownName;
    for (std::string& name : m_mounts.NamesIn(place.Id))
        folder.Names.push_back({std::move(name), S_IFDIR, 0});
    const auto isLess = [](const auto& a, const auto& b) { return a.Name < b.Name; };
    const auto isSame = [](const auto& a, const auto& b) { return a.Name == b.Name; };
    std::sort(folder.Names.begin(), folder.Names.end(), isLess);
    folder.Names.erase(std::unique(folder.Names.begin(), folder.Names.end(), isSame),
                       folder.Names.end());
    return 0;
}

/// The kind of an entry: 0 for an unknown one, S_IFMT for one that is gone.
static mode_t KindOf(int folder, const TQvFolderEntry& entry)
{
    if (entry.Type != DT_UNKNOWN)
        return DTTOIF(static_cast<mode_t>(entry.Type));
    struct stat status = {};
    if (fstatat(folder, entry.Name.data(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return status.st_mode & S_IFMT;
    return errno == ENOENT ? S_IFMT : 0;
}

/// Read from the disk itself: the library lists no link that leads nowhere, and looks at what the
/// others lead to, which may be this server. 0 or an errno.
int TFileSystem::AddDiskNames(TFolderHandle& folder)
{
    TQvFolderReader& reader = folder.Reader;
    struct stat own = {};
    if (fstat(reader.Descriptor(), &own) != 0)
        return errno;
    if (const TQvResult result = reader.Rewind(); !result)
        return result.Error();
    constexpr std::size_t kUsual = 64;
    folder.Names.reserve(kUsual);
    const ino_t ofDisk = m_numbers.MarkOf(own.st_dev);
    TQvFolderEntry entry;
    while (reader.Next(&entry)) {
        if (IsSidecarName(entry.Name))
            continue;
        const mode_t kind = KindOf(reader.Descriptor(), entry);
        // Devices and the like are no resources.
        if (kind == S_IFREG || kind == S_IFDIR || kind == S_IFLNK || kind == 0)
            folder.Names.push_back({std::string(entry.Name), kind, entry.Number ^ ofDisk});
    }
    return reader.Result().Error();
}

/// The kernel locks the folder while it is read, so that its names are not renamed meanwhile.
int TFileSystem::LookUpListed(TInode& inode, const TFolderHandle& folder, const std::string& name,
                              TEntry* entry)
{
    if (inode.HoldsMounts || !folder.Reader)
        return LookUp(inode, name, entry);
    // Found here, it could be used.
    if (!TResourceManager::IsValidResId("/" + name, true))
        return EINVAL;
    struct stat status = {};
    if (fstatat(folder.Reader.Descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    TPlace place;
    place.Name = name;
    *entry = Enter(inode, place, status);
    return 0;
}
