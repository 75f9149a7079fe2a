#include "QvStd/FreshFile.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <limits>

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include "QvStd/Files.h"
#include "QvStd/files/FileNames.h"

namespace
{
/// O_DIRECT reads whole blocks into memory that is aligned like them.
constexpr std::size_t kBlock = 4096;
constexpr std::size_t kWindow = 16 * kBlock;

/// 0, also when the folder is missing or may not be read, or an errno.
int ListFolder(const std::string& folder)
{
    // Listing a folder makes the client of such a file system ask its server for the names.
    DIR* const entries = opendir(folder.c_str());
    if (entries == nullptr)
        return errno == EACCES || errno == ENOENT ? 0 : errno;
    errno = 0;
    while (readdir(entries) != nullptr)
        errno = 0;
    const int error = errno;
    closedir(entries);
    return error;
}
} // namespace

int QvRefreshName(const std::string& path, bool* isCached)
{
    struct statfs system = {};
    int found = QvRetryInterrupted([&] { return statfs(path.c_str(), &system); });
    // Ask the folder for the file system when the name is missing or its file was replaced by
    // another machine.
    if (found != 0 && (errno == ENOENT || errno == ESTALE))
        found = statfs((QvFolderPart(path) + ".").c_str(), &system);
    if (found != 0)
        return errno == ENOENT ? 0 : errno;
    const bool isFuse = system.f_type == FUSE_SUPER_MAGIC;
    if (isCached != nullptr)
        *isCached = isFuse;
    if (!isFuse)
        return 0;
    std::string target = path;
    return QvFollowLinks(&target) ? ListFolder(QvFolderPart(target) + ".") : errno;
}

int QvCompareWithPath(const std::string& path, const struct stat& file)
{
    struct statx there = {};
    // Not from a cache: on a network file system another machine may have replaced the file.
    if (statx(AT_FDCWD, path.c_str(), AT_STATX_FORCE_SYNC, STATX_INO, &there) != 0)
        return errno == ENOENT ? ESTALE : errno;
    const bool isSame = there.stx_ino == file.st_ino &&
                        makedev(there.stx_dev_major, there.stx_dev_minor) == file.st_dev;
    return isSame ? 0 : ESTALE;
}

int TQvFreshFile::Open(const std::string& path, int flags, struct stat* status)
{
    assert((flags & O_ACCMODE) != O_WRONLY); // reads would fail, and the size not be corrected
    m_direct = TQvDescriptor();
    bool isCached = false;
    int error = QvRefreshName(path, &isCached);
    if (error == 0)
        error = QvOpenRegular(path, flags, &m_file, status);
    if (error != 0 || !isCached)
        return error;
    struct stat direct = {};
    // A second descriptor for reading past the cache; writes go through the first one.
    error = QvOpenRegular(path, O_RDONLY | O_DIRECT, &m_direct, &direct);
    if (error == EINVAL) // the file system has no O_DIRECT, and so no cache to bypass
        return 0;
    if (error == ENOENT || (error == 0 && !QvIsSameInode(*status, direct)))
        error = ESTALE;
    if (error != 0)
        *this = TQvFreshFile();
    return error;
}

bool TQvFreshFile::Close()
{
    m_direct = TQvDescriptor();
    return m_file.Close();
}

ssize_t TQvFreshFile::ReadAt(std::uint64_t position, char* buffer, std::size_t count) const
{
    if (!m_direct)
        return QvRetryInterrupted(
            [&] { return pread(m_file.Number(), buffer, count, static_cast<off_t>(position)); });
    alignas(kBlock) char window[kWindow];
    assert(position <= static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()));
    const std::size_t skipped = position % kBlock;
    const auto start = static_cast<off_t>(position - skipped);
    const ssize_t got =
        QvRetryInterrupted([&] { return pread(m_direct.Number(), window, kWindow, start); });
    if (got < 0)
        return got;
    const std::size_t length = std::max(static_cast<std::size_t>(got), skipped) - skipped;
    const std::size_t copied = std::min(count, length);
    std::memcpy(buffer, window + skipped, copied);
    return static_cast<ssize_t>(copied);
}

int TQvFreshFile::CorrectSize(std::uint64_t* size) const
{
    if (!m_direct)
        return 0;
    char content[kWindow];
    // Starts before that end: after it the kernel may answer without asking the client.
    std::uint64_t end = *size;
    ssize_t got = 0;
    do {
        end -= std::min<std::uint64_t>(end, kBlock);
        got = ReadAt(end, content, sizeof content);
    } while (got == 0 && end != 0);
    while (got > 0) {
        end += static_cast<std::uint64_t>(got);
        got = ReadAt(end, content, sizeof content);
    }
    *size = end;
    return got < 0 ? errno : 0;
}
