// A node that keeps its resources in memory, written from the contract of TMountNode alone: it
// shows that the manager needs no disk. Its id "/M/f/x" is the entry "/f/x", and sidecars are
// separate entries, as in an object store.
//
// Thread-safety: for one thread.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Path.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
#include "resid/NameMask.h"
#include "resid/ResId.h"
#include "storage/ResStream.h"
#include "support/FolderTree.h"

struct TMemoryEntry
{
    bool IsFolder = false;
    std::string Bytes;
    TQvDateTime Time;
};

inline TQvDateTime QvMemoryTime()
{
    return TQvDateTime::FromQDateTime(QDateTime::currentDateTime());
}

/// By path with a leading "/"; the folder of all has the path "/".
using TMemoryEntries = std::map<std::string, std::shared_ptr<TMemoryEntry>>;

class TMemoryStream final : public virtual TQvResStream
{
public:
    TMemoryStream(const std::string& id, std::shared_ptr<TMemoryEntry> entry, int error)
        : TQvURLStream(ResourceURL(id)), TQvResStream(id), m_entry(std::move(entry)), m_error(error)
    {
    }
    unsigned Type() const override { return kStreamStorage; }
    explicit operator bool() const override { return m_entry != nullptr; }
    std::size_t Read(void* buffer, std::size_t count) override
    {
        const std::size_t start = std::min(m_position, m_entry->Bytes.size());
        const std::size_t got = m_entry->Bytes.copy(static_cast<char*>(buffer), count, start);
        m_position += got;
        return got;
    }
    std::size_t Write(const void* buffer, std::size_t count) override
    {
        m_entry->Bytes.resize(std::max(m_entry->Bytes.size(), m_position));
        m_entry->Bytes.replace(m_position, count, static_cast<const char*>(buffer), count);
        m_position += count;
        m_entry->Time = QvMemoryTime();
        return count;
    }
    std::uint64_t getSize() const override { return m_entry->Bytes.size(); }
    bool setSize(std::uint64_t size) override
    {
        m_entry->Bytes.resize(size);
        return true;
    }
    std::uint64_t getPosition() const override { return m_position; }
    bool setPosition(std::uint64_t position) override
    {
        m_position = position;
        return true;
    }
    bool Flush() override { return true; }
    bool Close() override { return std::exchange(m_entry, nullptr) != nullptr; }
    int getError() const override { return m_error; }

private:
    std::shared_ptr<TMemoryEntry> m_entry;
    int m_error;
    std::size_t m_position = 0;
};

class TMemoryNode final : public TResourceManager::TMountNode
{
public:
    /// Two nodes may show the same entries.
    TMemoryNode(const std::string& mountPoint, std::shared_ptr<TMemoryEntries> entries)
        : TMountNode(mountPoint), m_entries(std::move(entries))
    {
    }

