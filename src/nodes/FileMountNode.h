// The node that maps one point of the tree onto one disk folder.
//
// A resource is one file, named as the last part of its id; a folder is one directory; the metadata
// of a resource is in a sidecar, the file of that name with ".meta" appended. Nothing is cached and
// no handle is kept between calls. Failures are answered with their cause; only RenameFolderE
// throws. What was done before a failure is not undone.
//
// No id names a file outside the folder: "." and ".." segments are resolved inside it. The folder
// itself, which an id with ".." may name, has no sidecar and is never deleted, moved or replaced.
// Symbolic links to files are resources; links to folders are folders, but recursion does not enter
// them (IsLink), and removing one removes the link only.
//
// Thread-safety: never changes after construction; all operations may run on any thread at once.
#pragma once

#include <string>
#include <string_view>

#include "QvStd/Path.h"
#include "manager/ResourceManager.h"

class TFileMountNode final : public TResourceManager::TMountNode
{
public:
    TFileMountNode(const std::string& mountPointId, const TQvPath& folder);

    unsigned Type() const override { return TResourceManager::kFileNode; }
    bool IsPureVirtual() const override { return false; }
    /// A stream whether or not the file opened. The sidecar of a missing resource is deleted,
    /// unless another opener has it open: then the resource is being moved.
    var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode, qvShareMode share,
                                   unsigned long sizeHint) override;
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode, qvShareMode share,
                                       TQvResult* result = nullptr) override;
    TQvResult DeleteResource(const std::string& id) override;
    TQvResult CreateFolder(const std::string& id) override;
    /// Renames to `newName` in the parent folder. Throws a TQvMessage with errno and its text.
    void RenameFolderE(const std::string& id, const std::string& newName,
                       TQvResult* result = nullptr) override;
    TQvResult DeleteFolder(const std::string& id) override;
    TQvExistence ResourceExists(const std::string& id) const override;
    TQvResult ResourceMetaExists(const std::string& id) const override;
    TQvResult GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const override;
    TQvResult Find(const var_a<std::vector<TQvResFindItem>*>& items, const std::string& folder,
                   const std::string& mask, unsigned flags,
                   TQvProgressHandler* progress) const override;
    /// The file of the resource, whether or not it exists.
    std::string GetResourceFile(const std::string& id) const override { return PathFromId(id); }
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) override;

    bool IsLink(const std::string& id) const override;
    TQvResult CreateFolderLike(const std::string& id, const TMountNode& model,
                               const std::string& modelId) override;
    /// To a target with disk files by the copies of Files.h, without streams.
    TQvTransfer CopyResourceTo(const std::string& src, TMountNode& target, const std::string& dst,
                               const TCopyHints& hints, TQvProgressHandler* progress) override;
    /// Inside the node a single rename, which does not use `progress`; a copy across file systems,
    /// which links to folders make possible inside one node, too.
    TQvTransfer MoveResourceTo(const std::string& src, TMountNode& target, const std::string& dst,
                               TQvProgressHandler* progress) override;
    TQvResult DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper& folders) override;
    TQvResult CopyResourceMetaTo(const std::string& src, TMountNode& target,
                                 const std::string& dst) override;
    TQvResult ReceiveResource(const std::string& id, TQvStream& content, const TIncoming& incoming,
                              TQvProgressHandler* progress) override;
    TQvResult ReceiveResourceMeta(const std::string& id, TQvStream& content,
                                  bool isSynced) override;
    std::string ResourceVersion(const std::string& id) const override;

    /// The disk path of an id of this node.
    std::string PathFromId(const std::string& id) const;

private:
    /// The same for a single system call.
    TQvJoinedPath PathOf(const std::string& id) const;
    std::string_view RelativePart(const std::string& id) const;
    std::string MetaPath(const std::string& path) const;
    bool IsOwnFolder(const std::string& path) const;

    TQvPath m_folder;
};
