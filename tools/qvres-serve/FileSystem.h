// The tree as a file system: the kernel's requests as operations of the library.
//
// Contents, sidecars and share modes go through the library. What the tree does not have
// (permission bits, owners, exact times, space, links) is read and set on the disk file that the
// tree names for an id. Names are listed and renamed there, too: the library looks at what links
// lead to, which may be this server.
//
// Every operation answers 0 or an errno. Thread-safety: callable from any thread; during disk
// operations only the names in use are locked.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <sys/statvfs.h>

#include <QvServices/QvServices.h>
#include <QvStd/FolderReader.h>

#include "AwaitedCopies.h"
#include "DiskMove.h"
#include "FileHandle.h"
#include "FileNumbers.h"
#include "Inodes.h"
#include "MountPoints.h"
#include "NameLocks.h"

/// The result of a lookup.
struct TEntry
{
    TInode* Inode = nullptr; ///< used once more; null for a name that is no valid id
    struct stat Status = {};
};

/// What of a file is to be set.
struct TChange
{
    bool HasMode = false;
    bool HasOwner = false;
    bool HasSize = false;
    bool HasTimes = false;
    mode_t Mode = 0;
    uid_t User = static_cast<uid_t>(-1); ///< -1: as it is
    gid_t Group = static_cast<gid_t>(-1);
    off_t Size = 0;
    timespec Times[2] = {}; ///< of access and change, as for utimensat
};

/// An open folder: its entries as they were when it was read from its start.
class TFolderHandle
{
public:
    struct TName
    {
        std::string Name;
        mode_t Kind;
        ino_t Number; ///< as it is shown; 0 for an unknown one
    };

    TQvFolderReader Reader; ///< nothing is open above the mount points
    std::mutex Mutex;       ///< of what is read, and of all below
    std::vector<TName> Names;
    bool HasAttributes = false; ///< to be given with the names
    int Error = 0;              ///< the first error of the listing
};

/// Sidecars follow their resources and have no name of their own.
bool IsSidecarName(std::string_view name);

class TFileSystem
{
public:
    /// Shows what lies below `rootId`, an id without a trailing "/"; "" is the whole tree.
    explicit TFileSystem(const std::string& rootId);

    TInode& Root() { return m_inodes.Root(); }

    // Names
    int LookUp(TInode& parent, const std::string& name, TEntry* entry);
    void Forget(TInode& inode, std::uint64_t count) { m_inodes.Forget(inode, count); }
    int Create(TInode& parent, const std::string& name, mode_t mode, int flags, TEntry* entry,
               TFileHandle** handle);
    int MakeFolder(TInode& parent, const std::string& name, mode_t mode, TEntry* entry);
    int Unlink(TInode& parent, const std::string& name);
    int RemoveFolder(TInode& parent, const std::string& name);
    int Rename(TInode& from, const std::string& name, TInode& to, const std::string& newName,
               unsigned flags);

    // Attributes; `handle` may be null
    int GetStatus(TInode& inode, TFileHandle* handle, struct stat* status);
    int Change(TInode& inode, TFileHandle* handle, const TChange& change, struct stat* status);
    int ReadLink(TInode& inode, std::string* target);
    int GetSpace(TInode& inode, struct statvfs* space);
    int GetExtended(TInode& inode, const std::string& name, std::string* value);

    // Files
    int Open(TInode& inode, int flags, TFileHandle** handle);
    int Close(TInode& inode, TFileHandle* handle);
    /// At the end: flushes what was opened for writing and closes everything. The first failure.
    int CloseAll();

    // Folders
    int OpenFolder(TInode& inode, std::unique_ptr<TFolderHandle>* folder);
    int ReadFolder(TInode& inode, TFolderHandle& folder);
    int LookUpListed(TInode& inode, const TFolderHandle& folder, const std::string& name,
                     TEntry* entry);

private:
    /// The id and the disk path of a name.
    struct TPlace
    {
        std::string Id;
        std::string Path; ///< on the disk; "" above the mount points
        std::string Name; ///< as it is shown
        const TMountPoint* MountPoint = nullptr;
        bool IsMount = false; ///< a link here stands for its target folder
    };

    static std::string PathOf(const std::string& id);
    int FindPlace(const TInode& parent, const std::string& name, TPlace* place) const;
    int FindPlace(const TInode& inode, TPlace* place) const;
    int NewPlace(const TInode& parent, const std::string& name, TPlace* place) const;
    int HoldName(TInode& parent, const std::string& name, TNameHold* hold, TPlace* place);
    int HoldName(TInode& inode, TNameHold* hold, TPlace* place);
    /// As HoldName; EBUSY for a mount point.
    int HoldToRemove(TInode& parent, const std::string& name, TNameHold* hold, TPlace* place);
    int LookAt(const TPlace& place, struct stat* status) const;
    TEntry Enter(TInode& parent, const TPlace& place, const struct stat& status);
    bool IsSame(const TInode& inode, const struct stat& status) const;
    struct stat VirtualStatus() const;
    static ino_t VirtualNumber(const std::string& id);

    static int ChangeAt(const TPlace& place, const struct stat& status, const TChange& change);
    int Keep(TInode& inode, std::unique_ptr<TFileHandle> opened, TFileHandle** handle);
    int AddDiskNames(TFolderHandle& folder);
    int AddMountPoints(TInode& inode, TFolderHandle& folder);
    int RenameFolder(const TPlace& from, const TPlace& to, bool isSameParent, unsigned flags);
    TDiskMove RenameFile(const TInodeName& fromName, const TPlace& from, const TPlace& to,
                         const struct stat& status, unsigned flags);
    int CarrySidecar(const TPlace& place);
    TDiskMove MoveAcross(const TInodeName& fromName, const TPlace& from, const TPlace& to,
                         const struct stat& status, unsigned flags);

    TMountPoints m_mounts;
    TFileNumbers m_numbers;
    struct stat m_virtualStatus = {};
    TInodes m_inodes;
    TNameLocks m_locks;
    TAwaitedCopies m_copies;
    std::mutex m_handlesMutex;
    std::set<TFileHandle*> m_handles;
};