    unsigned Type() const override { return TResourceManager::kFirstHostNode; }
    bool IsPureVirtual() const override { return false; }
    var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode, qvShareMode,
                                   unsigned long sizeHint) override
    {
        const auto stream = Open(id, PathOf(id), mode);
        stream->SetInfoName("qvres:" + id);
        if (*stream && mode == kQvOpenCreate && sizeHint != 0)
            stream->setSize(sizeHint);
        return stream;
    }
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode, qvShareMode,
                                       TQvResult* result = nullptr) override
    {
        TQvResult opened = RequireResource(id);
        const auto stream = Open(id, PathOf(id) + kSidecarSuffix, opened ? mode : 0);
        stream->SetInfoName("qvres:" + id + ":meta");
        if (opened && !*stream)
            opened = Reason(-stream->getError(), id);
        if (result != nullptr)
            *result = opened;
        return opened ? stream : var_a<TQvStream*>();
    }
    TQvResult DeleteResource(const std::string& id) override
    {
        if (TQvResult resource = RequireResource(id); !resource)
            return resource;
        m_entries->erase(PathOf(id));
        if (ResourceAt(PathOf(id) + kSidecarSuffix))
            m_entries->erase(PathOf(id) + kSidecarSuffix);
        return TQvResult::Done();
    }
    TQvResult CreateFolder(const std::string& id) override
    {
        const std::string path = PathOf(id);
        for (std::size_t end = 0; end < path.size();) {
            end = std::min(path.find('/', end + 1), path.size());
            auto& entry = (*m_entries)[path.substr(0, end)];
            if (entry == nullptr)
                entry = std::make_shared<TMemoryEntry>(TMemoryEntry{true, {}, {}});
            else if (!entry->IsFolder)
                return TQvResult::Failed(ENOTDIR, id);
        }
        return TQvResult::Done();
    }
    void RenameFolderE(const std::string& src, const std::string& newName,
                       TQvResult* result = nullptr) override
    {
        const std::string from = PathOf(src), to = PathOf(QvExtractResPath(src) + newName);
        const int error = from == "/"           ? EBUSY
                          : At(from) == nullptr ? ENOENT
                          : At(to) != nullptr   ? EEXIST
                          : IsIn(from, to)      ? EINVAL
                                                : WhyNoPlace(to);
        if (result != nullptr)
            *result = error == 0 ? TQvResult::Done() : Reason(error, src);
        if (error != 0)
            throw TQvMessage(QvResourceString("global.ErrRenameFolder"))
                << error << QvErrorText(error);
        TMemoryEntries renamed;
        for (auto& [path, entry] : *m_entries)
            renamed[IsIn(from, path) ? to + path.substr(from.size()) : path] = entry;
        *m_entries = std::move(renamed);
    }
    TQvResult DeleteFolder(const std::string& id) override
    {
        const std::string path = PathOf(id);
        const TMemoryEntry* folder = At(path);
        if (folder == nullptr || !folder->IsFolder)
            return folder == nullptr ? TQvResult::Nothing(id) : TQvResult::Failed(ENOTDIR, id);
        const auto isBelow = [&](const auto& entry) {
            return entry.first != path && IsIn(path, entry.first);
        };
        if (path == "/" || std::any_of(m_entries->begin(), m_entries->end(), isBelow))
            return TQvResult::Failed(path == "/" ? EBUSY : ENOTEMPTY, id);
        m_entries->erase(path);
        return TQvResult::Done();
    }
    TQvExistence ResourceExists(const std::string& id) const override
    {
        const TMemoryEntry* entry = At(PathOf(id));
        if (entry == nullptr || (!entry->IsFolder && id.back() == '/'))
            return {kResNothing, TQvResult::Nothing(id)};
        return {entry->IsFolder ? kResFolder : kResResource, TQvResult::Done()};
    }
    TQvResult ResourceMetaExists(const std::string& id) const override
    {
        return ResourceAt(PathOf(id)) && ResourceAt(PathOf(id) + kSidecarSuffix)
                   ? TQvResult::Done()
                   : TQvResult::Nothing(id);
    }
    TQvResult GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const override
    {
        const TQvExistence exists = ResourceExists(id);
        if (attrib == nullptr || !exists.Result)
            return attrib == nullptr ? TQvResult::Failed(EINVAL, id) : exists.Result;
        *attrib = AttribOf(*At(PathOf(id)));
        return TQvResult::Done();
    }
    TQvResult Find(const var_a<std::vector<TQvResFindItem>*>& items, const std::string& folder,
                   const std::string& mask, unsigned flags,
                   TQvProgressHandler* progress) const override
    {
        const std::string parent = QvIncludeTrailingSlash(PathOf(folder));
        const TNameMask nameMask(mask), sidecars(std::string("?*") + kSidecarSuffix);
        bool isFound = false;
        for (const auto& [path, entry] : *m_entries) {
            const std::string name = QvExtractResName(path);
            if (name.empty() || QvExtractResPath(path) != parent)
                continue;
            QvPollProgress(progress);
            const bool isHidden = name[0] == '.' && (flags & kFindHidden) == 0;
            const bool isWanted = (flags & (entry->IsFolder ? kFindFolders : kFindResources)) != 0;
            if (isHidden || !isWanted || sidecars.Matches(name) || !nameMask.Matches(name))
                continue;
            isFound = true;
            if (!items)
                break;
            items->push_back({QvIncludeTrailingSlash(folder) + name, AttribOf(*entry),
                              ResourceAt(path + kSidecarSuffix)});
            if ((flags & kFindAttributes) == 0)
                items->back().Attrib = {items->back().Attrib.Kind, kOriginFileNode, 0, {}, {}};
        }
        return isFound ? TQvResult::Done() : TQvResult::Nothing(folder);
    }
    std::string GetResourceFile(const std::string&) const override { return {}; }
    TQvResult ReceiveResource(const std::string& id, TQvStream& content, const TIncoming& incoming,
                              TQvProgressHandler* progress) override
    {
        const std::string path = PathOf(id);
        const TMemoryEntry* sidecar = At(path + kSidecarSuffix);
        if (incoming.HasSidecar && sidecar != nullptr && sidecar->IsFolder)
            return TQvResult::Failed(EISDIR, id);
        if (incoming.IsTargetNew && At(path) != nullptr)
            return TQvResult::Failed(EEXIST, id);
        return Receive(id, path, content, incoming.UpdateTime, progress);
    }
    TQvResult ReceiveResourceMeta(const std::string& id, TQvStream& content, bool) override
    {
        const TQvResult resource = RequireResource(id);
        return resource ? Receive(id, PathOf(id) + kSidecarSuffix, content, {}, nullptr) : resource;
    }
    bool IsSameResource(const std::string& id, const TMountNode& other,
                        const std::string& otherId) const override
    {
        const auto* node = dynamic_cast<const TMemoryNode*>(&other);
        return node != nullptr && node->m_entries == m_entries &&
               PathOf(id) == node->PathOf(otherId);
    }

