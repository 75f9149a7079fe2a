// Folders: making, removing, listing.
#include "FileSystem.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <QvStd/Files.h>

#include "Identity.h"

/// A new folder keeps the set-group-id bit of its parent, which who is not in that group cannot
/// set.
static int SetMode(int folder, mode_t mode)
{
    struct stat status = {};
    if (fchmod(folder, mode) != 0 || fstat(folder, &status) != 0)
        return errno;
    if ((status.st_mode & 07777) == mode)
        return 0;
    const TServerIdentity server;
    return fchmod(folder, mode) == 0 ? 0 : errno;
}

int TFileSystem::MakeFolder(TInode& parent, const std::string& name, mode_t mode, TEntry* entry)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(parent, name, &hold, &place))
        return error == ENOENT ? EPERM : error;
    if (place.Path.empty() || parent.IsVirtual)
        return EROFS;
    // The library's own operation succeeds when the folder exists; here it must fail.
    if (const TQvResult made = QvCreateDirectory(place.Path); !made)
        return made.Error();
    const TQvDescriptor folder(
        open(place.Path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat status = {};
    if (!folder || fstat(folder.Number(), &status) != 0)
        return errno;
    const mode_t inherited = status.st_mode & S_ISGID;
    if (const int error = SetMode(folder.Number(), (mode & 07777) | inherited))
        return error;
    status.st_mode = S_IFDIR | (mode & 07777) | inherited;
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
        opened->Descriptor =
            TQvDescriptor(open(place.Path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC |
                                                       (inode.IsMountPoint ? 0 : O_NOFOLLOW)));
        if (!opened->Descriptor)
            return errno;
    }
    *folder = std::move(opened);
    return 0;
}

int TFileSystem::ReadFolder(TInode& inode, TFolderHandle& folder)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(inode, &hold, &place))
        return error;
    folder.Names.clear();
    folder.Error = folder.Descriptor ? AddDiskNames(folder) : 0;
    folder.HasAttributes = inode.HoldsMounts || m_inodes.WantsAttributes(inode);
    if (!inode.HoldsMounts)
        return 0;
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

/// Read from the disk itself: the library lists no link that leads nowhere, and looks at what the
/// others lead to, which may be this server. 0 or an errno.
int TFileSystem::AddDiskNames(TFolderHandle& folder)
{
    struct stat own = {};
    const int copy = dup(folder.Descriptor.Number());
    DIR* const entries = copy >= 0 ? fdopendir(copy) : nullptr;
    if (entries == nullptr) {
        const int error = errno;
        if (copy >= 0)
            close(copy);
        return error;
    }
    int error = fstat(copy, &own) == 0 ? 0 : errno;
    rewinddir(entries);
    while (error == 0) {
        errno = 0;
        const dirent* const entry = readdir(entries);
        if (entry == nullptr) {
            error = errno;
            break;
        }
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || IsSidecarName(name))
            continue;
        mode_t kind = DTTOIF(static_cast<mode_t>(entry->d_type));
        struct stat status = {};
        if (kind == 0 && fstatat(copy, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
            kind = status.st_mode & S_IFMT;
        // Devices and the like are no resources.
        if (kind == S_IFREG || kind == S_IFDIR || kind == S_IFLNK)
            folder.Names.push_back({name, kind, m_numbers.NumberOf(own.st_dev, entry->d_ino)});
    }
    closedir(entries);
    return error;
}

/// The kernel locks the folder while it is read, so that its names are not renamed meanwhile.
int TFileSystem::LookUpListed(TInode& inode, const TFolderHandle& folder, const std::string& name,
                              TEntry* entry)
{
    if (inode.HoldsMounts || !folder.Descriptor)
        return LookUp(inode, name, entry);
    struct stat status = {};
    if (fstatat(folder.Descriptor.Number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    TPlace place;
    place.Name = name;
    *entry = Enter(inode, place, status);
    return 0;
}
