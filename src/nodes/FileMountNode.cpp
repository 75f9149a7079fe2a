#include "nodes/FileMountNode.h"

#include <cerrno>
#include <system_error>

#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ModuleInitializer.h"
#include "nodes/FolderListing.h"
#include "resid/ResId.h"
#include "storage/ResFileStream.h"

namespace
{
bool Creates(qvOpenMode mode)
{
    return mode == kQvOpenAppend || mode == kQvOpenCreate || mode == kQvOpenCreateNew ||
           mode == kQvOpenReadWrite;
}

/// Whether a move would replace a file by another name of its own: a link would then lead to
/// itself. A file system without letter case may still change the case of a name.
bool WouldLoseItself(const std::string& from, const std::string& to)
{
    return QvIsSameFile(from, to) && from != to && toupper_locale(from) != toupper_locale(to);
}
} // namespace

TFileMountNode::TFileMountNode(const std::string& mountPointId, const TQvPath& folder)
    : TMountNode(mountPointId), m_folder(folder.excludeSlash())
{
}

std::string TFileMountNode::PathFromId(const std::string& id) const
{
    const std::size_t mountLength = MountPointId().size();
    if (id.size() <= mountLength)
        return m_folder.toSysStr();
    return (m_folder / std::string_view(id).substr(mountLength + 1)).toSysStr();
}

bool TFileMountNode::IsOwnFolder(const std::string& path) const
{
    return TQvPath(path).excludeSlash() == m_folder;
}

/// "" where there is no sidecar: a folder's path has none, and that of the node's own folder would
/// lie outside of it.
std::string TFileMountNode::MetaPath(const std::string& path) const
{
    if (path.empty() || path.back() == '/' || path == m_folder.toSysStr())
        return {};
    return path + ".meta";
}

/// An orphaned sidecar never survives into a new resource. A file that cannot be looked at may be
/// there, and keeps its sidecar.
void TFileMountNode::DeleteStaleSidecar(const std::string& path) const
{
    bool isFolder = false;
    if (QvFileDirExists(path, &isFolder) ? isFolder : errno == ENOENT)
        QvDeleteFile(MetaPath(path));
}

var_a<TQvStream*> TFileMountNode::OpenResource(const std::string& id, qvOpenMode mode,
                                               qvShareMode share, unsigned long sizeHint)
{
    const std::string path = PathFromId(id);
    // In a creating mode the sidecar goes before the file appears; in the others a look at the disk
    // is only needed when the file did not open.
    if (Creates(mode))
        DeleteStaleSidecar(path);
    auto stream = make_var<TResFileStream>(id);
    if (!stream->Open(path, mode, share) && !Creates(mode))
        DeleteStaleSidecar(path);
    stream->SetInfoName(stream->URL().std_str());
    if (mode == kQvOpenCreate && sizeHint != 0 && *stream) {
        stream->setSize(sizeHint);
        stream->setPosition(0);
    }
    return stream;
}

var_a<TQvStream*> TFileMountNode::OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                                   qvShareMode share)
{
    const std::string path = PathFromId(id);
    if (!QvFileExists(path))
        return {};
    auto stream = TQvFileStream::VCreate(MetaPath(path), mode, share);
    if (!*stream)
        return {};
    stream->SetInfoName("qvres:" + id + ":meta");
    return stream;
}

bool TFileMountNode::CopyResourceMeta(const std::string& src, const std::string& dst)
{
    const std::string from = PathFromId(src);
    const std::string to = PathFromId(dst);
    return QvFileExists(from) && QvFileExists(to) &&
           QvCopyFile(MetaPath(from), MetaPath(to), false);
}

bool TFileMountNode::DeleteResource(const std::string& id)
{
    const std::string path = PathFromId(id);
    if (!QvFileExists(path) || !QvDeleteFile(path))
        return false;
    const std::string meta = MetaPath(path);
    return QvDeleteFile(meta) || !QvFileExists(meta);
}

bool TFileMountNode::RenMovResource(const std::string& src, const std::string& dst,
                                    TQvProgressHandler*)
{
    const std::string from = PathFromId(src);
    const std::string to = PathFromId(dst);
    const std::string fromMeta = MetaPath(from);
    if (to == fromMeta || from == MetaPath(to) || WouldLoseItself(from, to) ||
        !QvMoveFileEx(from, to, true, true))
        return false;
    return !QvFileExists(fromMeta) || QvMoveFileEx(fromMeta, MetaPath(to), true, true);
}

bool TFileMountNode::CopyResource(const std::string& src, const std::string& dst,
                                  TQvProgressHandler* progress)
{
    const std::string from = PathFromId(src);
    const std::string to = PathFromId(dst);
    const std::string fromMeta = MetaPath(from);
    if (to == fromMeta || from == MetaPath(to) || !QvCopyFileEx(from, to, false, progress))
        return false;
    // A sidecar at the target stays when the source has none: the sidecar follows the source only.
    return !QvFileExists(fromMeta) || QvCopyFile(fromMeta, MetaPath(to), false);
}

bool TFileMountNode::CreateFolder(const std::string& id)
{
    return QvForceDirectories(PathFromId(id));
}

void TFileMountNode::RenameFolderE(const std::string& id, const std::string& newName)
{
    const std::string newId = QvExtractResPath(id) + newName;
    int error = EINVAL; // of a name that the system would cut
    if (newName.find('\0') == std::string::npos) {
        if (QvMoveFileEx(PathFromId(id), PathFromId(newId), false, false))
            return;
        error = errno;
    }
    throw TQvMessage(QvResourceString("global.ErrRenameFolder"))
        << error << std::system_category().message(error);
}

bool TFileMountNode::DeleteFolder(const std::string& id)
{
    const std::string path = PathFromId(id);
    return !IsOwnFolder(path) && QvRemoveDirectory(path);
}

unsigned TFileMountNode::ResourceExists(const std::string& id) const
{
    bool isFolder = false;
    if (!QvFileDirExists(PathFromId(id), &isFolder))
        return kResNothing;
    return isFolder ? kResFolder : kResResource;
}

bool TFileMountNode::ResourceMetaExists(const std::string& id) const
{
    const std::string path = PathFromId(id);
    return QvFileExists(path) && QvFileExists(MetaPath(path));
}

bool TFileMountNode::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    TQvFileInfo info;
    if (attrib == nullptr || !QvGetFileInfo(PathFromId(id), &info))
        return false;
    attrib->Kind = info.IsFolder ? kResFolder : kResResource;
    attrib->Origin = kOriginFileNode;
    attrib->Size = info.Size;
    attrib->UpdateTime = info.UpdateTime;
    attrib->CreationTime = info.CreationTime;
    return true;
}

bool TFileMountNode::Find(const var_a<std::vector<TQvResFindItem>*>& items,
                          const std::string& folder, const std::string& mask, unsigned flags,
                          TQvProgressHandler* progress) const
{
    return QvListFolder(PathFromId(folder), QvIncludeTrailingSlash(folder), mask, flags, progress,
                        items.get());
}

var_a<TQvLockFile*> TFileMountNode::CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                   bool forWriting, const std::string& owner)
{
    const std::string path = PathFromId(id);
    DeleteStaleSidecar(path);
    return TQvLockFile::VCreate(path, forWriting, owner, timeoutMs);
}
