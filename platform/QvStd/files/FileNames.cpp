#include "QvStd/files/FileNames.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/FolderReader.h"
#include "QvStd/Strings.h"

bool QvFollowLinks(std::string* path)
{
    // As many as the kernel follows.
    constexpr int kMaxLinks = 40;
    char target[PATH_MAX];
    for (int i = 0; i < kMaxLinks; ++i) {
        const ssize_t length = readlink(path->c_str(), target, sizeof target);
        if (length < 0)
            return errno == EINVAL || errno == ENOENT; // no link; nothing
        const std::string_view text(target, static_cast<std::size_t>(length));
        if (text.front() == '/')
            *path = text;
        else
            *path = QvFolderPart(*path).append(text);
    }
    errno = ELOOP;
    return false;
}

bool QvRenameToFreeName(const std::string& from, const std::string& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // The file system cannot do it in one step: take the name with an empty file or folder, which
    // fails when the name exists, and rename over that.
    struct stat status = {};
    // Before the name is taken: with a missing source nothing may be left at the target.
    if (lstat(from.c_str(), &status) != 0)
        return false;
    const bool isFolder = S_ISDIR(status.st_mode);
    if (isFolder ? mkdir(to.c_str(), S_IRWXU) != 0
                 : !TQvDescriptor(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)))
        return false;
    if (rename(from.c_str(), to.c_str()) == 0)
        return true;
    const int error = errno;
    // Not checked: the failure of the rename is the one to report, and only an empty entry can
    // remain.
    isFolder ? rmdir(to.c_str()) : unlink(to.c_str());
    errno = error;
    return false;
}

namespace
{
/// Of two names of one file in one folder that differ in letter case only: a folder lists each of
/// its entries in one spelling.
TQvSameness CompareSpellings(const std::string& folder, const std::string& a, const std::string& b)
{
    TQvFolderReader reader;
    TQvFolderEntry entry;
    bool hasA = false;
    bool hasB = false;
    for (reader.Open(folder); reader && reader.Next(&entry);) {
        hasA = hasA || entry.Name == a;
        hasB = hasB || entry.Name == b;
    }
    if (!reader || !reader.Result())
        // The careful answer: nothing is moved or removed on the ground of it.
        return TQvSameness::OneEntry;
    return hasA && hasB ? TQvSameness::HardLinks : TQvSameness::OtherCase;
}
} // namespace

/// One inode is not enough: two hard links are two entries, of which a move may remove one. With a
/// link count of 1, or the same name in the same folder, both paths name one entry.
TQvSameness QvCompareFiles(const std::string& a, const std::string& b)
{
    struct stat fileA = {};
    struct stat fileB = {};
    if (stat(a.c_str(), &fileA) != 0 || stat(b.c_str(), &fileB) != 0 ||
        !QvIsSameInode(fileA, fileB))
        return TQvSameness::Different;
    struct stat folderA = {};
    struct stat folderB = {};
    const bool oneFolder = stat((QvFolderPart(a) + ".").c_str(), &folderA) == 0 &&
                           stat((QvFolderPart(b) + ".").c_str(), &folderB) == 0 &&
                           QvIsSameInode(folderA, folderB);
    const std::string nameA = a.substr(QvFolderPart(a).size());
    const std::string nameB = b.substr(QvFolderPart(b).size());
    const bool isLink = QvIsSymLink(a) || QvIsSymLink(b);
    if (!isLink && oneFolder && nameA != nameB && toupper_locale(nameA) == toupper_locale(nameB))
        return CompareSpellings(QvFolderPart(a) + ".", nameA, nameB);
    return isLink || fileA.st_nlink == 1 || (oneFolder && nameA == nameB) ? TQvSameness::OneEntry
                                                                          : TQvSameness::HardLinks;
}
