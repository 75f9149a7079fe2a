#include "nodes/FileMountNode.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/NewFile.h"
#include "module/ModuleInitializer.h"
#include "nodes/FolderListing.h"
#include "resid/ResId.h"
#include "storage/ResFileStream.h"

namespace
{
bool Creates(qvOpenMode mode)
{
    return mode == kQvOpenWriteOrCreate || mode == kQvOpenCreate || mode == kQvOpenCreateNew ||
           mode == kQvOpenReadWrite;
}

/// "" where there is no sidecar: a folder's path has none.
std::string SidecarOf(const std::string& path)
{
    return path.empty() || path.back() == '/' ? std::string() : path + kSidecarSuffix;
}

bool IsOneFolder(const std::string& a, const std::string& b)
{
    return QvCompareFiles(QvExtractResPath(a) + ".", QvExtractResPath(b) + ".") !=
           TQvSameness::Different;
}

/// Whether `path` is the sidecar of `resource`, perhaps by another way to the same folder.
bool IsSidecarOf(const std::string& path, const std::string& resource)
{
    constexpr std::string_view kSuffix = kSidecarSuffix;
    if (path.size() < kSuffix.size() ||
        path.compare(path.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0)
        return false; // nearly always, without a text to be made
    return QvExtractResName(path) == QvExtractResName(resource) + kSidecarSuffix &&
           IsOneFolder(path, resource);
}

/// The files of a transfer, and their ids, which its results name.
struct TTransferEnds
{
    std::string From;
    std::string To;
    const std::string& Src;
    const std::string& Dst;
    /// What the content replaces: To, or the target of that link. The sidecar belongs to To.
    std::string ToContent = To;

    TQvResult ByIds(const TQvResult& result) const
    {
        if (result)
            return result;
        const bool isTarget =
            result.Name() == To || result.Name() == ToContent || result.Name() == SidecarOf(To);
        return result.Named(isTarget ? Dst : Src);
    }
};

/// Done when `path` is a file or a link to one.
TQvResult RequireResource(const std::string& path, const std::string& id)
{
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(path, &isFolder);
    if (exists && isFolder)
        return TQvResult::Failed(EISDIR, id);
    return exists.Named(id);
}

/// A folder is no sidecar, and a resource whose name leaves no room for the suffix has none.
TQvResult SidecarExists(const std::string& sidecar, const std::string& id)
{
    TQvResult exists = RequireResource(sidecar, id);
    if (exists.Error() == EISDIR || exists.Error() == ENAMETOOLONG)
        return TQvResult::Nothing(id);
    return exists;
}

/// Done when there is room for the name and no folder of that name.
TQvResult RequireRoomForSidecar(const std::string& sidecar, const std::string& id)
{
    struct stat status = {};
    if (stat(sidecar.c_str(), &status) == 0)
        return S_ISDIR(status.st_mode) ? TQvResult::Failed(EISDIR, id) : TQvResult::Done();
    return errno == ENOENT ? TQvResult::Done() : TQvResult::Failed(errno, id);
}

/// Whether there is a sidecar to copy, and whether the target has room for its name and no folder
/// of that name: checked before the content is changed.
TQvResult LookForSidecar(const TTransferEnds& ends)
{
    TQvResult found = SidecarExists(SidecarOf(ends.From), ends.Src);
    if (!found)
        return found;
    return RequireRoomForSidecar(SidecarOf(ends.To), ends.Dst);
}

/// Done unless the target is the node's own folder.
TQvResult RequirePlace(const TResourceManager::TMountNode& target, const TTransferEnds& ends)
{
    return ends.To == target.GetResourceFile(target.MountPointId())
               ? TQvResult::Failed(EISDIR, ends.Dst)
               : TQvResult::Done();
}

/// A resource cannot take the place of its own sidecar, nor the reverse.
TQvResult RefuseSidecars(const TTransferEnds& ends)
{
    return IsSidecarOf(ends.ToContent, ends.From) || IsSidecarOf(ends.From, ends.ToContent)
               ? TQvResult::Failed(EINVAL, ends.Dst)
               : TQvResult::Done();
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

/// Whether a file named like a folder's sidecar is one.
enum class TFolderSidecar
{
    Kept,
    Deleted
};

/// A new resource must not get the sidecar of an earlier one. A file that cannot be examined may
/// exist, and keeps its sidecar; so does a resource that is being moved, since the moving process
/// has the sidecar locked.
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
    if (isFree && isStale())
        QvDeleteFile(sidecar);
}

TQvResult CopyOnly(const std::string& from, const std::string& to, TQvProgressHandler* progress)
{
    return QvCopyFileEx(from, to, false, progress);
}

/// The content first, then the sidecar of the source; a sidecar at the target stays when the source
/// has none.
template <class TCopy>
TQvTransfer CopyWithSidecar(const TTransferEnds& ends, const TCopy& copy,
                            TQvProgressHandler* progress, bool mayHaveSidecar = true)
{
    assert(!ends.From.empty() && !ends.ToContent.empty());
    const TQvResult sidecar = mayHaveSidecar ? LookForSidecar(ends) : TQvResult::Nothing(ends.Src);
    if (sidecar.HasFailed())
        return {sidecar, {}};
    // A link to the sidecar, too.
    if (sidecar && QvCompareFiles(SidecarOf(ends.From), ends.To) != TQvSameness::Different)
        return {TQvResult::Failed(EINVAL, ends.Dst), {}};
    const TQvResult content = copy(ends.From, ends.ToContent, progress);
    if (!content || !sidecar)
        return {ends.ByIds(content), {}};
    return {content, ends.ByIds(copy(SidecarOf(ends.From), SidecarOf(ends.To), nullptr))};
}

TQvResult DeleteFileAt(const TQvPlace& place)
{
    return unlinkat(place.Folder, place.Name.c_str(), 0) == 0 ? TQvResult::Done()
                                                              : TQvResult::FromErrno();
}

/// `place` is that of `path`.
TQvResult DeleteWithSidecar(TQvPlace place, const std::string& path, const std::string& id,
                            bool mayHaveSidecar)
{
    assert(!place.Name.empty() && path.size() >= place.Name.size());
    if (const TQvResult deleted = DeleteFileAt(place); !deleted || !mayHaveSidecar)
        return deleted.Named(id);
    place.Name += kSidecarSuffix;
    const TQvResult gone = DeleteFileAt(place);
    if (gone || gone.IsNothing() || SidecarExists(SidecarOf(path), id).IsNothing())
        return TQvResult::Done();
    return gone.Named(id);
}

/// A file that was copied, in the state that the copy has.
struct TCopied
{
    std::string Path;
    struct stat Status = {};
};

/// Fails with EBUSY when others have changed the resource or its sidecar since they were copied, or
/// have stored a sidecar.
TQvResult RequireUnchanged(const std::vector<TCopied>& copied, const TTransferEnds& ends)
{
    for (const TCopied& file : copied)
        if (const TQvResult same = QvRequireUnchanged(file.Path, file.Status); !same)
            return same.Named(ends.Src);
    if (copied.size() > 1)
        return TQvResult::Done();
    const TQvResult sidecar = SidecarExists(SidecarOf(ends.From), ends.Src);
    if (sidecar.HasFailed())
        return sidecar;
    return sidecar ? TQvResult::Failed(EBUSY, ends.Src) : TQvResult::Done();
}

/// Across file systems. The source is deleted only when the copy is complete and synced.
TQvTransfer CopyAndDelete(const TTransferEnds& ends, TQvProgressHandler* progress)
{
    const TQvSameness sameness = QvCompareFiles(ends.From, ends.ToContent);
    if (sameness == TQvSameness::OneEntry || sameness == TQvSameness::OtherCase)
        return {TQvResult::Failed(EINVAL, ends.Dst), {}};
    std::vector<TCopied> copied;
    const auto copy = [&copied](const std::string& from, const std::string& to,
                                TQvProgressHandler* ofCopy) {
        copied.push_back({from});
        return QvCopyFileToMove(from, to, ofCopy, &copied.back().Status);
    };
    TQvTransfer done = CopyWithSidecar(ends, copy, progress);
    if (done.Content && done.Sidecar)
        done.Content = RequireUnchanged(copied, ends);
    if (done.Content && done.Sidecar)
        done.Content = DeleteWithSidecar({AT_FDCWD, ends.From}, ends.From, ends.Src, true);
    return done;
}

/// Never 0: a stream that gives no reason has failed, too.
int ReadError(const TQvStream& stream)
{
    return stream.getError() != 0 ? -stream.getError() : EIO;
}

/// A failure to read `content` has no name.
TQvResult WriteContent(TQvStream& content, const std::string& path, const std::string& id,
                       const TQvNewFile::TOptions& options, TQvProgressHandler* progress)
{
    assert(!path.empty());
    TQvNewFile file;
    if (const TQvResult opened = file.Open(path, options); !opened)
        return opened.Named(id);
    TQvResult written;
    const auto write = [&](const char* bytes, std::size_t count) -> bool {
        written = file.Write(bytes, count);
        return written;
    };
    try {
        if (!QvReadBlocks(content, write, progress))
            return written ? TQvResult::Failed(ReadError(content)) : written.Named(id);
    } catch (const TQvUserBreak&) {
        return TQvResult::Failed(ECANCELED);
    }
    return file.Publish().Named(id);
}

/// Shares the sidecar for the time of a move. ENOENT when there is none; EACCES when another opener
/// holds it exclusively, which the removal of a stale sidecar does for a moment only.
int ShareSidecar(const std::string& sidecar, TQvFileStream& hold)
{
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

/// Replacing is allowed where writing is: the caller has the permission, and no other opener has
/// locked the target exclusively.
TQvResult HoldTarget(const TTransferEnds& ends, TQvFileStream& hold)
{
    if (hold.Open(ends.ToContent, kQvOpenWrite, kQvShareAll) || hold.getError() == -ENOENT)
        return TQvResult::Done();
    return TQvResult::Failed(-hold.getError(), ends.Dst);
}

/// By renames. The sidecar is locked meanwhile, so that no opener deletes it as that of an earlier
/// resource.
TQvTransfer RenameWithSidecar(const TTransferEnds& ends, TQvProgressHandler* progress)
{
    const std::string sidecar = SidecarOf(ends.From);
    TQvFileStream hold;
    const int error = ShareSidecar(sidecar, hold);
    if (error != 0 && error != ENOENT)
        return {TQvResult::Failed(error, ends.Src), {}};
    if (error == 0)
        if (const TQvResult fits = LookForSidecar(ends); fits.HasFailed())
            return {fits, {}};
    const TQvResult content = QvMoveFileEx(ends.From, ends.ToContent, true, false);
    if (content.Error() == EXDEV)
        return CopyAndDelete(ends, progress);
    if (!content)
        return {ends.ByIds(content), {}};
    // Checked again: a sidecar may have been stored since.
    if (SidecarExists(sidecar, ends.Src).IsNothing())
        return {};
    const TQvResult moved = QvMoveFileEx(sidecar, SidecarOf(ends.To), true, true);
    return {content, moved.IsNothing() ? TQvResult::Done() : ends.ByIds(moved)};
}
} // namespace

TFileMountNode::TFileMountNode(const std::string& mountPointId, const TQvPath& folder)
    : TMountNode(mountPointId), m_folder(folder.excludeSlash())
{
}

std::string_view TFileMountNode::RelativePart(const std::string& id) const
{
    const std::size_t mountLength = std::min(MountPointId().size(), id.size());
    std::string_view relative = std::string_view(id).substr(mountLength);
    // It begins with a "/", unless the mount point ends with one, as "/" in a profile does.
    if (!relative.empty() && relative.front() == '/')
        relative.remove_prefix(1);
    return relative;
}

std::string TFileMountNode::PathFromId(const std::string& id) const
{
    return (m_folder / RelativePart(id)).toSysStr();
}

TQvJoinedPath TFileMountNode::PathOf(const std::string& id) const
{
    return TQvJoinedPath(m_folder, RelativePart(id));
}

bool TFileMountNode::IsOwnFolder(const std::string& path) const
{
    return TQvPath(path).excludeSlash() == m_folder;
}

/// As SidecarOf; "" for the node's own folder, whose sidecar would be outside of it.
std::string TFileMountNode::MetaPath(const std::string& path) const
{
    return path == m_folder.toSysStr() ? std::string() : SidecarOf(path);
}

var_a<TQvStream*> TFileMountNode::OpenResource(const std::string& id, qvOpenMode mode,
                                               qvShareMode share, unsigned long sizeHint)
{
    auto stream = make_var<TResFileStream>(id);
    // A mode that creates deletes the stale sidecar before the file appears; the others only check
    // for one when the file did not open.
    if (Creates(mode)) {
        std::string path = PathFromId(id);
        // Where the mount's folder was deleted, no file is created in its place.
        if (IsOwnFolder(path))
            path += '/';
        DeleteStaleSidecar(path, MetaPath(path), TFolderSidecar::Deleted);
        stream->Open(path, mode, share);
    } else if (!stream->Open(PathOf(id).c_str(), mode, share)) {
        const std::string path = PathFromId(id);
        DeleteStaleSidecar(path, MetaPath(path), TFolderSidecar::Deleted);
    }
    if (mode == kQvOpenCreate && sizeHint != 0 && *stream) {
        stream->setSize(sizeHint);
        stream->setPosition(0);
    }
    return stream;
}

/// The resource is checked first: a sidecar without a resource must not be opened, and none
/// created.
var_a<TQvStream*> TFileMountNode::OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                                   qvShareMode share, TQvResult* result)
{
    const std::string path = PathFromId(id);
    TQvResult opened = RequireResource(path, id);
    var_a<TQvFileStream*> stream;
    if (opened) {
        stream = TQvFileStream::VCreate(MetaPath(path), mode, share);
        if (!*stream) {
            const int error = -stream->getError();
            const bool isNothing = error == ENOENT || SidecarExists(MetaPath(path), id).IsNothing();
            opened = isNothing && mode == kQvOpenRead ? TQvResult::Nothing(id)
                                                      : TQvResult::Failed(error, id);
            stream.reset();
        } else {
            stream->SetInfoName("qvres:" + id + ":meta");
        }
    }
    if (result != nullptr)
        *result = std::move(opened);
    return stream;
}

TQvResult TFileMountNode::CopyResourceMetaTo(const std::string& src, TMountNode& target,
                                             const std::string& dst)
{
    if (target.GetResourceFile(dst).empty())
        return TMountNode::CopyResourceMetaTo(src, target, dst);
    const TTransferEnds ends{PathFromId(src), target.GetResourceFile(dst), src, dst};
    if (TQvResult source = RequireResource(ends.From, src); !source)
        return source;
    if (TQvResult there = RequireResource(ends.To, dst); !there)
        return there;
    return ends.ByIds(QvCopyFile(SidecarOf(ends.From), SidecarOf(ends.To), false));
}

TQvResult TFileMountNode::DeleteResource(const std::string& id)
{
    const std::string path = PathFromId(id);
    const TQvResult resource = RequireResource(path, id);
    return resource ? DeleteWithSidecar({AT_FDCWD, path}, path, id, true) : resource;
}

TQvResult TFileMountNode::DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper& folders)
{
    // The node above listed a disk file of the mount point's name: no id names that file.
    if (resource.Id.size() <= MountPointId().size())
        return DeleteResource(resource.Id);
    const std::string path = PathFromId(resource.Id);
    return DeleteWithSidecar(folders.Locate(path), path, resource.Id, resource.MayHaveSidecar);
}

