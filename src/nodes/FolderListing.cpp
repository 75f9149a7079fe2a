#include "nodes/FolderListing.h"

#include <cassert>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>

#include "QvStd/Files.h"
#include "QvStd/FolderReader.h"
#include "resid/NameMask.h"
#include "resid/ResId.h"

namespace
{
enum class TEntryKind
{
    Skipped,
    File,
    Folder
};

/// A dangling link is no entry; a link that cannot be followed may have a target.
bool IsDangling(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

/// Most file systems report the kind with the entry; only for links and on other file systems the
/// file is examined. 0 or an errno.
int FindKind(int folder, const TQvFolderEntry& entry, TEntryKind* kind)
{
    *kind = TEntryKind::Skipped;
    switch (entry.Type) {
    case DT_REG:
        *kind = TEntryKind::File;
        return 0;
    case DT_DIR:
        *kind = TEntryKind::Folder;
        return 0;
    case DT_LNK:
    case DT_UNKNOWN:
        break;
    default:
        return 0;
    }
    struct stat status = {};
    if (fstatat(folder, entry.Name.data(), &status, 0) != 0)
        return IsDangling(errno) ? 0 : errno;
    struct stat own = {};
    if (S_ISDIR(status.st_mode))
        *kind = TEntryKind::Folder;
    else if (S_ISREG(status.st_mode))
        *kind = TEntryKind::File;
    // A link to a device or FIFO is listed, though the device itself is not.
    else if (fstatat(folder, entry.Name.data(), &own, AT_SYMLINK_NOFOLLOW) == 0 &&
             S_ISLNK(own.st_mode))
        *kind = TEntryKind::File;
    return 0;
}

bool IsSidecar(std::string_view name)
{
    constexpr std::size_t kLength = std::string_view(kSidecarSuffix).size();
    return name.size() > kLength && name.substr(name.size() - kLength) == kSidecarSuffix;
}

/// As IsSidecar where a file system takes both letter cases for one name.
bool MayBeSidecar(std::string_view name)
{
    constexpr std::string_view kSuffix = kSidecarSuffix;
    return name.size() > kSuffix.size() && name[name.size() - kSuffix.size()] == kSuffix.front() &&
           strncasecmp(name.data() + name.size() - kSuffix.size(), kSuffix.data(),
                       kSuffix.size()) == 0;
}

void FillItem(TQvResFindItem& item, const std::string& idPrefix, std::string_view name,
              TEntryKind kind)
{
    item.Id.reserve(idPrefix.size() + name.size());
    item.Id.append(idPrefix).append(name);
    item.Attrib.Kind = kind == TEntryKind::Folder ? kResFolder : kResResource;
    item.Attrib.Origin = kOriginFileNode;
}

TQvResult FillAttributes(int folder, const char* name, TQvResAttrib& attrib)
{
    TQvFileInfo info;
    if (TQvResult result = QvGetFileInfoAt(folder, name, &info); !result)
        return result;
    attrib.Size = info.Size;
    attrib.UpdateTime = info.UpdateTime;
    attrib.CreationTime = info.CreationTime;
    return TQvResult::Done();
}

class TFolderListing
{
public:
    TFolderListing(const std::string& idPrefix, const std::string& mask, unsigned flags,
                   std::vector<TQvResFindItem>* items)
        : m_idPrefix(idPrefix), m_mask(mask), m_flags(flags), m_items(items)
    {
    }

    TQvResult Read(const std::string& path, TQvProgressHandler* progress);

private:
    void Take(const TQvFolderEntry& entry);
    void Add(std::string_view name, TEntryKind kind);
    void Note(int error, const std::string& id);
    void NoteNoSidecars(std::size_t first);

    const std::string& m_idPrefix;
    TNameMask m_mask;
    unsigned m_flags;
    std::vector<TQvResFindItem>* m_items;
    // On the stack with this object: listings of many small folders need no allocation.
    alignas(dirent64) char m_buffer[std::size_t{32} << 10];
    TQvFolderReader m_folder{m_buffer, sizeof m_buffer};
    bool m_found = false;
    bool m_hasSidecars = false;
    TQvResult m_failure;
};

TQvResult TFolderListing::Read(const std::string& path, TQvProgressHandler* progress)
{
    const std::string id = QvExcludeTrailingSlash(m_idPrefix);
    const bool followsLink = (m_flags & kFindNoLink) == 0;
    if (const TQvResult opened = m_folder.OpenAt(AT_FDCWD, path.c_str(), followsLink); !opened)
        // A file, or a link that is not followed, contains nothing: an answer, no failure.
        return opened.Error() == ENOTDIR ? TQvResult::Nothing(id) : opened.Named(id);
    const std::size_t first = m_items != nullptr ? m_items->size() : 0;
    TQvFolderEntry entry;
    while ((m_items != nullptr || !m_found) && m_folder.Next(&entry)) {
        // First, because it is the cheapest test.
        if (entry.Name.front() == '.' && (m_flags & kFindHidden) == 0)
            continue;
        QvPollProgress(progress);
        // Before the mask, which may exclude them.
        m_hasSidecars = m_hasSidecars || MayBeSidecar(entry.Name);
        if (!IsSidecar(entry.Name) && m_mask.Matches(entry.Name))
            Take(entry);
    }
    // After a failure sidecars may be among the names that were not read.
    if (!m_folder.Result())
        Note(m_folder.Result().Error(), id);
    else if (!m_hasSidecars)
        NoteNoSidecars(first);
    if (!m_failure)
        return m_failure;
    return m_found ? TQvResult::Done() : TQvResult::Nothing(id);
}

void TFolderListing::Take(const TQvFolderEntry& entry)
{
    TEntryKind kind = TEntryKind::Skipped;
    if (const int error = FindKind(m_folder.Descriptor(), entry, &kind))
        Note(error, m_idPrefix + std::string(entry.Name));
    else if (kind != TEntryKind::Skipped &&
             (m_flags & (kind == TEntryKind::Folder ? kFindFolders : kFindResources)) != 0)
        Add(entry.Name, kind);
}

void TFolderListing::Add(std::string_view name, TEntryKind kind)
{
    // With attributes only when they were read: the file may be gone by then.
    if (m_items == nullptr || (m_flags & kFindAttributes) == 0)
        m_found = true;
    if (m_items == nullptr)
        return;
    TQvResFindItem& item = m_items->emplace_back();
    FillItem(item, m_idPrefix, name, kind);
    if ((m_flags & kFindAttributes) == 0)
        return;
    const TQvResult filled = FillAttributes(m_folder.Descriptor(), name.data(), item.Attrib);
    if (filled.HasFailed())
        Note(filled.Error(), item.Id);
    if (filled.IsNothing())
        m_items->pop_back(); // vanished since its name was read
    else
        m_found = true;
}

void TFolderListing::Note(int error, const std::string& id)
{
    if (m_failure)
        m_failure = TQvResult::Failed(error, id);
}

/// The whole folder was read, and none was there.
void TFolderListing::NoteNoSidecars(std::size_t first)
{
    assert(m_items == nullptr || first <= m_items->size());
    assert(!m_hasSidecars); // else copies and deletions would miss sidecars
    for (std::size_t i = first; m_items != nullptr && i < m_items->size(); ++i)
        (*m_items)[i].MayHaveSidecar = false;
}
} // namespace

TQvResult QvListFolder(const std::string& path, const std::string& idPrefix,
                       const std::string& mask, unsigned flags, TQvProgressHandler* progress,
                       std::vector<TQvResFindItem>* items)
{
    assert(idPrefix.empty() || idPrefix.back() == '/');
    return TFolderListing(idPrefix, mask, flags, items).Read(path, progress);
}
