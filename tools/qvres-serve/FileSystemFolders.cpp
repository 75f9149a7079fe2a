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
    // The library's own operation succeeds when the folder is there; here it must fail then.
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
    if (const int error = HoldName(parent, name, &hold, &place))
        return error;
    if (place.MountPoint != nullptr)
        return EBUSY;
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
            TQvDescriptor(open(place.Path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
    const auto items = make_var<std::vector<TQvResFindItem>>();
    constexpr unsigned kAll = kFindResources | kFindFolders | kFindHidden | kFindMounts;
    ResourceManager.Find(items, place.Id.empty() ? "/" : place.Id, "*", kAll, nullptr);
    folder.Error = TResourceManager::LastFailure().Error;
    folder.Names.clear();
    folder.Names.reserve(items->size());
    for (const TQvResFindItem& item : *items) {
        const TMountPoint* const mount = inode.HoldsMounts ? m_mounts.Find(item.Id) : nullptr;
        folder.Names.push_back(
            {mount != nullptr ? mount->ShownName : QvExtractResName(item.Id),
             static_cast<mode_t>(item.Attrib.Kind == kResFolder ? S_IFDIR : S_IFREG), 0});
    }
    folder.HasAttributes = inode.HoldsMounts || m_inodes.WantsAttributes(inode);
    if (!inode.HoldsMounts) {
        if (!folder.HasAttributes)
            AddNumbers(folder);
        return 0;
    }
    // Several spellings on the disk are one mount point.
    const auto isLess = [](const auto& a, const auto& b) { return a.Name < b.Name; };
    const auto isSame = [](const auto& a, const auto& b) { return a.Name == b.Name; };
    std::sort(folder.Names.begin(), folder.Names.end(), isLess);
    folder.Names.erase(std::unique(folder.Names.begin(), folder.Names.end(), isSame),
                       folder.Names.end());
    return 0;
}

/// The disk's own entries have the numbers, and which of them are links. They come in the order in
/// which the library has just listed them; one that was made or removed in between ends that.
void TFileSystem::AddNumbers(TFolderHandle& folder)
{
    struct stat own = {};
    const int copy = dup(folder.Descriptor.Number());
    DIR* const entries = copy >= 0 ? fdopendir(copy) : nullptr;
    if (entries == nullptr || fstat(copy, &own) != 0) {
        if (copy >= 0 && entries == nullptr)
            close(copy);
        return;
    }
    rewinddir(entries);
    std::size_t next = 0;
    while (const dirent* const entry = readdir(entries)) {
        if (next == folder.Names.size() || folder.Names[next].Name != entry->d_name)
            continue;
        TFolderHandle::TName& name = folder.Names[next++];
        name.Number = m_numbers.NumberOf(own.st_dev, entry->d_ino);
        if (entry->d_type == DT_LNK)
            name.Kind = S_IFLNK;
    }
    closedir(entries);
}

/// The kernel holds the folder while it is read, so that its names are not renamed meanwhile.
int TFileSystem::LookUpListed(TInode& inode, const TFolderHandle& folder, const std::string& name,
                              TEntry* entry)
{
    if (inode.HoldsMounts || !folder.Descriptor)
        return LookUp(inode, name, entry);
    struct stat status = {};
    if (fstatat(folder.Descriptor.Number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    if (S_ISLNK(status.st_mode))
        return LookUp(inode, name, entry);
    TPlace place;
    place.Name = name;
    *entry = Enter(inode, place, status);
    return 0;
}
