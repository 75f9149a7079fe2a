// What every node can do by its pure functions alone: above all copies and moves by streams, which
// work between any two kinds of nodes.
#include <algorithm>
#include <cerrno>
#include <string_view>

#include "QvStd/Files.h"
#include "QvStd/Path.h"
#include "manager/ResourceManager.h"

using TMountNode = TResourceManager::TMountNode;

namespace
{
/// The attributes of a resource; EISDIR for a folder.
TQvResult RequireResource(const TMountNode& node, const std::string& id, TQvResAttrib* attrib)
{
    const TQvResult found = node.GetResourceAttr(id, attrib);
    return found && attrib->Kind == kResFolder ? TQvResult::Failed(EISDIR, id) : found.Named(id);
}

/// A result without a name is about the stream of the source.
TQvResult NamedByIds(const TQvResult& result, const std::string& src)
{
    return result || !result.Name().empty() ? result : result.Named(src);
}

TQvResult WhyNotOpened(const TQvStream* stream, const std::string& id)
{
    const int error = stream != nullptr ? -stream->getError() : ENOENT;
    return error == ENOENT ? TQvResult::Nothing(id) : TQvResult::Failed(error, id);
}

/// The part of an id after the mount point, without "." and "..".
std::string PartInside(const TMountNode& node, const std::string& id)
{
    const std::size_t length = std::min(id.size(), node.MountPointId().size());
    return (TQvPath("/") / std::string_view(id).substr(length)).toSysStr();
}

/// A resource cannot take the place of its own sidecar, nor the reverse.
bool IsOneTheSidecar(const TMountNode& node, const std::string& src, const TMountNode& target,
                     const std::string& dst)
{
    return node.IsSameResource(src + kSidecarSuffix, target, dst) ||
           node.IsSameResource(src, target, dst + kSidecarSuffix);
}

TQvResult CopyMetaByStreams(TMountNode& node, const std::string& src, TMountNode& target,
                            const std::string& dst, bool isSynced)
{
    TQvResult opened;
    const var_a<TQvStream*> sidecar = node.OpenResourceMeta(src, kQvOpenRead, kQvShareAll, &opened);
    return sidecar ? NamedByIds(target.ReceiveResourceMeta(dst, *sidecar, isSynced), src) : opened;
}

TQvResult AsOne(const TQvTransfer& transfer)
{
    return transfer.Content ? transfer.Sidecar : transfer.Content;
}
} // namespace

TQvResult TMountNode::CopyResourceMeta(const std::string& src, const std::string& dst)
{
    return CopyResourceMetaTo(src, *this, dst);
}

TQvResult TMountNode::RenMovResource(const std::string& src, const std::string& dst,
                                     TQvProgressHandler* progress)
{
    return AsOne(MoveResourceTo(src, *this, dst, progress));
}

TQvResult TMountNode::CopyResource(const std::string& src, const std::string& dst,
                                   TQvProgressHandler* progress)
{
    return AsOne(CopyResourceTo(src, *this, dst, {}, progress));
}

var_a<TQvLockFile*> TMountNode::CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                               bool forWriting, const std::string& owner)
{
    return TQvLockFile::VCreate(GetResourceFile(id), forWriting, owner, timeoutMs);
}

bool TMountNode::IsLink(const std::string&) const
{
    return false;
}

TQvResult TMountNode::CreateFolderLike(const std::string& id, const TMountNode&, const std::string&)
{
    return CreateFolder(id);
}

TQvTransfer TMountNode::CopyResourceTo(const std::string& src, TMountNode& target,
                                       const std::string& dst, const TCopyHints& hints,
                                       TQvProgressHandler* progress)
{
    return CopyByStreams(src, target, dst, hints, false, progress);
}

