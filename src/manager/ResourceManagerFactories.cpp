// The kinds of nodes that there are, and the scheme of the resources' URLs.
#include "QvStd/URLManager.h"
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

void TResourceManager::RegisterURLScheme()
{
    QvURLManager.RegisterSchemeHandler("qvres", make_var<TQvURLResourceHandler>());
}
