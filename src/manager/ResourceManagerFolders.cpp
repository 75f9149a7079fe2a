// Operations on folders, and listings.
#include <algorithm>
#include <cassert>
#include <cerrno>
#include <iterator>

#include "QvStd/Descriptor.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/LastFailure.h"
#include "manager/MountedPaths.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
#include "resid/NameMask.h"
#include "resid/ResId.h"

namespace
{
constexpr int kLogLevel = 5;
constexpr unsigned kEverythingBelow = kFindResources | kFindFolders | kFindRecursive;
/// The flags that also apply to a search for sub-folders alone.
constexpr unsigned kPassedOn = kFindHidden | kFindMounts | kFindNoLink;
std::ptrdiff_t Offset(std::size_t index)
{
    return static_cast<std::ptrdiff_t>(index);
}

/// Appends the entries from `first` on to those of another listing.
void MoveEntries(std::vector<TQvResFindItem>& from, std::size_t first,
                 std::vector<TQvResFindItem>& to)
{
    assert(&from != &to && first <= from.size());
    const auto moved = from.begin() + Offset(first);
    to.insert(to.end(), std::make_move_iterator(moved), std::make_move_iterator(from.end()));
    from.erase(moved, from.end());
}
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

/// Parents one by one, since they may belong to other nodes than the folder: a mount point below a
/// folder of another mount.
TQvResult TResourceManager::DoCreateFolder(const std::string& id) const
{
    const std::string stripped = QvExcludeTrailingSlash(id);
    const std::string parent = QvExtractResPath(stripped);
    // Ends at "/", which no node creates.
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

/// Whether the disk folder of an id is, or contains, the folder of a mount.
bool TResourceManager::HoldsMountFolder(const std::string& id, TMountedPaths& mounted) const
{
    return mounted.Has(NodeFor(id)->GetResourceFile(id));
}

void TResourceManager::RenameFolderE(const std::string& src, const std::string& newName) const
{
    const std::string stripped = QvExcludeTrailingSlash(src);
    if (const TQvResult notFolder = RequireFolder(stripped); !notFolder) {
        SetLastFailure(notFolder.Error(), src);
        throw TQvMessage(QvResourceString("global.ErrNotFolder")) << src;
    }
    // A rename would leave the mount point where it is in the tree, while its parent folder is
    // gone.
    const std::string normal = QvNormalizeResId(stripped);
    for (const auto& node : m_mountNodes) {
        const std::string mountPoint = QvNormalizeResId(node->MountPointId());
        if (mountPoint.compare(0, normal.size(), normal) == 0 &&
            (mountPoint.size() == normal.size() || mountPoint[normal.size()] == '/')) {
            SetLastFailure(EBUSY, src);
            throw TQvMessage(QvResourceString("global.ErrRenameMtPoint")) << src;
        }
    }
    // The disk folder of another mount may be below this one, under ids that do not show it: that
    // mount would lose its folder.
    if (TMountedPaths mounted(m_mountNodes); HoldsMountFolder(stripped, mounted)) {
        SetLastFailure(EBUSY, src);
        throw TQvMessage(QvResourceString("global.ErrRenameMtPoint")) << src;
    }
    // With the trailing "/" the id would count as its own parent, and the folder would be moved
    // into itself.
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
    // Only the link is removed, its target stays.
    if (clearFirst && (isMountPoint || !NodeFor(id)->IsLink(id)))
        result = DoClearFolder(id, progress);
    if (!result)
        return result;
    TMountedPaths mounted(m_mountNodes);
    return isMountPoint || HoldsMountFolder(id, mounted) ? TQvResult::Failed(EBUSY, id)
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
    // The search must not move the bar, which measures deletions, but a user can cancel it.
    TQvBreakOnly breakOnly(progressHandler);
    try {
        DoFind(entries, id, "*", kEverythingBelow, &breakOnly, failures);
        const TQvResult deleted = ClearFolderEntries(*entries, progress);
        // A folder that could not be listed is the cause of the deletions that failed after it.
        return failures.empty() ? deleted
                                : TQvResult::Failed(failures.front().Error, failures.front().Id);
    } catch (const TQvUserBreak&) {
        return TQvResult::Failed(ECANCELED, id);
    }
}

/// The deepest entries come first, so that each folder is empty when its turn comes, unless
/// something in it could not be deleted: that failure was the first.
TQvResult TResourceManager::ClearFolderEntries(const std::vector<TQvResFindItem>& entries,
                                               TQvProgress& progress) const
{
    const double step = 1.0 / static_cast<double>(std::max<std::size_t>(entries.size(), 1));
    TQvResult result;
    TQvFolderKeeper folders;
    TMountedPaths mounted(m_mountNodes);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        // Before each entry: this is where a user can cancel, and entries are deleted whole.
        progress.Report(static_cast<double>(i) * step);
        const TQvResult deleted = DeleteEntry(entries[i], folders, mounted);
        if (result)
            result = deleted;
    }
    return result;
}

TQvResult TResourceManager::DeleteEntry(const TQvResFindItem& entry, TQvFolderKeeper& folders,
                                        TMountedPaths& mounted) const
{
    assert(!entry.Id.empty()); // else the root of the tree would be meant
    // A disk name may be no valid part of an id: that entry stays, the others are deleted.
    bool isValid = false;
    TMountNode* node = ResolveNode(entry.Id, true, false, &isValid);
    if (!isValid || node == nullptr)
        return TQvResult::Failed(EINVAL, entry.Id);
    if (entry.Attrib.Kind == kResResource)
        return node->DeleteListed(entry, folders);
    return IsMountNode(entry.Id) || HoldsMountFolder(entry.Id, mounted)
               ? TQvResult::Failed(EBUSY, entry.Id)
               : node->DeleteFolder(entry.Id);
}

void TResourceManager::Find(const TFindItems& items, const std::string& folder,
                            const std::string& mask, unsigned flags,
                            TQvProgressHandler* progressHandler,
                            std::vector<TQvFailure>* failures) const
{
    TQvProgress progress(progressHandler);
    // It belongs to an outer operation, which also stops it.
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

/// One level, in the folder's own order.
TQvResult TResourceManager::ListFolder(const TMountNode& node, const TFindItems& items,
                                       const std::string& folder, const std::string& mask,
                                       unsigned flags, TQvProgressHandler* progress) const
{
    const std::size_t first = items ? items->size() : 0;
    // Mount points are added to whatever was found, since they do not depend on the disk.
    const TQvResult result = node.Find(items, folder, mask, flags, progress);
    // Above the mount points the node shows them itself.
    if (items && (flags & kFindMounts) != 0 && !node.IsPureVirtual())
        ShowMounts(node, *items, first, folder, mask, flags);
    return result;
}

/// Adds to the entries of one folder of `node`, which begin at `first`, the mount points below it.
void TResourceManager::ShowMounts(const TMountNode& node, std::vector<TQvResFindItem>& items,
                                  std::size_t first, const std::string& folder,
                                  const std::string& mask, unsigned flags) const
{
    assert(first <= items.size());
    const auto mounts = make_var<std::vector<TQvResFindItem>>();
    // After a failed Init there may be no root node.
    if (m_mountNodes.back()->Type() == kRootNode)
        m_mountNodes.back()->Find(mounts, folder, "*", kFindFolders, nullptr);
    if (mounts->empty())
        return;
    std::map<std::string, bool> isShown; // by normal form
    for (const TQvResFindItem& mount : *mounts)
        isShown[QvNormalizeResId(mount.Id)] = false;
    const auto isHiddenByMount = [&](const TQvResFindItem& item) {
        const auto mount = isShown.find(QvNormalizeResId(item.Id));
        if (mount == isShown.end())
            return false;
        const bool isHidden = item.Attrib.Kind == kResResource && IsMountNode(item.Id);
        mount->second = mount->second || !isHidden;
        return isHidden;
    };
    // Only the entries of this folder: those before `first` belong to the caller.
    items.erase(std::remove_if(items.begin() + Offset(first), items.end(), isHiddenByMount),
                items.end());
    if ((flags & kFindFolders) == 0)
        return;
    const TNameMask nameMask(mask);
    for (const TQvResFindItem& mount : *mounts) {
        if (isShown[QvNormalizeResId(mount.Id)] || !nameMask.Matches(QvExtractResName(mount.Id)))
            continue;
        // A mount point below the name of a resource does not make it a folder.
        if (IsMountNode(mount.Id) || node.ResourceExists(mount.Id) != kResResource)
            items.push_back(mount);
    }
}

void TResourceManager::DoFind(const TFindItems& items, const std::string& folder,
                              const std::string& mask, unsigned flags, TQvProgressHandler* progress,
                              std::vector<TQvFailure>& failures) const
{
    if ((flags & kFindRecursive) != 0) {
        DoFindBelow(items, make_var<std::vector<TQvResFindItem>>(), folder, mask, flags, progress,
                    failures);
        return;
    }
    const TQvResult result = ListFolder(*NodeFor(folder), items, folder, mask, flags, progress);
    if (result.HasFailed())
        failures.push_back({result.Error(), result.Name()});
}

/// `open` has the entries of the parent folders, whose sub-folders are still to be entered, and is
/// unchanged on return: one list for all levels needs no memory for each folder.
void TResourceManager::DoFindBelow(const TFindItems& items, const TFindItems& open,
                                   const std::string& folder, const std::string& mask,
                                   unsigned flags, TQvProgressHandler* progress,
                                   std::vector<TQvFailure>& failures) const
{
    const TMountNode* node = NodeFor(folder);
    bool isReported = false; // a folder that is read twice fails once
    const auto list = [&](const TFindItems& into, const std::string& ofMask, unsigned ofFlags) {
        const TQvResult result = ListFolder(*node, into, folder, ofMask, ofFlags, progress);
        if (result.HasFailed() && !isReported)
            failures.push_back({result.Error(), result.Name()});
        isReported = isReported || result.HasFailed();
    };
    const auto isFolder = [](const TQvResFindItem& item) { return item.Attrib.Kind == kResFolder; };
    const std::size_t first = open->size();
    // Reading the folder once is enough when its listed entries include all sub-folders.
    const bool onePass = items && mask == "*" && (flags & kFindFolders) != 0;
    if (onePass) {
        const std::size_t own = items->size();
        list(items, mask, flags);
        // The content of sub-folders comes first; most folders have none.
        if (std::any_of(items->begin() + Offset(own), items->end(), isFolder))
            MoveEntries(*items, own, *open);
    } else {
        list(open, "*", kFindFolders | (flags & kPassedOn));
    }
    for (std::size_t i = first; i < open->size(); ++i) {
        if (!isFolder((*open)[i]))
            continue;
        QvPollProgress(progress);
        // A disk name may be no valid part of an id: it is listed and not entered. A link is not
        // entered either, even when it has just replaced the folder: that prevents loops, and
        // clearing never deletes outside the folder. A mount point of that id is entered.
        const std::string below = (*open)[i].Id; // the list may be reallocated
        bool isValid = false;
        ResolveNode(below, true, false, &isValid);
        if (isValid)
            DoFindBelow(items, open, below, mask, flags | kFindNoLink, progress, failures);
    }
    if (onePass)
        MoveEntries(*open, first, *items);
    assert(open->size() >= first); // else entries without an id would be added
    open->resize(first);
    if (!onePass)
        list(items, mask, flags);
}
