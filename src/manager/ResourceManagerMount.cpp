// The mount table: its indexes, resolution of ids, mounting and unmounting.
#include <algorithm>
#include <cerrno>
#include <memory>

#include "QvConfig/Config.h"
#include "QvStd/FileChange.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ResourceManager.h"
#include "module/Configuration.h"
#include "profiles/ProfileFile.h"
#include "profiles/VarFolderLock.h"
#include "resid/ResId.h"

namespace
{
constexpr char kGetNode4Id[] =
    "@TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::__cxx11::string "
    "&, bool, bool, bool) const: ";
constexpr char kMountFileNodeE[] =
    "@void TResourceManager::MountFileNodeE(const std::__cxx11::string &, const "
    "std::__cxx11::string &, bool): ";
constexpr char kUnmountNodeE[] =
    "@void TResourceManager::UnmountNodeE(const std::__cxx11::string &, bool): ";

/// `error` is the errno that LastFailure has for the reason.
[[noreturn]] void Throw(const char* operation, const std::string& reason, int error,
                        const std::string& id)
{
    TResourceManager::SetLastFailure(error, id);
    throw TQvMessage(operation + reason);
}

[[noreturn]] void ThrowRemote(const char* operation, const std::string& id)
{
    Throw(operation, "Cannot make persistent changes to the remote profile", EROFS, id);
}

/// Of the loaded configuration, whose string 9 is the folder "Config" in it.
TQvPath VarFolder()
{
    const std::string config = TQvPath(QvGetConfigString(9, true)).excludeSlash().toSysStr();
    return TQvPath(config.substr(0, config.rfind('/') + 1));
}

/// Room for the normal form of an id, on the stack where it fits.
class TNormalId
{
public:
    explicit TNormalId(std::size_t length) : m_length(length)
    {
        if (length > sizeof m_short)
            m_long.resize(length);
    }
    char* Data() { return m_long.empty() ? m_short : m_long.data(); }
    operator std::string_view() { return {Data(), m_length}; }

private:
    std::size_t m_length;
    char m_short[256];
    std::string m_long;
};
} // namespace

bool TResourceManager::IsValidResId(const std::string& id, bool forbidWildcards)
{
    return QvIsValidResId(id, forbidWildcards);
}

bool TResourceManager::IsValidResNamePart(const std::string& name, bool forbidWildcards)
{
    return QvIsValidResNamePart(name, forbidWildcards);
}

TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::string& id, bool throwIfNone,
                                                           bool forbidWildcards,
                                                           bool skipExactMountPoint) const
{
    bool isValid = false;
    const PTMountNode node = ResolveNode(id, forbidWildcards, skipExactMountPoint, &isValid);
    if (!isValid)
        Throw(kGetNode4Id, "Invalid resource id " + id, EINVAL, id);
    if (node == nullptr && throwIfNone)
        Throw(kGetNode4Id, "Mount node not found for id " + id, ENOENT, id);
    SetLastFailure(0, id);
    return node;
}

bool TResourceManager::IsReachable(const std::string& id) const
{
    bool isValid = false;
    const bool isReachable = ResolveNode(id, true, false, &isValid) != nullptr;
    SetLastFailure(isReachable ? 0 : isValid ? ENOENT : EINVAL, id);
    return isReachable;
}

TResourceManager::PTMountNode TResourceManager::ResolveNode(const std::string& id,
                                                            bool forbidWildcards,
                                                            bool skipExactMountPoint,
                                                            bool* isValid) const
{
    TNormalId normalId(id.size());
    *isValid = QvCheckAndNormalizeResId(id, forbidWildcards, normalId.Data());
    return *isValid ? FindNode(normalId, skipExactMountPoint) : nullptr;
}

