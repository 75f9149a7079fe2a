#include "nodes/FileMountNode.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "module/ModuleInitializer.h"
#include "nodes/FolderListing.h"
#include "nodes/Sidecar.h"
#include "resid/ResId.h"
#include "storage/ResFileStream.h"

namespace
{
bool Creates(qvOpenMode mode)
{
    return mode == kQvOpenWriteOrCreate || mode == kQvOpenCreate || mode == kQvOpenCreateNew ||
           mode == kQvOpenReadWrite;
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

/// Compared as texts: `path` begins with the folder's, and every creating open comes through here.
bool TFileMountNode::IsOwnFolder(const std::string& path) const
{
    const std::size_t last = path.find_last_not_of('/');
    return path.compare(0, last == std::string::npos ? 1 : last + 1, m_folder.toSysStr()) == 0;
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
    // Only a hint: a disk without that much space fails at the write that needs it.
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
            // A folder or a special file of that name is no sidecar either.
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

/// Writers cannot set back the time of the status change.
std::string TFileMountNode::ResourceVersion(const std::string& id) const
{
    const std::string path = PathFromId(id);
    struct stat file = {};
    struct stat sidecar = {};
    if (stat(path.c_str(), &file) != 0)
        return {};
    // A sidecar that is missing is part of the version, too: one that appears changes it.
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
    // The mount point would stay in the tree without a folder.
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