/// Checks first, in an order that never changes anything before all of them have passed; then one
/// rename inside the node, or a copy and a delete between two.
TQvTransfer TFileMountNode::MoveResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, TQvProgressHandler* progress)
{
    if (target.GetResourceFile(dst).empty())
        return TMountNode::MoveResourceTo(src, target, dst, progress);
    TTransferEnds ends{PathFromId(src), target.GetResourceFile(dst), src, dst};
    TQvResult allowed = RequireResource(ends.From, src);
    if (allowed)
        allowed = RequirePlace(target, ends);
    if (!allowed)
        return {allowed, {}};
    if (ends.From == ends.To && &target == this)
        return {};
    // A link stays and its target is replaced; a rename would replace the link.
    if (QvIsSymLink(ends.To) && !QvFollowLinks(&ends.ToContent))
        return {TQvResult::Failed(errno, dst), {}};
    if (TQvResult refused = RefuseSidecars(ends); !refused)
        return {refused, {}};
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(ends.ToContent, &isFolder);
    if (there.HasFailed() || isFolder)
        return {TQvResult::Failed(isFolder ? EISDIR : there.Error(), dst), {}};
    if (&target != this)
        return CopyAndDelete(ends, progress);
    TQvFileStream hold;
    const TQvSameness sameness =
        there ? QvCompareFiles(ends.From, ends.ToContent) : TQvSameness::Different;
    if (sameness == TQvSameness::OneEntry)
        return {TQvResult::Failed(EINVAL, dst), {}};
    // Another name of the source is not replaced: its content stays.
    if (there && sameness == TQvSameness::Different)
        if (TQvResult held = HoldTarget(ends, hold); !held)
            return {held, {}};
    return RenameWithSidecar(ends, progress);
}