/// Tries the whole id, then what stands before each "/" of it, the longest first: those are all the
/// mount points that can answer. Of several nodes with one normal form the last in the table
/// answers, which is the one the index holds.
TResourceManager::PTMountNode TResourceManager::FindNode(std::string_view normalId,
                                                         bool skipExactMountPoint) const
{
    if (!skipExactMountPoint)
        if (const PTMountNode node = NodeMountedAt(normalId))
            return node;
    for (std::size_t i = normalId.size(); i-- > 0;)
        if (normalId[i] == '/')
            if (const PTMountNode node = NodeMountedAt(normalId.substr(0, i)))
                return node;
    return nullptr;
}

TResourceManager::PTMountNode TResourceManager::NodeMountedAt(std::string_view normalId) const
{
    if (normalId.size() >= m_lengthsInUse.size() || !m_lengthsInUse[normalId.size()])
        return nullptr;
    const auto found = m_nodesByNormalId.find(normalId);
    return found != m_nodesByNormalId.end() ? found->second : nullptr;
}

void TResourceManager::RefreshNodeMaps()
{
    m_nodeLengths.clear();
    m_nodesByNormalId.clear();
    m_nodeIds.clear();
    for (std::uint32_t i = 0; i < m_mountNodes.size(); ++i) {
        const std::string& mountPoint = m_mountNodes[i]->MountPointId();
        m_nodeLengths.emplace(mountPoint.size(), i);
        m_nodeIds[QvNormalizeResId(mountPoint)] = i;
    }
    m_lengthsInUse.assign(m_nodeLengths.empty() ? 0 : m_nodeLengths.rbegin()->first + 1, false);
    for (const auto& [length, index] : m_nodeLengths)
        m_lengthsInUse[length] = true;
    for (const auto& [normalId, index] : m_nodeIds)
        m_nodesByNormalId.emplace(normalId, m_mountNodes[index].get());
}

/// A failed Init leaves nodes that no map knows.
void TResourceManager::RefreshStaleMaps()
{
    if (m_nodeLengths.size() != m_mountNodes.size())
        RefreshNodeMaps();
}

bool TResourceManager::IsMountNode(const std::string& id) const
{
    return NodeMountedAt(QvNormalizeResId(id)) != nullptr;
}

bool TResourceManager::CanMountPersistent() const
{
    return !m_profile.Remote;
}

bool TResourceManager::IsInsideMountedNodes(const std::string& id) const
{
    const TMountNode* node = GetNode4Id(id, false, false, false);
    return node != nullptr && !node->IsPureVirtual();
}

bool TResourceManager::IsInsideMyComputer(const std::string& id) const
{
    return QvNormalizeResId(id).compare(0, m_myComputerFolder.size(), m_myComputerFolder) == 0;
}

unsigned TResourceManager::GetResourceType(const std::string& id) const
{
    return NodeFor(id)->Type();
}

void TResourceManager::RemoveRootNode()
{
    const auto root = std::find_if(m_mountNodes.begin(), m_mountNodes.end(),
                                   [](const auto& node) { return node->Type() == kRootNode; });
    if (root != m_mountNodes.end())
        m_mountNodes.erase(root);
}

void TResourceManager::MountFileNodeE(const std::string& mountPoint, const std::string& path,
                                      bool persistent)
{
    // An empty mount point passes, as an absent id does everywhere.
    if (!QvIsValidResId(mountPoint, true))
        Throw(kMountFileNodeE, "Invalid MountPoint", EINVAL, mountPoint);
    const TQvPath folder = QvExcludeTrailingBackslash(TQvPath(path));
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(folder, &isFolder);
    if (!isFolder)
        Throw(kMountFileNodeE, "Invalid Path", exists ? ENOTDIR : exists.Error(), mountPoint);
    RefreshStaleMaps();
    if (IsMountNode(mountPoint))
        Throw(kMountFileNodeE, "Duplicate node", EEXIST, mountPoint);
    var_a<TMountNode*> node = LoadFileMountNode(mountPoint, folder);
    if (!node)
        Throw(kMountFileNodeE, "Failure mounting node", EIO, mountPoint);

    RemoveRootNode();
    m_mountNodes.push_back(std::move(node));
    m_mountNodes.push_back(LoadRootMountNode());
    RefreshNodeMaps();
    SetLastFailure(0, mountPoint);
    if (!persistent)
        return;

    // The node stays mounted when anything below fails: only the profile file is left as it was.
    ChangeProfile(kMountFileNodeE, mountPoint, [&](TQvProfileNodes& nodes) {
        const std::string loadedKey = toupper_locale(mountPoint);
        const bool isOthers = nodes.count(loadedKey) != 0 && m_profile.Nodes.count(loadedKey) == 0;
        if (nodes.count(mountPoint) != 0 || isOthers)
            Throw(kMountFileNodeE,
                  "Inconsistent profile data: new node not loaded but exists in the profile",
                  EEXIST, mountPoint);
        // The key is the mount point as written, though loading a profile keys by the upper-cased
        // name.
        TQvResourceProfile::TNode& profileNode = nodes[mountPoint];
        profileNode.Kind = kProfileNodePath;
        profileNode.Name = mountPoint;
        profileNode.Path = folder;
    });
}

