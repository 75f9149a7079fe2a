#include "nodes/RootMountNode.h"

#include <cerrno>

#include "QvStd/Message.h"
#include "QvStd/RegExp.h"
#include "module/ModuleInitializer.h"
#include "resid/ResId.h"

namespace
{
bool IsTop(const std::string& id)
{
    return id.empty() || id == "/";
}

TQvResAttrib RootFolderAttrib()
{
    TQvResAttrib attrib;
    attrib.Kind = kResFolder;
    attrib.Origin = kOriginRootNode;
    return attrib;
}
} // namespace

TRootMountNode::TRootMountNode(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes)
    : TMountNode("")
{
    for (const auto& node : nodes)
        AddFolders(node->MountPointId());
}

void TRootMountNode::AddFolders(std::string id)
{
    while (!id.empty()) {
        const std::size_t slash = id.rfind('/');
        if (slash == std::string::npos)
            break; // not absolute: no id ever leads there
        m_folders.emplace(QvNormalizeResId(id),
                          id.substr(slash)); // the first spelling in the table is the one shown
        id.resize(slash);
    }
}

void TRootMountNode::RenameFolderE(const std::string& src, const std::string&, TQvResult* result)
{
    if (result != nullptr)
        *result = ReadOnly(src);
    throw TQvMessage(QvResourceString("global.ErrNotSupported"));
}

/// There are only folders here, and nothing can be put beside them.
TQvResult TRootMountNode::NoResource(const std::string& id) const
{
    return ResourceExists(id) == kResFolder ? TQvResult::Failed(EISDIR, id)
                                            : TQvResult::Nothing(id);
}

TQvResult TRootMountNode::ReadOnly(const std::string& id) const
{
    return TQvResult::Failed(EROFS, id);
}

TQvExistence TRootMountNode::ResourceExists(const std::string& id) const
{
    const bool exists = id == "/" ? !m_folders.empty() : m_folders.count(QvNormalizeResId(id)) != 0;
    if (exists)
        return {kResFolder, TQvResult::Done()};
    return {kResNothing, TQvResult::Nothing(id)};
}

TQvResult TRootMountNode::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    if (attrib == nullptr)
        return TQvResult::Failed(EINVAL, id);
    if (!IsTop(id) && m_folders.count(QvNormalizeResId(id)) == 0)
        return TQvResult::Nothing(id);
    *attrib = RootFolderAttrib();
    return TQvResult::Done();
}

TQvResult TRootMountNode::Find(const var_a<std::vector<TQvResFindItem>*>& items,
                               const std::string& folder, const std::string& mask, unsigned flags,
                               TQvProgressHandler* progress) const
{
    if ((flags & kFindFolders) == 0)
        return TQvResult::Nothing();
    const std::string shownFolder = IsTop(folder) ? std::string() : QvExcludeTrailingSlash(folder);
    const std::string prefix = QvNormalizeResId(shownFolder) + "/";

    const bool all = mask == "*" || mask == "*.*";
    CRegExp expression;
    if (!all)
        expression.SetExpr(QvResSearchMaskToRegExpPattern(
            mask)); // one that is no valid expression matches nothing
    static SMatches matches;

    bool found = false;
    for (auto folderIt = m_folders.lower_bound(prefix);
         folderIt != m_folders.end() && folderIt->first.compare(0, prefix.size(), prefix) == 0;
         ++folderIt) {
        const std::string& key = folderIt->first;
        QvPollProgress(progress);
        if (key.size() == prefix.size() || key.find('/', prefix.size()) != std::string::npos)
            continue; // deeper than a direct child
        if (!all && !expression.Parse(key.substr(prefix.size()), &matches))
            continue;
        found = true;
        if (!items)
            break;
        items->push_back({shownFolder + folderIt->second, RootFolderAttrib()});
    }
    return found ? TQvResult::Done() : TQvResult::Nothing();
}

var_a<TQvLockFile*> TRootMountNode::CreateLockFile(const std::string&, unsigned long, bool,
                                                   const std::string&)
{
    throw TQvMessage("CreateLockFile shouldn't be invoked for TRootMountNode");
}