TQvTransfer TFileMountNode::CopyResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, const TCopyHints& hints,
                                           TQvProgressHandler* progress)
{
    std::string file = target.GetResourceFile(dst);
    if (file.empty())
        return TMountNode::CopyResourceTo(src, target, dst, hints, progress);
    const TTransferEnds ends{PathFromId(src), std::move(file), src, dst};
    TQvResult allowed = RequirePlace(target, ends);
    if (allowed)
        allowed = RefuseSidecars(ends);
    if (!allowed)
        return {allowed, {}};
    if (hints.IsTargetNew) {
        const auto copyToNew = [&](const std::string& from, const std::string& to,
                                   TQvProgressHandler* ofCopy) {
            const TQvResult copied = QvCopyFileToNew(from, to, ofCopy, hints.Folders);
            // The content was just copied: a sidecar that another process left there is replaced as
            // in any copy.
            const bool isSidecar = to != ends.ToContent;
            return isSidecar && copied.Error() == EEXIST ? CopyOnly(from, to, ofCopy) : copied;
        };
        return CopyWithSidecar(ends, copyToNew, progress, hints.MayHaveSidecar);
    }
    // Between two nodes the stale sidecar of a missing target is deleted, as opening the target
    // would do.
    if (&target != this && QvFileExists(SidecarOf(ends.To)) && RequireResource(ends.From, src))
        DeleteStaleSidecar(ends.To, SidecarOf(ends.To), TFolderSidecar::Kept);
    return CopyWithSidecar(ends, &CopyOnly, progress, hints.MayHaveSidecar);
}

