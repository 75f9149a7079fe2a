// The files and folders that the kernel knows, each under the name by which it was found.
//
// One TInode stands for one name with one file of the disk behind it: when another file has taken
// the name, by a rename inside or outside of the served tree, it gets a TInode of its own, and the
// old one remains without a name while it is open.
//
// Thread-safety: callable from any thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

#include <QvStd/Descriptor.h>

class TFileHandle;

struct TInode
{
    // Does not change after it was entered, except by Rename.
    bool IsVirtual = false;    ///< above the mount points: no folder of the disk
    bool IsMountPoint = false; ///< its folder may be a link, which is followed
    bool HoldsMounts = false;  ///< names in it may be mount points
    std::string Path;          ///< on the disk; of mount points alone, others lie below
    mode_t Kind = 0;           ///< S_IFDIR, S_IFREG, ...
    dev_t Device = 0;
    ino_t Number = 0;

private:
    friend class TInodes;
    TInode* Parent = nullptr; ///< null for the root, and for an inode without a name
    std::string Name;
    std::uint64_t Uses = 0; ///< references of the kernel, of names in it, and of open handles
    std::vector<TFileHandle*> Handles;
    bool IsListedByName = false; ///< without attributes, the last time
    unsigned LookUpsSince = 0;   ///< of files in it
};

struct TInodeName
{
    TInode* Parent = nullptr;
    std::string Name;

    bool operator==(const TInodeName& other) const
    {
        return Parent == other.Parent && Name == other.Name;
    }
};

class TInodes
{
public:
    /// `rootId` has no trailing "/"; "" is the whole tree.
    TInodes(std::string rootId, const TInode& root);
    ~TInodes();
    TInodes(const TInodes&) = delete;
    TInodes& operator=(const TInodes&) = delete;

    TInode& Root() { return *m_root; }
    /// False for an inode without a name.
    bool FindName(const TInode& inode, TInodeName* name) const;
    /// The id, and the path on the disk unless it is virtual. False for an inode without a name, or
    /// below such a folder.
    bool FindId(const TInode& inode, std::string* id, std::string* path) const;
    const std::string& RootId() const { return m_rootId; }

    /// The inode of a name, which is new when `found` is another file than before; used once more.
    TInode& Enter(TInode& parent, const std::string& name, const TInode& found);
    void Forget(TInode& inode, std::uint64_t uses);
    /// Whether a listing of the folder is to come with attributes. They cost more than the names,
    /// and are given for some listings after names that were listed without them were looked up.
    bool WantsAttributes(TInode& folder);
    /// The name is gone.
    void Remove(const TInodeName& name);
    void Rename(const TInodeName& from, const TInodeName& to);
    /// After a move between disks, which makes a new file.
    void Identify(const TInodeName& name, const struct stat& status);

    /// While a handle is open, its inode stays.
    void AddHandle(TInode& inode, TFileHandle& handle);
    void RemoveHandle(TInode& inode, TFileHandle& handle);
    bool HasHandles(const TInodeName& name) const;
    /// A copy of the descriptor of an open handle, of one for writing when there is one; none
    /// without a handle.
    TQvDescriptor CopyDescriptor(const TInode& inode) const;

private:
    struct TKey
    {
        const TInode* Parent;
        std::string_view Name; ///< of the inode itself
        bool operator==(const TKey& other) const
        {
            return Parent == other.Parent && Name == other.Name;
        }
    };
    struct TKeyHash
    {
        std::size_t operator()(const TKey& key) const
        {
            return std::hash<std::string_view>()(key.Name) * 31 +
                   std::hash<const void*>()(key.Parent);
        }
    };

    bool AppendId(const TInode& inode, std::string* id, std::string* path) const;
    TInode* FindNamed(const TInodeName& name) const;
    void SetName(TInode& inode, TInode& parent, const std::string& name);
    void DropName(TInode& inode);
    void NoteLookUp(TInode& folder, const TInode& found);
    void DropUses(TInode& inode, std::uint64_t uses);

    mutable std::mutex m_mutex;
    const std::string m_rootId;
    TInode* const m_root;
    std::unordered_map<TKey, TInode*, TKeyHash> m_byName;
    unsigned m_listingsWithAttributes = 0; ///< the next ones
};
