#include "DiskMove.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <QvServices/QvServices.h>
#include <QvStd/FileStream.h>

namespace
{
/// As the disk says it to the sender of the request.
bool IsReadable(const std::string& path)
{
    return faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
}

/// Shares `path` with its other openers. EACCES when one has it for itself; 0, too, for what may
/// not be read, because others cannot hold it either.
int Share(const std::string& path, TQvFileStream& hold)
{
    if (hold.Open(path, kQvOpenRead, kQvShareAll))
        return 0;
    const int error = -hold.getError();
    return error == EACCES && !IsReadable(path) ? 0 : error;
}

/// Who removes a stale sidecar holds it for a moment.
int ShareSidecar(const std::string& sidecar, TQvFileStream& hold)
{
    constexpr int kTries = 50;
    constexpr auto kPause = std::chrono::milliseconds(2);
    int error = Share(sidecar, hold);
    for (int i = 1; i < kTries && error == EACCES; ++i) {
        std::this_thread::sleep_for(kPause);
        error = Share(sidecar, hold);
    }
    return error;
}

bool IsFolder(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}
} // namespace

TDiskMove MoveOnDisk(const std::string& from, const std::string& to, bool mustBeNew)
{
    struct stat source = {};
    struct stat there = {};
    if (lstat(from.c_str(), &source) != 0)
        return {errno, false};
    TQvFileStream holdTarget;
    if (!mustBeNew && lstat(to.c_str(), &there) == 0) {
        if (S_ISDIR(there.st_mode))
            return {EISDIR, false};
        // Two names of one file: as on a disk nothing happens.
        if (there.st_dev == source.st_dev && there.st_ino == source.st_ino)
            return {};
        const int error = S_ISREG(there.st_mode) ? Share(to, holdTarget) : 0;
        if (error != 0 && error != ENOENT)
            return {error, false};
    }
    const std::string sidecar = from + kSidecarSuffix;
    const std::string newSidecar = to + kSidecarSuffix;
    // Held meanwhile, so that no opener takes it for one left over from an earlier file. A folder
    // is no sidecar, and a name that is too long for one has none.
    TQvFileStream hold;
    const int held = ShareSidecar(sidecar, hold);
    const bool hasNone = held == ENOENT || held == EISDIR || held == EINVAL || held == ENAMETOOLONG;
    if (held != 0 && !hasNone)
        return {held, false};
    if (!hasNone && IsFolder(newSidecar))
        return {EISDIR, false};
    const unsigned flags = mustBeNew ? RENAME_NOREPLACE : 0;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) != 0)
        return {errno, false};
    // Tried even so: one may have been stored since.
    const bool isGone = IsFolder(sidecar) || rename(sidecar.c_str(), newSidecar.c_str()) == 0 ||
                        errno == ENOENT || errno == ENAMETOOLONG;
    return {isGone ? 0 : errno, true};
}
