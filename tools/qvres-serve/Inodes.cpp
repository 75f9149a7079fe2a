#include "Inodes.h"

#include <algorithm>
#include <cassert>
#include <fcntl.h>

#include "FileHandle.h"

using TLock = std::lock_guard<std::mutex>;

TInodes::TInodes(std::string rootId, const TInode& root)
    : m_rootId(std::move(rootId)), m_root(new TInode(root))
{
    m_root->Uses = 1; // the kernel never forgets it
    // Each step along a chain waits for memory: short chains are worth their room.
    m_byName.max_load_factor(0.5F);
}

TInodes::~TInodes()
{
    for (const auto& entry : m_byName)
        delete entry.second;
    delete m_root;
}

bool TInodes::AppendId(const TInode& inode, std::string* id, std::string* path) const
{
    if (&inode == m_root) {
        *id = m_rootId;
        *path = inode.Path;
        return true;
    }
    if (inode.Parent == nullptr || !AppendId(*inode.Parent, id, path))
        return false;
    id->append("/").append(inode.Name);
    if (inode.IsMountPoint)
        *path = inode.Path;
    else
        path->append("/").append(inode.Name);
    return true;
}

bool TInodes::FindId(const TInode& inode, std::string* id, std::string* path) const
{
    const TLock lock(m_mutex);
    return AppendId(inode, id, path);
}

bool TInodes::FindName(const TInode& inode, TInodeName* name) const
{
    const TLock lock(m_mutex);
    if (inode.Parent == nullptr)
        return false;
    *name = {inode.Parent, inode.Name};
    return true;
}

TInode* TInodes::FindNamed(const TInodeName& name) const
{
    const auto found = m_byName.find({name.Parent, name.Name});
    return found == m_byName.end() ? nullptr : found->second;
}

TInode& TInodes::Enter(TInode& parent, const std::string& name, const TInode& found)
{
    const TLock lock(m_mutex);
    TInode* known = FindNamed({&parent, name});
    if (known != nullptr && (known->Device != found.Device || known->Number != found.Number ||
                             known->Kind != found.Kind)) {
        DropName(*known);
        known = nullptr;
    }
    if (known == nullptr) {
        known = new TInode(found);
        SetName(*known, parent, name);
    }
    ++known->Uses;
    NoteLookUp(parent, *known);
    return *known;
}

void TInodes::NoteLookUp(TInode& folder, const TInode& found)
{
    // Tools that only need the names still look up the sub-folders.
    if (!folder.IsListedByName || found.Kind == S_IFDIR)
        return;
    constexpr unsigned kEnough = 8;
    constexpr unsigned kListings = 32;
    if (++folder.LookUpsSince == kEnough)
        m_listingsWithAttributes = kListings;
}

bool TInodes::WantsAttributes(TInode& folder)
{
    const TLock lock(m_mutex);
    const bool wants = m_listingsWithAttributes > 0;
    m_listingsWithAttributes -= wants ? 1 : 0;
    folder.IsListedByName = !wants;
    folder.LookUpsSince = 0;
    return wants;
}

void TInodes::SetName(TInode& inode, TInode& parent, const std::string& name)
{
    inode.Parent = &parent;
    inode.Name = name;
    ++parent.Uses;
    m_byName.emplace(TKey{&parent, inode.Name}, &inode);
}

/// The inode has uses left, or is deleted by its caller.
void TInodes::DropName(TInode& inode)
{
    TInode* const parent = inode.Parent;
    if (parent == nullptr)
        return;
    m_byName.erase({parent, inode.Name});
    inode.Parent = nullptr;
    DropUses(*parent, 1);
}

void TInodes::DropUses(TInode& inode, std::uint64_t uses)
{
    assert(inode.Uses >= uses);
    inode.Uses -= uses;
    if (inode.Uses != 0 || &inode == m_root)
        return;
    DropName(inode);
    delete &inode;
}

void TInodes::Forget(TInode& inode, std::uint64_t uses)
{
    const TLock lock(m_mutex);
    if (&inode != m_root)
        DropUses(inode, uses);
}

void TInodes::Remove(const TInodeName& name)
{
    const TLock lock(m_mutex);
    if (TInode* const inode = FindNamed(name))
        DropName(*inode);
}

void TInodes::Rename(const TInodeName& from, const TInodeName& to)
{
    const TLock lock(m_mutex);
    TInode* const inode = FindNamed(from);
    TInode* const replaced = FindNamed(to);
    if (replaced != nullptr && replaced != inode)
        DropName(*replaced);
    if (inode == nullptr || replaced == inode)
        return;
    DropName(*inode);
    SetName(*inode, *to.Parent, to.Name);
}

void TInodes::Identify(const TInodeName& name, const struct stat& status)
{
    const TLock lock(m_mutex);
    if (TInode* const inode = FindNamed(name)) {
        inode->Device = status.st_dev;
        inode->Number = status.st_ino;
    }
}

void TInodes::AddHandle(TInode& inode, TFileHandle& handle)
{
    const TLock lock(m_mutex);
    inode.Handles.push_back(&handle);
    ++inode.Uses;
}

void TInodes::RemoveHandle(TInode& inode, TFileHandle& handle)
{
    const TLock lock(m_mutex);
    auto& handles = inode.Handles;
    handles.erase(std::find(handles.begin(), handles.end(), &handle));
    DropUses(inode, 1);
}

bool TInodes::HasHandles(const TInodeName& name) const
{
    const TLock lock(m_mutex);
    const TInode* const inode = FindNamed(name);
    return inode != nullptr && !inode->Handles.empty();
}

TQvDescriptor TInodes::CopyDescriptor(const TInode& inode) const
{
    const TLock lock(m_mutex);
    const auto& handles = inode.Handles;
    auto found = std::find_if(handles.begin(), handles.end(),
                              [](const TFileHandle* handle) { return handle->IsWritable(); });
    if (found == handles.end())
        found = handles.begin();
    return TQvDescriptor(
        found == handles.end() ? -1 : fcntl((*found)->Descriptor(), F_DUPFD_CLOEXEC, 0));
}
