#include "nodes/RootMountNode.h"

#include <cassert>
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

/// Calls `visit(id, name)` for a mount point and each folder above it, the deepest first, until it
/// answers false; whether all answered true.
template <class TVisit>
bool VisitFoldersUpFrom(std::string id, const TVisit& visit)
{
    while (!id.empty()) {
        const std::size_t slash = id.rfind('/');
        if (slash == std::string::npos)
            break; // not absolute: no id can name it
        if (!visit(QvNormalizeResId(id), id.substr(slash)))
            return false;
        id.resize(slash);
    }
    return true;
}
} // namespace

TMountFolders::TMountFolders(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes)
{
    for (const auto& node : nodes)
        Add(node->MountPointId());
}

void TMountFolders::Add(const std::string& mountPoint)
{
    VisitFoldersUpFrom(mountPoint, [this](std::string&& normalId, std::string&& name) {
        // the first spelling in the table is the one shown
        const auto [entry, isNew] = m_folders.try_emplace(std::move(normalId));
        TFolder& folder = entry->second;
        if (isNew) {
            folder.Name = std::move(name);
        } else {
            ++folder.MountPoints;
            folder.IsNameOfAll = folder.IsNameOfAll && folder.Name == name;
        }
        return true;
    });
}

/// Only counts: the name that is shown is that of the first mount point in the table, so that it is
/// known after a removal when one mount point had the folder, or all spelled it alike.
bool TMountFolders::Remove(const std::string& mountPoint)
{
    const auto isKnown = [this](const std::string& normalId, const std::string&) {
        const TFolder& folder = m_folders.at(normalId);
        return folder.MountPoints == 1 || folder.IsNameOfAll;
    };
    if (!VisitFoldersUpFrom(mountPoint, isKnown))
        return false;
    return VisitFoldersUpFrom(mountPoint, [this](const std::string& normalId, const std::string&) {
        const auto entry = m_folders.find(normalId);
        assert(entry != m_folders.end() && entry->second.MountPoints > 0);
        if (--entry->second.MountPoints == 0)
            m_folders.erase(entry);
        return true;
    });
}

void TRootMountNode::RenameFolderE(const std::string& src, const std::string&, TQvResult* result)
{
    if (result != nullptr)
        *result = ReadOnly(src);
    throw TQvMessage(QvResourceString("global.ErrNotSupported"));
}

/// There are only folders here, and nothing can be created.
TQvResult TRootMountNode::NoResource(const std::string& id) const
{
    return ResourceExists(id) == kResFolder ? TQvResult::Failed(EISDIR, id)
                                            : TQvResult::Nothing(id);
}

TQvResult TRootMountNode::ReadOnly(const std::string& id) const
{
    return TQvResult::Failed(EROFS, id);
}

/// "/" exists when anything is mounted. Unlike GetResourceAttr, "" is nothing here.
TQvExistence TRootMountNode::ResourceExists(const std::string& id) const
{
    const bool exists =
        id == "/" ? !m_folders.All().empty() : m_folders.All().count(QvNormalizeResId(id)) != 0;
    if (exists)
        return {kResFolder, TQvResult::Done()};
    return {kResNothing, TQvResult::Nothing(id)};
}

TQvResult TRootMountNode::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    if (attrib == nullptr)
        return TQvResult::Failed(EINVAL, id);
    if (!IsTop(id) && m_folders.All().count(QvNormalizeResId(id)) == 0)
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
    // Shared by all calls: therefore two such listings must not run at once.
    static SMatches matches;

    bool found = false;
    const TMountFolders::TFolders& folders = m_folders.All();
    // Sorted by normal forms, all folders below one follow each other.
    for (auto folderIt = folders.lower_bound(prefix);
         folderIt != folders.end() && folderIt->first.compare(0, prefix.size(), prefix) == 0;
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
        items->push_back({shownFolder + folderIt->second.Name, RootFolderAttrib()});
    }
    return found ? TQvResult::Done() : TQvResult::Nothing();
}

var_a<TQvLockFile*> TRootMountNode::CreateLockFile(const std::string&, unsigned long, bool,
                                                   const std::string&)
{
    throw TQvMessage("CreateLockFile shouldn't be invoked for TRootMountNode");
}
