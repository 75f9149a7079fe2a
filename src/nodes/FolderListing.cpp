#include "nodes/FolderListing.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

#include <QRegularExpression>
#include <QString>

#include "QvStd/Files.h"

namespace
{
struct TCloseFolder
{
    void operator()(DIR* folder) const { closedir(folder); }
};

enum class TEntryKind
{
    Skipped,
    File,
    Folder
};

/// The folder entry's own kind spares a look at the file; only links, and file systems that do not
/// tell, need one.
TEntryKind KindOf(int folder, const dirent& entry)
{
    switch (entry.d_type) {
    case DT_REG:
        return TEntryKind::File;
    case DT_DIR:
        return TEntryKind::Folder;
    case DT_LNK:
    case DT_UNKNOWN:
        break;
    default:
        return TEntryKind::Skipped;
    }
    struct stat status = {};
    if (fstatat(folder, entry.d_name, &status, 0) != 0)
        return TEntryKind::Skipped;
    if (S_ISDIR(status.st_mode))
        return TEntryKind::Folder;
    if (S_ISREG(status.st_mode))
        return TEntryKind::File;
    // A link to a device or FIFO is listed, though the device itself is not.
    struct stat own = {};
    const bool isLink =
        fstatat(folder, entry.d_name, &own, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(own.st_mode);
    return isLink ? TEntryKind::File : TEntryKind::Skipped;
}

bool IsSidecar(std::string_view name)
{
    constexpr std::string_view kSuffix = ".meta";
    return name.size() > kSuffix.size() && name.substr(name.size() - kSuffix.size()) == kSuffix;
}

/// A name filter; "*" needs none.
class TNameMask
{
public:
    explicit TNameMask(const std::string& mask) : m_all(mask == "*")
    {
        if (m_all)
            return;
        m_expression.setPattern(
            QRegularExpression::wildcardToRegularExpression(QString::fromStdString(mask)));
        m_expression.setPatternOptions(QRegularExpression::CaseInsensitiveOption);
        m_expression.optimize();
        m_none = !m_expression.isValid(); // asked once: each match would say so on standard error
    }
    bool Matches(std::string_view name) const
    {
        return m_all ||
               m_expression.match(QString::fromUtf8(name.data(), static_cast<int>(name.size())))
                   .hasMatch();
    }

private:
    bool m_all;
    bool m_none = false;
    QRegularExpression m_expression;
};

TQvResFindItem MakeItem(const std::string& idPrefix, std::string_view name, TEntryKind kind)
{
    TQvResFindItem item;
    item.Id.reserve(idPrefix.size() + name.size());
    item.Id.append(idPrefix).append(name);
    item.Attrib.Kind = kind == TEntryKind::Folder ? kResFolder : kResResource;
    item.Attrib.Origin = kOriginFileNode;
    return item;
}

void FillAttributes(int folder, const char* name, TQvResAttrib& attrib)
{
    TQvFileInfo info;
    if (!QvGetFileInfoAt(folder, name, &info))
        return; // gone meanwhile
    attrib.Size = info.Size;
    attrib.UpdateTime = info.UpdateTime;
    attrib.CreationTime = info.CreationTime;
}
} // namespace

bool QvListFolder(const std::string& path, const std::string& idPrefix, const std::string& mask,
                  unsigned flags, TQvProgressHandler* progress, std::vector<TQvResFindItem>* items)
{
    const std::unique_ptr<DIR, TCloseFolder> folder(opendir(path.c_str()));
    if (!folder)
        return false;
    const TNameMask nameMask(mask);
    bool found = false;
    errno = 0;
    for (const dirent* entry = nullptr; (entry = readdir(folder.get())) != nullptr; errno = 0) {
        const std::string_view name(entry->d_name);
        if (name.front() == '.')
            continue;
        QvPollProgress(progress);
        if (IsSidecar(name) || !nameMask.Matches(name))
            continue;
        const TEntryKind kind = KindOf(dirfd(folder.get()), *entry);
        if (kind == TEntryKind::Skipped ||
            (flags & (kind == TEntryKind::Folder ? kFindFolders : kFindResources)) == 0)
            continue;
        found = true;
        if (items == nullptr)
            return true;
        TQvResFindItem& item = items->emplace_back(MakeItem(idPrefix, name, kind));
        if ((flags & kFindAttributes) != 0)
            FillAttributes(dirfd(folder.get()), entry->d_name, item.Attrib);
    }
    return found && errno == 0;
}