void TResourceManager::UnmountNodeE(const std::string& mountPoint, bool persistent)
{
    RefreshStaleMaps();
    const auto found = m_nodeIds.find(QvNormalizeResId(mountPoint));
    if (found == m_nodeIds.end())
        Throw(kUnmountNodeE, "Node to unmount does not exist", ENOENT, mountPoint);
    // Kept to the end: the caller may have passed the node's own mount point.
    const var_a<TMountNode*> unmounted = m_mountNodes[found->second];
    m_mountNodes.erase(m_mountNodes.begin() + static_cast<std::ptrdiff_t>(found->second));
    RemoveRootNode();
    m_mountNodes.push_back(LoadRootMountNode());
    RefreshNodeMaps();
    SetLastFailure(0, mountPoint);
    if (!persistent)
        return;

    ChangeProfile(kUnmountNodeE, mountPoint, [&](TQvProfileNodes& nodes) {
        if (nodes.erase(mountPoint) == 0)
            Throw(kUnmountNodeE, "Inconsistent profile data: node does not exist in the profile",
                  ENOENT, mountPoint);
    });
}

void TResourceManager::CheckProfileCanBeSaved(const char* operation,
                                              const std::string& mountPoint) const
{
    if (m_profile.Remote)
        ThrowRemote(operation, mountPoint);
    if (QvConfiguration().getCurProfileName() != m_profile.Name)
        Throw(operation, "Inconsistent profile data", EINVAL, mountPoint);
}

/// Makes one change of the profile, in the file and here: under the lock, on top of what others
/// have changed in the file meanwhile. On failure the file and the profile are left as they were.
void TResourceManager::ChangeProfile(const char* operation, const std::string& mountPoint,
                                     const std::function<void(TQvProfileNodes&)>& change)
{
    CheckProfileCanBeSaved(operation, mountPoint);
    int error = 0;
    const auto lock = [&] {
        try {
            return std::make_unique<TQvVarFolderLock>(VarFolder(), TQvVarFolderLock::kTimeoutMs,
                                                      &error);
        } catch (const TQvMessage&) {
            SetLastFailure(error, mountPoint);
            throw;
        }
    }();
    const TQvPath file(QvGetConfigString(12, true));
    TQvResourceProfile profile;
    const auto changeText = [&](const std::optional<std::string>& text) {
        TQvProfileText old(file, text);
        profile = m_profile;
        if (old.Exists()) {
            profile.Remote = old.Content().Remote;
            profile.Nodes = QvFollowProfileNodes(m_profile.Nodes, old.Content().Nodes);
        }
        if (profile.Remote)
            ThrowRemote(operation, mountPoint);
        change(profile.Nodes);
        return old.With(profile);
    };
    const TQvFileChange done = QvChangeFile(file.toSysStr(), changeText);
    if (!done)
        SetLastFailure(done.Reading ? done.Writing.Error() : done.Reading.Error(), mountPoint);
    QvRequireChangedE(file, done);
    m_profile = std::move(profile);
}