/// The new file gets the time of the source before its name, so that no other process sees another
/// time.
TQvResult TFileMountNode::ReceiveResource(const std::string& id, TQvStream& content,
                                          const TIncoming& incoming, TQvProgressHandler* progress)
{
    const std::string path = PathFromId(id);
    if (IsOwnFolder(path))
        return TQvResult::Failed(EISDIR, id);
    if (incoming.HasSidecar)
        if (TQvResult room = RequireRoomForSidecar(MetaPath(path), id); !room)
            return room;
    DeleteStaleSidecar(path, MetaPath(path), TFolderSidecar::Kept);
    TQvNewFile::TOptions options;
    options.FailIfExists = incoming.IsTargetNew;
    options.Synced = incoming.IsSynced;
    if (const std::int64_t time = incoming.UpdateTime.Milliseconds(); time != 0) {
        const std::int64_t seconds = time / 1000 - (time % 1000 < 0 ? 1 : 0);
        options.UpdateTime = timespec{seconds, (time - seconds * 1000) * 1000000};
    }
    return WriteContent(content, path, id, options, progress);
}

TQvResult TFileMountNode::ReceiveResourceMeta(const std::string& id, TQvStream& content,
                                              bool isSynced)
{
    const std::string path = PathFromId(id);
    if (TQvResult resource = RequireResource(path, id); !resource)
        return resource;
    TQvNewFile::TOptions options;
    options.Synced = isSynced;
    return WriteContent(content, MetaPath(path), id, options, nullptr);
}

