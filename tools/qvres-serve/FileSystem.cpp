// Resolving names, and the state of their files.
#include "FileSystem.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace
{
TInode RootInode(const TMountPoints& mounts, const std::string& id, const std::string& path)
{
    TInode root;
    const TMountPoint* const mount = mounts.Find(id);
    root.HoldsMounts = mount != nullptr && mount->HoldsMounts;
    root.IsMountPoint = true; // the served folder may be a link
    root.Kind = S_IFDIR;
    root.Path = path;
    root.IsVirtual = path.empty();
    return root;
}
} // namespace

bool IsSidecarName(std::string_view name)
{
    constexpr std::size_t kLength = sizeof(kSidecarSuffix) - 1;
    return name.size() > kLength &&
           name.compare(name.size() - kLength, kLength, kSidecarSuffix) == 0;
}

TFileSystem::TFileSystem(const std::string& rootId)
    : m_mounts(ResourceManager), m_inodes(rootId, RootInode(m_mounts, rootId, PathOf(rootId)))
{
    m_virtualStatus.st_mode = S_IFDIR | 0555;
    m_virtualStatus.st_nlink = 1;
    m_virtualStatus.st_uid = geteuid();
    m_virtualStatus.st_gid = getegid();
    clock_gettime(CLOCK_REALTIME, &m_virtualStatus.st_mtim);
    m_virtualStatus.st_atim = m_virtualStatus.st_ctim = m_virtualStatus.st_mtim;
    // The disks are numbered in the order of the mount table, in each start alike.
    for (const TMountedFolder& folder : m_mounts.Folders()) {
        struct stat status = {};
        if (stat(folder.Path.c_str(), &status) == 0)
            m_numbers.Show(&status);
    }
}

/// Numbers that no disk has: they come with the top bit set.
ino_t TFileSystem::VirtualNumber(const std::string& id)
{
    constexpr ino_t kTopBit = ino_t{1} << 63;
    return kTopBit | std::hash<std::string>()(QvNormalizeResId(id));
}

/// The names of mount points compare as the tree compares them; elsewhere a name of the tree is one
/// of the disk.
int TFileSystem::FindPlace(const TInode& parent, const std::string& name, TPlace* place) const
{
    if (!m_inodes.FindId(parent, &place->Id, &place->Path))
        return ESTALE;
    if (!TResourceManager::IsValidResId("/" + name, true))
        return EINVAL;
    // Sidecars follow their resources and have no name of their own.
    if (IsSidecarName(name))
        return ENOENT;
    place->Name = name;
    if (parent.HoldsMounts) {
        place->MountPoint = m_mounts.Find(place->Id + "/" + name);
        if (place->MountPoint != nullptr) {
            place->Name = place->MountPoint->ShownName;
            place->IsMount = place->MountPoint->IsMount;
        }
    }
    place->Id.append("/").append(place->Name);
    place->Path.append("/").append(place->Name);
    // In a folder without a disk, only what is mounted has one.
    if (parent.IsVirtual && !place->IsMount)
        place->Path.clear();
    else if (parent.HoldsMounts)
        place->Path = PathOf(place->Id);
    return 0;
}

std::string TFileSystem::PathOf(const std::string& id)
{
    if (id.empty())
        return {};
    const auto* const node = ResourceManager.GetNode4Id(id, true, true, false);
    return node->IsPureVirtual() ? std::string() : node->GetResourceFile(id);
}

/// For a new name: only the library makes sidecars.
int TFileSystem::NewPlace(const TInode& parent, const std::string& name, TPlace* place) const
{
    const int error = FindPlace(parent, name, place);
    return error == ENOENT ? EPERM : error;
}

/// ESTALE for an inode without a name: the kernel then looks the name up again.
int TFileSystem::FindPlace(const TInode& inode, TPlace* place) const
{
    if (!m_inodes.FindId(inode, &place->Id, &place->Path))
        return ESTALE;
    place->Name = QvExtractResName(place->Id);
    place->IsMount = inode.IsMountPoint;
    if (inode.IsMountPoint || inode.HoldsMounts)
        place->MountPoint = m_mounts.Find(place->Id);
    if (inode.IsVirtual)
        place->Path.clear();
    return 0;
}

int TFileSystem::HoldName(TInode& parent, const std::string& name, TNameHold* hold, TPlace* place)
{
    hold->Folders = std::shared_lock<TNameLocks::TMutex>(m_locks.Folders);
    hold->Name = std::shared_lock<TNameLocks::TMutex>(m_locks.Of(&parent, name));
    return FindPlace(parent, name, place);
}

int TFileSystem::HoldName(TInode& inode, TNameHold* hold, TPlace* place)
{
    hold->Folders = std::shared_lock<TNameLocks::TMutex>(m_locks.Folders);
    TInodeName name;
    // The file may get another name until its lock is held.
    while (m_inodes.FindName(inode, &name)) {
        hold->Name = std::shared_lock<TNameLocks::TMutex>(m_locks.Of(name.Parent, name.Name));
        TInodeName again;
        if (m_inodes.FindName(inode, &again) && again == name)
            break;
        hold->Name = {};
    }
    return FindPlace(inode, place);
}

struct stat TFileSystem::VirtualStatus() const
{
    return m_virtualStatus;
}

/// Above a mount point, a link on the disk is a folder without a disk: shown as a link, it would
/// hide what is mounted below, and it is not followed here.
int TFileSystem::LookAt(const TPlace& place, struct stat* status) const
{
    const bool isAbove = place.Id.empty() || place.MountPoint != nullptr;
    const int follow = place.IsMount ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool isOnDisk =
        !place.Path.empty() && fstatat(AT_FDCWD, place.Path.c_str(), status, follow) == 0;
    if (isOnDisk && !(isAbove && S_ISLNK(status->st_mode)))
        return 0;
    if (!isOnDisk && !place.Path.empty() && (errno != ENOENT || place.IsMount))
        return errno;
    if (!isAbove)
        return ENOENT;
    *status = VirtualStatus();
    status->st_ino = VirtualNumber(place.Id);
    return 0;
}

TEntry TFileSystem::Enter(TInode& parent, const TPlace& place, const struct stat& status)
{
    TInode found;
    found.Kind = status.st_mode & S_IFMT;
    found.Device = status.st_dev;
    found.Number = status.st_ino;
    found.IsVirtual = status.st_dev == 0;
    found.IsMountPoint = place.IsMount;
    if (place.IsMount)
        found.Path = place.Path;
    found.HoldsMounts = place.MountPoint != nullptr && place.MountPoint->HoldsMounts;
    TEntry entry{&m_inodes.Enter(parent, place.Name, found), status};
    if (!found.IsVirtual)
        m_numbers.Show(&entry.Status);
    return entry;
}

int TFileSystem::LookUp(TInode& parent, const std::string& name, TEntry* entry)
{
    TNameHold hold;
    TPlace place;
    int error = HoldName(parent, name, &hold, &place);
    struct stat status = {};
    if (error == 0)
        error = LookAt(place, &status);
    if (error == 0)
        *entry = Enter(parent, place, status);
    return error;
}

/// A folder stays what it is when the disk has another one in its place.
bool TFileSystem::IsSame(const TInode& inode, const struct stat& status) const
{
    return (status.st_mode & S_IFMT) == inode.Kind &&
           (inode.Kind == S_IFDIR ||
            (status.st_dev == inode.Device && status.st_ino == inode.Number));
}
