// The nodes of the mount table: their kinds, adding and removing them. Also registers the URL
// scheme of the resources.
#include <cassert>

#include "QvStd/URLManager.h"
#include "manager/MountIndex.h"
#include "manager/ResourceManager.h"
#include "nodes/FileMountNode.h"
#include "nodes/RootMountNode.h"
#include "url/URLResourceHandler.h"

var_a<TResourceManager::TMountNode*>
TResourceManager::LoadFileMountNode(const TQvResourceProfile::TNode& node) const
{
    return LoadFileMountNode(node.Name, node.Path);
}

var_a<TResourceManager::TMountNode*> TResourceManager::LoadFileMountNode(const std::string& id,
                                                                         const TQvPath& path) const
{
    return make_var<TFileMountNode>(id, path);
}

var_a<TResourceManager::TMountNode*> TResourceManager::LoadRootMountNode() const
{
    return make_var<TRootMountNode>(m_mountNodes);
}

void TResourceManager::AppendNode(var_a<TMountNode*> node)
{
    assert(node);
    m_mountNodes.push_back(std::move(node));
    m_mountIndex->Add(m_mountNodes.back()->MountPointId());
    assert(m_mountIndex->Lengths().size() == m_mountNodes.size());
}

void TResourceManager::RemoveNode(std::uint32_t place)
{
    assert(place < m_mountNodes.size());
    const bool isRemoved = m_mountIndex->Remove(place, m_mountNodes[place]->MountPointId());
    m_mountNodes.erase(m_mountNodes.begin() + static_cast<std::ptrdiff_t>(place));
    if (!isRemoved)
        RefreshNodeMaps();
}

/// Removes the root node, always the last one, from the table; the next one reuses its folders.
TMountFolders TResourceManager::TakeRootNode()
{
    if (m_mountNodes.empty() || m_mountNodes.back()->Type() != kRootNode)
        return TMountFolders(m_mountNodes);
    assert(dynamic_cast<TRootMountNode*>(m_mountNodes.back().get()) != nullptr);
    const auto root = std::static_pointer_cast<TRootMountNode>(m_mountNodes.back());
    RemoveNode(static_cast<std::uint32_t>(m_mountNodes.size() - 1));
    // A root node with other owners never changes.
    return root.use_count() == 1 ? root->TakeFolders() : root->Folders();
}

/// The new root node, the last one again, includes the mount point of the new node.
void TResourceManager::AddToTable(var_a<TMountNode*> node)
{
    TMountFolders folders = TakeRootNode();
    folders.Add(node->MountPointId());
    AppendNode(std::move(node));
    AppendNode(make_var<TRootMountNode>(std::move(folders)));
}

void TResourceManager::RemoveFromTable(std::uint32_t place)
{
    assert(place < m_mountNodes.size());
    const var_a<TMountNode*> removed = m_mountNodes[place];
    TMountFolders folders = TakeRootNode();
    if (removed->Type() != kRootNode) {
        RemoveNode(place);
        if (!folders.Remove(removed->MountPointId()))
            folders = TMountFolders(m_mountNodes);
    }
    AppendNode(make_var<TRootMountNode>(std::move(folders)));
}

void TResourceManager::RegisterURLScheme()
{
    QvURLManager.RegisterSchemeHandler("qvres", make_var<TQvURLResourceHandler>());
}
