// Operations on folders, and listings.
#include <algorithm>
#include <cerrno>
#include <iterator>

#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/LastFailure.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
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
    return items->empty() && LastFailure().Error == 0;
}

bool TResourceManager::CreateFolder(const std::string& id) const
{
    return QvReport(DoCreateFolder(id));
}

TQvResult TResourceManager::DoCreateFolder(const std::string& id) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    const std::string parent = QvExtractResPath(stripped);
    if (parent.size() >= 2 && LookUp(parent) != kResFolder)
        if (TQvResult created = DoCreateFolder(parent); !created)
            return created;
    TMountNode* node = NodeFor(stripped);
    switch (node->ResourceExists(stripped)) {
    case kResResource:
        QvLogWriteInfo(TQvMessage("%1% failed: \"%2%\" is resource")
                           << "bool TResourceManager::CreateFolder(const std::__cxx11::string &)"
                           << id,
                       kLogLevel, 0);
        return TQvResult::Failed(EEXIST, stripped);
    case kResFolder:
        return TQvResult::Done();
    default:
        return node->CreateFolder(stripped);
    }
}

/// Done for a folder.
TQvResult TResourceManager::RequireFolder(const std::string& id) const
{
    const TQvExistence exists = LookUp(id);
    if (exists == kResFolder)
        return TQvResult::Done();
    return exists == kResResource ? TQvResult::Failed(ENOTDIR, id) : exists.Result.Named(id);
}

/// Whether the disk folder of an id is that of some mount, or has one in it.
bool TResourceManager::HoldsMountFolder(const std::string& id) const
{
    const std::string folder = QvIncludeTrailingSlash(NodeFor(id)->GetResourceFile(id));
    return std::any_of(m_mountNodes.begin(), m_mountNodes.end(), [&folder](const auto& node) {
        const std::string own = QvIncludeTrailingSlash(node->GetResourceFile(node->MountPointId()));
        return own.compare(0, folder.size(), folder) == 0;
    });
}

void TResourceManager::RenameFolderE(const std::string& src, const std::string& newName) const
{
    const std::string stripped = QvExcludeTrailingSlash(src);
    if (const TQvResult notFolder = RequireFolder(stripped); !notFolder) {
        SetLastFailure(notFolder.Error(), src);
        throw TQvMessage(QvResourceString("global.ErrNotFolder")) << src;
    }
    const std::string normal = QvNormalizeResId(stripped);
    for (auto entry = m_nodeLengths.rbegin(); entry != m_nodeLengths.rend(); ++entry) {
        const std::string mountPoint =
            QvNormalizeResId(m_mountNodes[entry->second]->MountPointId());
        if (mountPoint.compare(0, normal.size(), normal) == 0 &&
            (mountPoint.size() == normal.size() || mountPoint[normal.size()] == '/')) {
            SetLastFailure(EBUSY, src);
            throw TQvMessage(QvResourceString("global.ErrRenameMtPoint")) << src;
        }
    }
    if (HoldsMountFolder(stripped)) {
        SetLastFailure(EBUSY, src);
        throw TQvMessage(QvResourceString("global.ErrRenameMtPoint")) << src;
    }
    // Without the trailing "/" the folder's parent is its parent: a folder is never moved into
    // itself.
    TQvResult result;
    try {
        NodeFor(stripped)->RenameFolderE(stripped, newName, &result);
    } catch (const TQvMessage&) {
        QvReport(result);
        throw;
    }
    QvReport(result);
}

bool TResourceManager::DeleteFolder(const std::string& id, bool clearFirst,
                                    TQvProgressHandler* progress) const
{
    return QvReport(DoDeleteFolder(QvExcludeTrailingSlash(id), clearFirst, progress));
}

TQvResult TResourceManager::DoDeleteFolder(const std::string& id, bool clearFirst,
                                           TQvProgressHandler* progress) const
{
    TQvResult result = RequireFolder(id);
    if (!result)
        return result;
    const bool isMountPoint = IsMountNode(id);
    // Of a link only the link goes: what it leads to stays.
    if (clearFirst && (isMountPoint || !NodeFor(id)->IsLink(id)))
        result = DoClearFolder(id, progress);
    if (!result)
        return result;
    return isMountPoint || HoldsMountFolder(id) ? TQvResult::Failed(EBUSY, id)
                                                : NodeFor(id)->DeleteFolder(id);
}

bool TResourceManager::ClearFolder(const std::string& id, TQvProgressHandler* progress) const
{
    return QvReport(DoClearFolder(QvExcludeTrailingSlash(id), progress));
}

