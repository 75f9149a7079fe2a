// The virtual node above the mount points: it answers for "/" and for every folder on the way to a
// mount point. It can only list and describe those folders; everything else is refused.
//
// Thread-safety: never changes after construction; a listing with a mask uses one match buffer for
// all and must not run twice at once.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "manager/ResourceManager.h"

class TRootMountNode final : public TResourceManager::TMountNode
{
public:
    /// For the mount points of `nodes`.
    explicit TRootMountNode(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes);

    unsigned Type() const override { return TResourceManager::kRootNode; }
    bool IsPureVirtual() const override { return true; }
    var_a<TQvStream*> OpenResource(const std::string&, qvOpenMode, qvShareMode,
                                   unsigned long) override
    {
        return {};
    }
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode, qvShareMode,
                                       TQvResult* result = nullptr) override
    {
        if (result != nullptr)
            *result = TQvResult::Nothing(id);
        return {};
    }
    TQvResult CopyResourceMeta(const std::string& src, const std::string&) override
    {
        return NoResource(src);
    }
    TQvResult DeleteResource(const std::string& id) override { return NoResource(id); }
    TQvResult RenMovResource(const std::string& src, const std::string&,
                             TQvProgressHandler*) override
    {
        return NoResource(src);
    }
    TQvResult CopyResource(const std::string& src, const std::string&, TQvProgressHandler*) override
    {
        return NoResource(src);
    }
    TQvResult CreateFolder(const std::string& id) override { return ReadOnly(id); }
    /// Always throws.
    void RenameFolderE(const std::string& src, const std::string& newName,
                       TQvResult* result = nullptr) override;
    TQvResult DeleteFolder(const std::string& id) override { return ReadOnly(id); }
    TQvExistence ResourceExists(const std::string& id) const override;
    TQvResult ResourceMetaExists(const std::string&) const override { return TQvResult::Nothing(); }
    TQvResult GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const override;
    TQvResult Find(const var_a<std::vector<TQvResFindItem>*>& items, const std::string& folder,
                   const std::string& mask, unsigned flags,
                   TQvProgressHandler* progress) const override;
    std::string GetResourceFile(const std::string&) const override { return {}; }
    /// Always throws: asking for it is a programming error.
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) override;

    bool IsLink(const std::string&) const override { return false; }
    TQvResult CreateFolderLike(const std::string& id, const TMountNode&,
                               const std::string&) override
    {
        return ReadOnly(id);
    }
    TQvTransfer CopyResourceTo(const std::string& src, const TMountNode&, const std::string&,
                               const TCopyHints&, TQvProgressHandler*) override
    {
        return {NoResource(src), {}};
    }
    TQvTransfer MoveResourceTo(const std::string& src, const TMountNode&, const std::string&,
                               TQvProgressHandler*) override
    {
        return {NoResource(src), {}};
    }
    TQvResult DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper&) override
    {
        return NoResource(resource.Id);
    }
    TQvResult CopyResourceMetaTo(const std::string& src, const TMountNode&,
                                 const std::string&) override
    {
        return NoResource(src);
    }

private:
    void AddFolders(std::string id);
    TQvResult NoResource(const std::string& id) const;
    TQvResult ReadOnly(const std::string& id) const;

    /// Normal form of a folder's id -> the folder's name with its leading "/", as it is to be
    /// shown.
    std::map<std::string, std::string> m_folders;
};
