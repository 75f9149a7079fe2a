#include "nodes/Sidecar.h"

#include <cassert>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "resid/ResAttrib.h"
#include "resid/ResId.h"

namespace
{
bool IsOneFolder(const std::string& a, const std::string& b)
{
    return QvCompareFiles(QvExtractResPath(a) + ".", QvExtractResPath(b) + ".") !=
           TQvSameness::Different;
}

/// Whether an open file is still the one at the path.
bool IsAt(const std::string& path, const TQvFileStream& file)
{
    assert(file);
    struct stat opened = {};
    struct stat there = {};
    return fstat(file.Descriptor(), &opened) == 0 && stat(path.c_str(), &there) == 0 &&
           QvIsSameInode(opened, there);
}

/// With the rights that opening it would have: a thread may have another identity than its process.
bool Allows(const std::string& path, int access)
{
    return faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0;
}

TQvResult DeleteFileAt(const TQvPlace& place)
{
    return unlinkat(place.Folder, place.Name.c_str(), 0) == 0 ? TQvResult::Done()
                                                              : TQvResult::FromErrno();
}
} // namespace

std::string SidecarOf(const std::string& path)
{
    return path.empty() || path.back() == '/' ? std::string() : path + kSidecarSuffix;
}

bool IsSidecarOf(const std::string& path, const std::string& resource)
{
    constexpr std::string_view kSuffix = kSidecarSuffix;
    if (path.size() < kSuffix.size() ||
        path.compare(path.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0)
        return false; // nearly always, without a text to be made
    return QvExtractResName(path) == QvExtractResName(resource) + kSidecarSuffix &&
           IsOneFolder(path, resource);
}

TQvResult RequireResource(const std::string& path, const std::string& id)
{
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(path, &isFolder);
    if (exists && isFolder)
        return TQvResult::Failed(EISDIR, id);
    return exists.Named(id);
}

TQvResult SidecarExists(const std::string& sidecar, const std::string& id)
{
    TQvResult exists = RequireResource(sidecar, id);
    if (exists.Error() == EISDIR || exists.Error() == ENAMETOOLONG)
        return TQvResult::Nothing(id);
    return exists;
}

TQvResult RequireRoomForSidecar(const std::string& sidecar, const std::string& id)
{
    struct stat status = {};
    if (stat(sidecar.c_str(), &status) == 0)
        return S_ISDIR(status.st_mode) ? TQvResult::Failed(EISDIR, id) : TQvResult::Done();
    // ENAMETOOLONG fails here, before the content is changed.
    return errno == ENOENT ? TQvResult::Done() : TQvResult::Failed(errno, id);
}

void DeleteStaleSidecar(const std::string& path, const std::string& sidecar,
                        TFolderSidecar ofFolder)
{
    // Most resources have none, and nothing else is asked for them.
    if (!Allows(sidecar, F_OK) && errno == ENOENT)
        return;
    const auto isStale = [&] {
        bool isFolder = false;
        const TQvResult exists = QvFileDirExists(path, &isFolder);
        return exists ? isFolder && ofFolder == TFolderSidecar::Deleted : exists.IsNothing();
    };
    if (!isStale())
        return;
    assert(sidecar.empty() || sidecar == path + kSidecarSuffix); // else a resource would be deleted
    constexpr qvShareMode kForItself = 0;
    TQvFileStream hold;
    // A sidecar that may not be read cannot be locked, also not by a process that moves it.
    const bool isFree = hold.Open(sidecar, kQvOpenRead, kForItself)
                            ? IsAt(sidecar, hold)
                            : !Allows(sidecar, R_OK) && errno == EACCES;
    // Asked again under the lock: a resource may have been created meanwhile, with this sidecar.
    if (isFree && isStale())
        QvDeleteFile(sidecar);
}

TQvResult DeleteWithSidecar(TQvPlace place, const std::string& path, const std::string& id,
                            bool mayHaveSidecar)
{
    assert(!place.Name.empty() && path.size() >= place.Name.size());
    if (const TQvResult deleted = DeleteFileAt(place); !deleted || !mayHaveSidecar)
        return deleted.Named(id);
    // The resource first: a sidecar without one is deleted by the next opener, a resource without
    // its sidecar would lose its label.
    place.Name += kSidecarSuffix;
    const TQvResult gone = DeleteFileAt(place);
    if (gone || gone.IsNothing() || SidecarExists(SidecarOf(path), id).IsNothing())
        return TQvResult::Done();
    return gone.Named(id);
}

int ShareSidecar(const std::string& sidecar, TQvFileStream& hold)
{
    // Together a tenth of a second: deleting a stale sidecar takes a few system calls.
    constexpr int kTries = 50;
    constexpr auto kPause = std::chrono::milliseconds(2);
    for (int i = 0; i < kTries; ++i) {
        if (i > 0)
            std::this_thread::sleep_for(kPause);
        if (hold.Open(sidecar, kQvOpenRead, kQvShareAll) && IsAt(sidecar, hold))
            return 0;
        const int error = -hold.getError();
        if (error == ENOENT || error == EISDIR || error == EINVAL)
            return ENOENT; // a folder is no sidecar, nor is what is no file
        // A sidecar that may not be read cannot be locked, also not by a process that removes it.
        if (!Allows(sidecar, R_OK))
            return 0;
        if (error != 0 && error != EACCES)
            return error;
    }
    return EACCES;
}
