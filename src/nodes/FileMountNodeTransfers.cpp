#include "nodes/FileMountNode.h"

#include <cassert>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/NewFile.h"
#include "nodes/Sidecar.h"

namespace
{
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
