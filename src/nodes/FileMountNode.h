// The node that maps one point of the tree onto one disk folder.
//
// A resource is one file, named as the last part of its id; a folder is one directory; a resource's
// metadata lies beside it in a sidecar named like the file plus ".meta". Nothing is cached and no
// handle is kept between calls. Failures are answered with false, 0 or an empty reference; only
// RenameFolderE throws. What was done before a failure is not undone.
//
// No id leads outside the folder: "." and ".." segments are resolved inside it, and the folder
// itself, which a ".." may lead to, has no sidecar and is never deleted. Symbolic links in the
// folder are followed.
//
// Thread-safety: never changes after construction; all operations may run on any thread at once.
#pragma once

#include <string>

#include "QvStd/Path.h"
#include "manager/ResourceManager.h"

class TFileMountNode final : public TResourceManager::TMountNode
{
public:
    TFileMountNode(const std::string& mountPointId, const TQvPath& folder);

    unsigned Type() const override { return TResourceManager::kFileNode; }
    bool IsPureVirtual() const override { return false; }
    /// A stream whether or not the file opened. The sidecar of a resource that is not there is
    /// deleted.
    var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode, qvShareMode share,
                                   unsigned long sizeHint) override;
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                       qvShareMode share) override;
    bool CopyResourceMeta(const std::string& src, const std::string& dst) override;
    bool DeleteResource(const std::string& id) override;
    /// A single rename: `progress` is not used.
    bool RenMovResource(const std::string& src, const std::string& dst,
                        TQvProgressHandler* progress) override;
    bool CopyResource(const std::string& src, const std::string& dst,
                      TQvProgressHandler* progress) override;
    bool CreateFolder(const std::string& id) override;
    /// Renames to `newName` beside the folder. Throws with errno and its text.
    void RenameFolderE(const std::string& id, const std::string& newName) override;
    bool DeleteFolder(const std::string& id) override;
    unsigned ResourceExists(const std::string& id) const override;
    bool ResourceMetaExists(const std::string& id) const override;
    bool GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const override;
    bool Find(const var_a<std::vector<TQvResFindItem>*>& items, const std::string& folder,
              const std::string& mask, unsigned flags, TQvProgressHandler* progress) const override;
    /// The file that holds the resource, whether or not it exists.
    std::string GetResourceFile(const std::string& id) const override { return PathFromId(id); }
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) override;

    /// The disk path of an id at or below the mount point.
    std::string PathFromId(const std::string& id) const;

private:
    std::string MetaPath(const std::string& path) const;
    void DeleteStaleSidecar(const std::string& path) const;
    bool IsOwnFolder(const std::string& path) const;

    TQvPath m_folder;
};
