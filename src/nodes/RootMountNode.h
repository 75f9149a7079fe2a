// The virtual node above the mount points: it has "/" and every parent folder of a mount point. It
// can only list and describe these folders; everything else is refused.
//
// Thread-safety: never changes after construction; listings with a mask share one match buffer, so
// two must not run at once.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "manager/ResourceManager.h"

/// The parent folders of the mount points of a table, and the mount points themselves.
class TMountFolders
{
public:
    struct TFolder
    {
        std::string Name; ///< with its leading "/", as the first mount point in the table writes it
        std::size_t MountPoints = 1; ///< in or below it
        bool IsNameOfAll = true;     ///< all of these mount points write it so, as far as known
    };
    /// Keys are the normal forms of the ids.
    using TFolders = std::map<std::string, TFolder>;

    TMountFolders() = default;
    explicit TMountFolders(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes);

    /// Adds a mount point that was appended to the table.
    void Add(const std::string& mountPoint);
    /// Removes a mount point that was removed from it. False, and nothing is changed, when only the
    /// table can show how a folder is spelled now.
    bool Remove(const std::string& mountPoint);
    const TFolders& All() const { return m_folders; }

private:
    TFolders m_folders;
};

class TRootMountNode final : public TResourceManager::TMountNode
{
public:
    /// For the mount points of `nodes`.
    explicit TRootMountNode(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes)
        : TRootMountNode(TMountFolders(nodes))
    {
    }
    explicit TRootMountNode(TMountFolders folders) : TMountNode(""), m_folders(std::move(folders))
    {
    }
    const TMountFolders& Folders() const { return m_folders; }
    /// Moves the folders out: the node must not be used afterwards.
    TMountFolders TakeFolders() { return std::move(m_folders); }

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
    TQvResult DeleteResource(const std::string& id) override { return NoResource(id); }
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
    /// Always throws: the call is a programming error.
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) override;

    TQvResult ReceiveResource(const std::string& id, TQvStream&, const TIncoming&,
                              TQvProgressHandler*) override
    {
        return ReadOnly(id);
    }
    TQvResult ReceiveResourceMeta(const std::string& id, TQvStream&, bool) override
    {
        return ReadOnly(id);
    }

private:
    TQvResult NoResource(const std::string& id) const;
    TQvResult ReadOnly(const std::string& id) const;

    TMountFolders m_folders;
};