TQvTransfer TMountNode::CopyByStreams(const std::string& src, TMountNode& target,
                                      const std::string& dst, const TCopyHints& hints,
                                      bool isSynced, TQvProgressHandler* progress)
{
    TQvResAttrib attrib;
    if (const TQvResult source = RequireResource(*this, src, &attrib); !source)
        return {source, {}};
    // These checks come before anything is opened: a refused copy leaves both sides unchanged.
    if (target.IsPureVirtual())
        return {TQvResult::Failed(EROFS, dst), {}};
    if (dst.size() == target.MountPointId().size())
        return {TQvResult::Failed(EISDIR, dst), {}}; // the node's own folder, which has no sidecar
    if (IsSameResource(src, target, dst))
        return {};
    if (IsOneTheSidecar(*this, src, target, dst))
        return {TQvResult::Failed(EINVAL, dst), {}};
    // Before the content: a sidecar that cannot be examined would be lost by a move, and the copy
    // would look complete.
    const TQvResult sidecar = hints.MayHaveSidecar ? ResourceMetaExists(src) : TQvResult::Nothing();
    if (sidecar.HasFailed())
        return {sidecar, {}};
    // Shared: other openers may use the source meanwhile; a move compares its version afterwards.
    const var_a<TQvStream*> content = OpenResource(src, kQvOpenRead, kQvShareAll, 0);
    if (!content || !*content)
        return {WhyNotOpened(content.get(), src), {}};
    TIncoming incoming;
    incoming.UpdateTime = attrib.UpdateTime;
    incoming.HasSidecar = sidecar;
    incoming.IsTargetNew = hints.IsTargetNew;
    incoming.IsSynced = isSynced;
    const TQvResult received =
        NamedByIds(target.ReceiveResource(dst, *content, incoming, progress), src);
    // The sidecar only when its content has arrived: it describes that content.
    if (!received || !sidecar)
        return {received, {}};
    return {received, CopyMetaByStreams(*this, src, target, dst, isSynced)};
}

TQvTransfer TMountNode::MoveResourceTo(const std::string& src, TMountNode& target,
                                       const std::string& dst, TQvProgressHandler* progress)
{
    TQvResAttrib attrib;
    if (const TQvResult source = RequireResource(*this, src, &attrib); !source)
        return {source, {}};
    if (IsSameResource(src, target, dst))
        return {&target == this ? TQvResult::Done() : TQvResult::Failed(EINVAL, dst), {}};
    // Taken before the first byte is read, so that each later write shows.
    const std::string version = ResourceVersion(src);
    TQvTransfer done = CopyByStreams(src, target, dst, {}, true, progress);
    // The source stays: without its sidecar the target is no full replacement.
    if (!done.Content || !done.Sidecar)
        return done;
    // What was written meanwhile is not in the copy. A version that could not be found out may
    // hide that.
    const bool isUnchanged = !version.empty() && ResourceVersion(src) == version;
    done.Content = isUnchanged ? DeleteResource(src) : TQvResult::Failed(EBUSY, src);
    return done;
}

TQvResult TMountNode::DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper&)
{
    return DeleteResource(resource.Id);
}

TQvResult TMountNode::CopyResourceMetaTo(const std::string& src, TMountNode& target,
                                         const std::string& dst)
{
    TQvResAttrib attrib;
    if (TQvResult source = RequireResource(*this, src, &attrib); !source)
        return source;
    if (TQvResult there = RequireResource(target, dst, &attrib); !there)
        return there;
    return IsSameResource(src, target, dst) ? ResourceMetaExists(src).Named(src)
                                            : CopyMetaByStreams(*this, src, target, dst, false);
}

bool TMountNode::IsSameResource(const std::string& id, const TMountNode& other,
                                const std::string& otherId) const
{
    if (&other == this && PartInside(*this, id) == PartInside(*this, otherId))
        return true;
    // Two nodes may show one disk folder, and links may give one file two names.
    const std::string file = GetResourceFile(id);
    const std::string otherFile = other.GetResourceFile(otherId);
    return !file.empty() && !otherFile.empty() &&
           QvCompareFiles(file, otherFile) != TQvSameness::Different;
}

std::string TMountNode::ResourceVersion(const std::string& id) const
{
    TQvResAttrib attrib;
    if (!RequireResource(*this, id, &attrib))
        return {};
    const TQvResult sidecar = ResourceMetaExists(id);
    if (sidecar.HasFailed())
        return {};
    return std::to_string(attrib.Size) + ' ' + std::to_string(attrib.UpdateTime.Milliseconds()) +
           (sidecar ? " with sidecar" : "");
}