private:
    std::string PathOf(const std::string& id) const
    {
        const std::string inside = id.substr(std::min(id.size(), MountPointId().size()));
        return QvExcludeTrailingSlash((TQvPath("/") / inside).toSysStr());
    }
    TMemoryEntry* At(const std::string& path) const
    {
        const auto entry = m_entries->find(path);
        return entry != m_entries->end() ? entry->second.get() : nullptr;
    }
    bool ResourceAt(const std::string& path) const
    {
        return At(path) != nullptr && !At(path)->IsFolder;
    }
    static bool IsIn(const std::string& folder, const std::string& path)
    {
        return path == folder || path.compare(0, folder.size() + 1, folder + '/') == 0;
    }
    static TQvResAttrib AttribOf(const TMemoryEntry& entry)
    {
        return {entry.IsFolder ? kResFolder : kResResource, kOriginFileNode, entry.Bytes.size(),
                entry.Time, entry.Time};
    }
    static TQvResult Reason(int error, const std::string& id)
    {
        return error == ENOENT ? TQvResult::Nothing(id) : TQvResult::Failed(error, id);
    }
    TQvResult RequireResource(const std::string& id) const
    {
        const TQvExistence exists = ResourceExists(id);
        return exists == kResFolder ? TQvResult::Failed(EISDIR, id) : exists.Result;
    }
    /// 0 when a resource can have that path.
    int WhyNoPlace(const std::string& path) const
    {
        if (At(path) != nullptr)
            return At(path)->IsFolder ? EISDIR : 0;
        const TMemoryEntry* parent = At(QvExcludeTrailingSlash(QvExtractResPath(path)));
        return parent == nullptr ? ENOENT : parent->IsFolder ? 0 : ENOTDIR;
    }
    /// A new entry does not get the sidecar of an earlier one.
    TMemoryEntry& Made(const std::string& path)
    {
        auto& entry = (*m_entries)[path];
        if (entry == nullptr) {
            entry = std::make_shared<TMemoryEntry>();
            if (ResourceAt(path + kSidecarSuffix))
                m_entries->erase(path + kSidecarSuffix);
        }
        return *entry;
    }
    var_a<TQvStream*> Open(const std::string& id, const std::string& path, qvOpenMode mode)
    {
        const bool mustExist = mode == kQvOpenWrite || mode == kQvOpenRead;
        int error =
            mode < kQvOpenWriteOrCreate || mode > kQvOpenReadWrite ? EINVAL : WhyNoPlace(path);
        if (error == 0 && (At(path) == nullptr ? mustExist : mode == kQvOpenCreateNew))
            error = mustExist ? ENOENT : EEXIST;
        if (error != 0)
            return make_var<TMemoryStream>(id, nullptr, -error);
        if (mode == kQvOpenCreate || At(path) == nullptr)
            Made(path).Bytes.clear();
        return make_var<TMemoryStream>(id, m_entries->at(path), 0);
    }
    TQvResult Receive(const std::string& id, const std::string& path, TQvStream& content,
                      TQvDateTime time, TQvProgressHandler* progress)
    {
        if (const int error = WhyNoPlace(path))
            return Reason(error, id);
        std::string bytes;
        const auto append = [&bytes](const char* block, std::size_t count) {
            bytes.append(block, count);
            return true;
        };
        try {
            if (!QvReadBlocks(content, append, progress))
                return TQvResult::Failed(-content.getError());
        } catch (const TQvUserBreak&) {
            return TQvResult::Failed(ECANCELED);
        }
        TMemoryEntry& entry = Made(path);
        entry.Bytes = std::move(bytes);
        entry.Time = time != TQvDateTime() ? time : QvMemoryTime();
        return TQvResult::Done();
    }

    std::shared_ptr<TMemoryEntries> m_entries;
};

/// What the folder `from` holds, links left out.
inline void LoadEntries(const std::string& from, TMemoryEntries& entries)
{
    namespace fs = std::filesystem;
    entries.clear();
    entries["/"] = std::make_shared<TMemoryEntry>(TMemoryEntry{true, {}, {}});
    if (!fs::exists(from))
        return;
    for (const fs::directory_entry& item : fs::recursive_directory_iterator(from)) {
        if (item.is_symlink())
            continue;
        const std::string path = item.path().string();
        entries[path.substr(from.size())] = std::make_shared<TMemoryEntry>(
            TMemoryEntry{item.is_directory(), item.is_directory() ? "" : ReadFile(path),
                         TQvPath(path).updateTime()});
    }
}

/// The reverse; without entries no folder is made.
inline void SaveEntries(const TMemoryEntries& entries, const std::string& to)
{
    std::string tree;
    for (const auto& [path, entry] : entries)
        tree += path.substr(1) + (entry->IsFolder ? "/ " : "=" + entry->Bytes + " ");
    if (std::filesystem::exists(to) || entries.size() > 1) {
        std::filesystem::create_directories(to);
        MakeTree(to, tree);
    }
}
