// Operations on folders, and listings.
#include <algorithm>
#include <iterator>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ModuleInitializer.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"

namespace
{
constexpr int kLogLevel = 5;
constexpr unsigned kEverythingBelow = kFindResources | kFindFolders | kFindRecursive;
} // namespace

bool TResourceManager::IsFolder(const std::string& id, bool realOnly) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    return ResourceExists(stripped) == kResFolder &&
           (!realOnly || !NodeFor(stripped)->IsPureVirtual());
}

bool TResourceManager::IsFolderEmpty(const std::string& id) const
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    Find(items, id, "*", kFindResources | kFindFolders, nullptr);
    return items->empty();
}

bool TResourceManager::CreateFolder(const std::string& id) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    const std::string parent = QvExtractResPath(stripped);
    if (parent.size() >= 2 && ResourceExists(parent) != kResFolder && !CreateFolder(parent))
        return false;
    TMountNode* node = NodeFor(stripped);
    switch (node->ResourceExists(stripped)) {
    case kResResource:
        QvLogWriteInfo(TQvMessage("%1% failed: \"%2%\" is resource")
                           << "bool TResourceManager::CreateFolder(const std::__cxx11::string &)"
                           << id,
                       kLogLevel, 0);
        return false;
    case kResFolder:
        return true;
    default:
        return node->CreateFolder(stripped);
    }
}

void TResourceManager::RenameFolderE(const std::string& src, const std::string& newName) const
{
    const std::string stripped = QvExcludeTrailingSlash(src);
    if (ResourceExists(stripped) != kResFolder)
        throw TQvMessage(QvResourceString("global.ErrNotFolder")) << src;
    const std::string normal = QvNormalizeResId(stripped);
    for (auto entry = m_nodeLengths.rbegin(); entry != m_nodeLengths.rend(); ++entry) {
        const std::string mountPoint =
            QvNormalizeResId(m_mountNodes[entry->second]->MountPointId());
        if (mountPoint.compare(0, normal.size(), normal) == 0 &&
            (mountPoint.size() == normal.size() || mountPoint[normal.size()] == '/'))
            throw TQvMessage(QvResourceString("global.ErrRenameMtPoint")) << src;
    }
    // Without the trailing "/" the folder's parent is its parent: a folder is never moved into
    // itself.
    NodeFor(stripped)->RenameFolderE(stripped, newName);
}

bool TResourceManager::DeleteFolder(const std::string& id, bool clearFirst,
                                    TQvProgressHandler* progress) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    if (ResourceExists(stripped) != kResFolder ||
        (clearFirst && !ClearFolder(stripped, progress)) || IsMountNode(stripped))
        return false;
    return NodeFor(stripped)->DeleteFolder(stripped);
}

bool TResourceManager::ClearFolder(const std::string& id, TQvProgressHandler* progressHandler) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    if (ResourceExists(stripped) != kResFolder)
        return false;
    TQvProgress progress(progressHandler);
    const auto entries = make_var<std::vector<TQvResFindItem>>();
    DoFind(entries, stripped, "*", kEverythingBelow, nullptr);
    try {
        return ClearFolderEntries(*entries, progress);
    } catch (const TQvUserBreak&) {
        return false;
    }
}

bool TResourceManager::ClearFolderEntries(const std::vector<TQvResFindItem>& entries,
                                          TQvProgress& progress) const
{
    const double step = 1.0 / static_cast<double>(std::max<std::size_t>(entries.size(), 1));
    bool result = true;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        progress.Report(static_cast<double>(i) * step);
        const std::string& id = entries[i].Id;
        bool deleted = false;
        // A disk name may be no valid part of an id; then it stays, and the others go nevertheless.
        if (QvIsValidResId(id, true)) {
            TMountNode* node = NodeFor(id);
            if (entries[i].Attrib.Kind == kResResource)
                deleted = node->DeleteResource(id);
            else if (entries[i].Attrib.Kind == kResFolder && !IsMountNode(id))
                deleted = node->DeleteFolder(id);
        }
        result = result && deleted;
    }
    return result;
}

void TResourceManager::Find(const TFindItems& items, const std::string& folder,
                            const std::string& mask, unsigned flags,
                            TQvProgressHandler* progressHandler) const
{
    TQvProgress progress(progressHandler);
    if (progressHandler != nullptr && progressHandler->Started())
        QvLogWriteWarning(TQvMessage("@TResourceManager::Find(): Progress already started!"),
                          kLogLevel, 0);
    else
        progress.Start();
    DoFind(items, folder, mask, flags, progressHandler);
}

void TResourceManager::DoFind(const TFindItems& items, const std::string& folder,
                              const std::string& mask, unsigned flags,
                              TQvProgressHandler* progress) const
{
    const TMountNode* node = NodeFor(folder);
    if ((flags & kFindRecursive) == 0) {
        node->Find(items, folder, mask, flags, progress);
        return;
    }
    // Reading the folder once is enough when its own entries hold all its sub-folders.
    const bool onePass = items && mask == "*" && (flags & kFindFolders) != 0;
    const auto entries = make_var<std::vector<TQvResFindItem>>();
    node->Find(entries, folder, "*", onePass ? flags : kFindFolders, progress);
    for (const TQvResFindItem& entry : *entries) {
        if (entry.Attrib.Kind != kResFolder)
            continue;
        QvPollProgress(progress);
        // A disk name may be no valid part of an id: it is shown and not entered. Neither is a
        // link: loops end, and clearing a folder never reaches out of it. A mount point of that id
        // is entered all the same.
        if (!QvIsValidResId(entry.Id, true))
            continue;
        if (NodeFor(entry.Id) == node && QvIsSymLink(node->GetResourceFile(entry.Id)))
            continue;
        DoFind(items, entry.Id, mask, flags, progress);
    }
    if (onePass)
        items->insert(items->end(), std::make_move_iterator(entries->begin()),
                      std::make_move_iterator(entries->end()));
    else
        node->Find(items, folder, mask, flags, progress);
}