/// Writers cannot set back the time of the status change.
std::string TFileMountNode::ResourceVersion(const std::string& id) const
{
    const std::string path = PathFromId(id);
    struct stat file = {};
    struct stat sidecar = {};
    if (stat(path.c_str(), &file) != 0)
        return {};
    if (stat(SidecarOf(path).c_str(), &sidecar) != 0 && errno != ENOENT && errno != ENAMETOOLONG)
        return {};
    std::string version;
    for (const struct stat& status : {file, sidecar})
        for (const auto number :
             {static_cast<std::int64_t>(status.st_ino), status.st_size, status.st_mtim.tv_sec,
              status.st_mtim.tv_nsec, status.st_ctim.tv_sec, status.st_ctim.tv_nsec})
            version += std::to_string(number) + ' ';
    return version;
}

TQvResult TFileMountNode::CreateFolder(const std::string& id)
{
    return QvForceDirectories(PathFromId(id)).Named(id);
}

TQvResult TFileMountNode::CreateFolderLike(const std::string& id, const TMountNode& model,
                                           const std::string& modelId)
{
    // A folder above the mount points, or of a node without disk files, has no permission bits.
    const std::string folder = model.GetResourceFile(modelId);
    return folder.empty() ? CreateFolder(id)
                          : QvCreateDirectoryLike(PathFromId(id), folder).Named(id);
}