TQvResult TResourceManager::DoClearFolder(const std::string& id,
                                          TQvProgressHandler* progressHandler) const
{
    if (TQvResult result = RequireFolder(id); !result)
        return result;
    if (!IsMountNode(id) && NodeFor(id)->IsLink(id))
        return TQvResult::Failed(ENOTDIR, id);
    TQvProgress progress(progressHandler);
    const auto entries = make_var<std::vector<TQvResFindItem>>();
    std::vector<TQvFailure> failures;
    TQvBreakOnly breakOnly(progressHandler);
    try {
        DoFind(entries, id, "*", kEverythingBelow, &breakOnly, failures);
        const TQvResult deleted = ClearFolderEntries(*entries, progress);
        return failures.empty() ? deleted
                                : TQvResult::Failed(failures.front().Error, failures.front().Id);
    } catch (const TQvUserBreak&) {
        return TQvResult::Failed(ECANCELED, id);
    }
}

TQvResult TResourceManager::ClearFolderEntries(const std::vector<TQvResFindItem>& entries,
                                               TQvProgress& progress) const
{
    const double step = 1.0 / static_cast<double>(std::max<std::size_t>(entries.size(), 1));
    TQvResult result;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        progress.Report(static_cast<double>(i) * step);
        const TQvResult deleted = DeleteEntry(entries[i]);
        if (result)
            result = deleted;
    }
    return result;
}

TQvResult TResourceManager::DeleteEntry(const TQvResFindItem& entry) const
{
    // A disk name may be no valid part of an id; then it stays, and the others go nevertheless.
    bool isValid = false;
    TMountNode* node = ResolveNode(entry.Id, true, false, &isValid);
    if (!isValid || node == nullptr)
        return TQvResult::Failed(EINVAL, entry.Id);
    if (entry.Attrib.Kind == kResResource)
        return node->DeleteResource(entry.Id);
    return IsMountNode(entry.Id) || HoldsMountFolder(entry.Id) ? TQvResult::Failed(EBUSY, entry.Id)
                                                               : node->DeleteFolder(entry.Id);
}

void TResourceManager::Find(const TFindItems& items, const std::string& folder,
                            const std::string& mask, unsigned flags,
                            TQvProgressHandler* progressHandler,
                            std::vector<TQvFailure>* failures) const
{
    TQvProgress progress(progressHandler);
    if (progressHandler != nullptr && progressHandler->Started())
        QvLogWriteWarning(TQvMessage("@TResourceManager::Find(): Progress already started!"),
                          kLogLevel, 0);
    else
        progress.Start();
    std::vector<TQvFailure> found;
    try {
        DoFind(items, folder, mask, flags, progressHandler, found);
    } catch (const TQvUserBreak&) {
        SetLastFailure(ECANCELED, folder);
        throw;
    }
    if (found.empty())
        QvReport(TQvResult::Done());
    else
        SetLastFailure(found.front().Error, found.front().Id);
    if (failures != nullptr)
        failures->insert(failures->end(), found.begin(), found.end());
}

void TResourceManager::DoFind(const TFindItems& items, const std::string& folder,
                              const std::string& mask, unsigned flags, TQvProgressHandler* progress,
                              std::vector<TQvFailure>& failures) const
{
    const TMountNode* node = NodeFor(folder);
    bool isReported = false; // a folder that is read twice fails once
    const auto list = [&](const TFindItems& into, const std::string& ofMask, unsigned ofFlags) {
        const TQvResult result = node->Find(into, folder, ofMask, ofFlags, progress);
        if (result.HasFailed() && !isReported)
            failures.push_back({result.Error(), result.Name()});
        isReported = isReported || result.HasFailed();
    };
    if ((flags & kFindRecursive) == 0) {
        list(items, mask, flags);
        return;
    }
    // Reading the folder once is enough when its own entries hold all its sub-folders.
    const bool onePass = items && mask == "*" && (flags & kFindFolders) != 0;
    const auto entries = make_var<std::vector<TQvResFindItem>>();
    list(entries, "*", onePass ? flags : kFindFolders);
    for (const TQvResFindItem& entry : *entries) {
        if (entry.Attrib.Kind != kResFolder)
            continue;
        QvPollProgress(progress);
        // A disk name may be no valid part of an id: it is shown and not entered. Neither is a
        // link: loops end, and clearing a folder never reaches out of it. A mount point of that id
        // is entered all the same.
        bool isValid = false;
        const TMountNode* below = ResolveNode(entry.Id, true, false, &isValid);
        if (isValid && !(below == node && node->IsLink(entry.Id)))
            DoFind(items, entry.Id, mask, flags, progress, failures);
    }
    if (onePass)
        items->insert(items->end(), std::make_move_iterator(entries->begin()),
                      std::make_move_iterator(entries->end()));
    else
        list(items, mask, flags);
}
