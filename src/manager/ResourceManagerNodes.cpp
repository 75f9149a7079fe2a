// The nodes of the mount table: which kinds there are, how they come into the table and leave it.
// And the scheme of the resources' URLs.
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

/// The root node stays the last one, and knows of the new node.
void TResourceManager::AddToTable(var_a<TMountNode*> node)
{
    TMountFolders folders = TakeRootNode();
    folders.Add(node->MountPointId());
    AppendNode(std::move(node));
    AppendNode(make_var<TRootMountNode>(std::move(folders)));
}

void TResourceManager::RemoveFromTable(std::uint32_t place)
{
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