void TFileMountNode::RenameFolderE(const std::string& id, const std::string& newName,
                                   TQvResult* result)
{
    const std::string newId = QvExtractResPath(id) + newName;
    const std::string path = PathFromId(id);
    TQvResult renamed;
    if (newName.find('\0') != std::string::npos)
        renamed = TQvResult::Failed(EINVAL); // the system would cut the name
    else if (IsOwnFolder(path))
        renamed = TQvResult::Failed(EBUSY);
    else
        renamed = QvMoveFileEx(path, PathFromId(newId), false, false);
    if (result != nullptr)
        *result = renamed.Named(id);
    if (!renamed)
        throw TQvMessage(QvResourceString("global.ErrRenameFolder"))
            << renamed.Error() << QvErrorText(renamed.Error());
}

TQvResult TFileMountNode::DeleteFolder(const std::string& id)
{
    const std::string path = PathFromId(id);
    return IsOwnFolder(path) ? TQvResult::Failed(EBUSY, id) : QvRemoveDirectory(path).Named(id);
}

TQvExistence TFileMountNode::ResourceExists(const std::string& id) const
{
    bool isFolder = false;
    TQvExistence existence;
    existence.Result = QvFileDirExists(PathOf(id).c_str(), &isFolder);
    if (existence.Result)
        existence.Kind = isFolder ? kResFolder : kResResource;
    return existence;
}

TQvResult TFileMountNode::ResourceMetaExists(const std::string& id) const
{
    const std::string path = PathFromId(id);
    TQvResult resource = RequireResource(path, id);
    if (resource.Error() == EISDIR)
        return TQvResult::Nothing(id);
    return resource ? SidecarExists(MetaPath(path), id) : resource;
}

TQvResult TFileMountNode::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    if (attrib == nullptr)
        return TQvResult::Failed(EINVAL, id);
    TQvFileInfo info;
    if (const TQvResult result = QvGetFileInfoAt(AT_FDCWD, PathOf(id).c_str(), &info); !result)
        return result.Named(id);
    attrib->Kind = info.IsFolder ? kResFolder : kResResource;
    attrib->Origin = kOriginFileNode;
    attrib->Size = info.Size;
    attrib->UpdateTime = info.UpdateTime;
    attrib->CreationTime = info.CreationTime;
    return TQvResult::Done();
}

TQvResult TFileMountNode::Find(const var_a<std::vector<TQvResFindItem>*>& items,
                               const std::string& folder, const std::string& mask, unsigned flags,
                               TQvProgressHandler* progress) const
{
    std::string path = PathFromId(folder);
    if ((flags & kFindNoLink) != 0 && IsOwnFolder(path))
        flags &= ~kFindNoLink; // a mount's own folder is followed
    else if ((flags & kFindNoLink) != 0)
        path.resize(path.find_last_not_of('/') + 1); // with a trailing "/" a link would be followed
    return QvListFolder(path, QvIncludeTrailingSlash(folder), mask, flags, progress, items.get());
}

bool TFileMountNode::IsLink(const std::string& id) const
{
    const std::string path = PathFromId(id);
    return !IsOwnFolder(path) && QvIsSymLink(TQvPath(path).excludeSlash().toSysStr());
}

var_a<TQvLockFile*> TFileMountNode::CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                   bool forWriting, const std::string& owner)
{
    const std::string path = PathFromId(id);
    DeleteStaleSidecar(path, MetaPath(path), TFolderSidecar::Kept);
    return TQvLockFile::VCreate(path, forWriting, owner, timeoutMs);
}
