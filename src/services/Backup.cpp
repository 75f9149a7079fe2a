#include "services/Backup.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <map>
#include <utility>

#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
#include "resid/ResId.h"

namespace
{
constexpr char kBackupResource[] = "@void BackupResource(const std::__cxx11::string &, size_t): ";
constexpr char kStampMask[] = ".\?\?\?\?-\?\?-\?\?.\?\?-\?\?-\?\?"; // "?" alone would be a trigraph

/// A part of a search mask that matches `text` alone.
std::string EscapeMask(const std::string& text)
{
    std::string mask;
    for (const char c : text) {
        if (c == '[' || c == '*' || c == '?')
            mask.append({'[', c, ']'});
        else
            mask += c;
    }
    return mask;
}

/// What the names of one resource's backups are made of.
struct TBackupName
{
    explicit TBackupName(const std::string& resId)
        : Folder(QvExtractResPath(resId) + "backup"), Name(QvExtractResNameOnly(resId)),
          Extension(QvExtractResExt(resId))
    {
    }
    std::string Mask() const { return EscapeMask(Name) + kStampMask + EscapeMask(Extension); }
    std::string IdFor(TQvDateTime modified) const;
    /// Masks ignore letter case, a disk may not: only exact names count, so that backups of other
    /// resources are never deleted.
    bool IsExactly(const std::string& backupId) const
    {
        const std::string found = QvExtractResName(backupId);
        const std::size_t length = Name.size() + sizeof kStampMask - 1;
        return found.size() == length + Extension.size() &&
               found.compare(0, Name.size(), Name) == 0 &&
               found.compare(length, std::string::npos, Extension) == 0;
    }

    std::string Folder;
    std::string Name;
    std::string Extension;
};

std::string TBackupName::IdFor(TQvDateTime modified) const
{
    const QDateTime local = modified.ToQDateTime();
    return Folder + "/" + Name + local.toString(".yyyy-MM-dd.hh-mm-ss").toStdString() + Extension;
}

/// By a mask, so that the folder's other entries need no attributes.
std::vector<TQvResFindItem> FindBackups(const TBackupName& name)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    ResourceManager.Find(items, name.Folder, name.Mask(), kFindResources | kFindAttributes,
                         nullptr);
    const auto isOther = [&name](const TQvResFindItem& item) { return !name.IsExactly(item.Id); };
    items->erase(std::remove_if(items->begin(), items->end(), isOther), items->end());
    return std::move(*items);
}

/// Leaves fewer than `keep` backups. A backup that cannot be deleted stays: answers the first such
/// failure.
TQvFailure Prune(const TBackupName& name, std::size_t keep)
{
    assert(keep > 0); // else the loop below would not end
    const std::vector<TQvResFindItem> items = FindBackups(name);
    TQvFailure first = TResourceManager::LastFailure();
    // A backup without a time would count as the oldest.
    if (first.Error != 0)
        return first;
    std::map<TQvDateTime, std::string> backups; // oldest first; two of one time count once
    for (const TQvResFindItem& item : items)
        backups.emplace(item.Attrib.UpdateTime, item.Id);
    while (backups.size() >= keep) {
        if (!ResourceManager.DeleteResource(backups.begin()->second) && first.Error == 0)
            first = TResourceManager::LastFailure();
        backups.erase(backups.begin());
    }
    return first;
}
} // namespace

void BackupResource(const std::string& resId, std::size_t keep)
{
    MakeResourceBackup(resId, keep);
}

/// Old backups are deleted before the move, so that there is never one too many; a kill in between
/// leaves the resource in place.
std::string MakeResourceBackup(const std::string& resId, std::size_t keep)
{
    if (ResourceManager.ResourceExists(resId) == kResNothing) {
        if (TResourceManager::LastFailure().Error == 0)
            TResourceManager::SetLastFailure(ENOENT, resId);
        throw TQvMessage(std::string(kBackupResource) + "Invalid resource ID");
    }
    if (keep == 0) {
        ResourceManager.DeleteResource(resId); // keeping none means making none
        return {};
    }
    const TBackupName name(resId);
    if (!ResourceManager.CreateFolder(name.Folder))
        throw TQvMessage(kBackupResource + QvResourceString("global.ErrCreateBackupFolder"));
    const TQvFailure unpruned = Prune(name, keep);
    // The stamp is the time of the content, not of the backup. Without it, and when the move fails,
    // the resource stays: the caller sees that the id is not free, and LastFailure has the cause.
    TQvResAttrib attrib;
    if (!ResourceManager.GetResourceAttr(resId, &attrib))
        return {};
    std::string backupId = name.IdFor(attrib.UpdateTime);
    if (!ResourceManager.RenMovResource(resId, backupId, nullptr))
        return {};
    if (unpruned.Error != 0)
        TResourceManager::SetLastFailure(unpruned.Error, unpruned.Id);
    return backupId;
}

std::vector<TQvResFindItem> FindResourceBackups(const std::string& resId)
{
    std::vector<TQvResFindItem> items = FindBackups(TBackupName(resId));
    std::sort(items.begin(), items.end(), [](const TQvResFindItem& a, const TQvResFindItem& b) {
        return a.Attrib.UpdateTime != b.Attrib.UpdateTime
                   ? a.Attrib.UpdateTime < b.Attrib.UpdateTime
                   : a.Id < b.Id;
    });
    return items;
}
