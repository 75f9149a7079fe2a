// The mount table: its indexes, resolution of ids, mounting and unmounting.
#include <cassert>
#include <cerrno>
#include <memory>

#include "QvConfig/Config.h"
#include "QvStd/FileChange.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/MountIndex.h"
#include "manager/ResourceManager.h"
#include "module/Configuration.h"
#include "profiles/ProfileFile.h"
#include "profiles/VarFolderLock.h"
#include "resid/NormalResId.h"
#include "resid/ResId.h"

namespace
{
constexpr char kGetNode4Id[] =
    "@TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::__cxx11::string "
    "&, bool, bool, bool) const: ";
constexpr char kMountFileNodeE[] =
    "@void TResourceManager::MountFileNodeE(const std::__cxx11::string &, const "
    "std::__cxx11::string &, bool): ";
constexpr char kMountNodeE[] = "@void TResourceManager::MountNodeE(const var_a<TMountNode*> &): ";
constexpr char kUnmountNodeE[] =
    "@void TResourceManager::UnmountNodeE(const std::__cxx11::string &, bool): ";

/// `error` is the errno that LastFailure has for the reason.
[[noreturn]] void Throw(const char* operation, const std::string& reason, int error,
                        const std::string& id)
{
    TResourceManager::SetLastFailure(error, id);
    throw TQvMessage(operation + reason);
}

/// Another computer publishes a remote profile, and the next update would replace what is written
/// here.
[[noreturn]] void ThrowRemote(const char* operation, const std::string& id)
{
    Throw(operation, "Cannot make persistent changes to the remote profile", EROFS, id);
}

/// That of the loaded configuration: the parent folder of its string 9, the folder "Config".
TQvPath VarFolder()
{
    const std::string config = TQvPath(QvGetConfigString(9, true)).excludeSlash().toSysStr();
    return TQvPath(config.substr(0, config.rfind('/') + 1));
}
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
    // Success, too, also without a node: the caller of this function gets an answer, and an earlier
    // failure must not be taken for its own.
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
    const TNormalResId normalId(id, forbidWildcards);
    *isValid = normalId.IsValid();
    if (!*isValid)
        return nullptr;
    const std::uint32_t place = m_mountIndex->Resolve(normalId, skipExactMountPoint);
    assert(place == TMountIndex::kNone || place < m_mountNodes.size());
    return place != TMountIndex::kNone ? m_mountNodes[place].get() : nullptr;
}

void TResourceManager::RefreshNodeMaps()
{
    m_mountIndex->Clear();
    for (const auto& node : m_mountNodes)
        m_mountIndex->Add(node->MountPointId());
}

/// A failed Init leaves nodes that are in no index.
void TResourceManager::RefreshStaleMaps()
{
    if (m_mountIndex->Lengths().size() != m_mountNodes.size())
        RefreshNodeMaps();
}

/// An id that is not valid is no mount point: nothing is thrown.
bool TResourceManager::IsMountNode(const std::string& id) const
{
    return m_mountIndex->Find(QvNormalizeResId(id)) != TMountIndex::kNone;
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

/// Compares texts, since nothing need exist there.
bool TResourceManager::IsInsideMyComputer(const std::string& id) const
{
    return QvNormalizeResId(id).compare(0, m_myComputerFolder.size(), m_myComputerFolder) == 0;
}

unsigned TResourceManager::GetResourceType(const std::string& id) const
{
    return NodeFor(id)->Type();
}

void TResourceManager::MountFileNodeE(const std::string& mountPoint, const std::string& path,
                                      bool persistent)
{
    // An empty mount point is accepted, as an empty id is everywhere.
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

    // In the table before the profile: a profile that cannot be written must not prevent the mount
    // for this run.
    AddToTable(std::move(node));
    SetLastFailure(0, mountPoint);
    if (!persistent)
        return;

    // The node stays mounted when anything below fails: only the profile file is left as it was.
    ChangeProfile(kMountFileNodeE, mountPoint, [&](TQvProfileNodes& nodes) {
        const std::string loadedKey = toupper_locale(mountPoint);
        // Another process has mounted there since this one read the profile: the file would get two
        // entries for one mount point.
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

void TResourceManager::MountNodeE(const var_a<TMountNode*>& node)
{
    if (!node || node->Type() == kRootNode)
        Throw(kMountNodeE, "Invalid node", EINVAL, "");
    const std::string& mountPoint = node->MountPointId();
    if (!QvIsValidResId(mountPoint, true))
        Throw(kMountNodeE, "Invalid MountPoint", EINVAL, mountPoint);
    RefreshStaleMaps();
    if (IsMountNode(mountPoint))
        Throw(kMountNodeE, "Duplicate node", EEXIST, mountPoint);
    AddToTable(node);
    SetLastFailure(0, mountPoint);
}

void TResourceManager::UnmountNodeE(const std::string& mountPoint, bool persistent)
{
    RefreshStaleMaps();
    const std::uint32_t place = m_mountIndex->Find(QvNormalizeResId(mountPoint));
    if (place == TMountIndex::kNone)
        Throw(kUnmountNodeE, "Node to unmount does not exist", ENOENT, mountPoint);
    // Kept alive to the end: `mountPoint` may be a reference into the node.
    const var_a<TMountNode*> unmounted = m_mountNodes[place];
    RemoveFromTable(place);
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
    // Since Init another profile was selected: its file is not the one that this table came from.
    if (QvConfiguration().getCurProfileName() != m_profile.Name)
        Throw(operation, "Inconsistent profile data", EINVAL, mountPoint);
}

/// Applies `change` to the profile, in the file and here: under the lock, merged with the changes
/// of other processes in the file. On failure the file and the profile are unchanged.
void TResourceManager::ChangeProfile(const char* operation, const std::string& mountPoint,
                                     const std::function<void(TQvProfileNodes&)>& change)
{
    // The cause of exceptions below that set none: there is no configuration.
    SetLastFailure(EINVAL, mountPoint);
    CheckProfileCanBeSaved(operation, mountPoint);
    int error = 0;
    // Taken before the file is read and kept until it is written, so that no change of another
    // process is lost in between.
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
    // A copy that replaces the manager's own only after the file was written: both agree after any
    // failure.
    TQvResourceProfile profile;
    const auto changeText = [&](const std::optional<std::string>& text) {
        SetLastFailure(EBADMSG, mountPoint);
        // May throw for a malformed file: it is left as it is, since only a person can repair it.
        TQvProfileText old(file, text);
        SetLastFailure(EINVAL, mountPoint);
        profile = m_profile;
        if (old.Exists()) {
            profile.Remote = old.Content().Remote;
            profile.Nodes = QvFollowProfileNodes(m_profile.Nodes, old.Content().Nodes);
        }
        // Checked again: another process may have replaced the file by a remote profile meanwhile.
        if (profile.Remote)
            ThrowRemote(operation, mountPoint);
        change(profile.Nodes);
        return old.With(profile);
    };
    const TQvFileChange done = QvChangeFile(file.toSysStr(), changeText);
    if (!done)
        SetLastFailure(done.Reading ? done.Writing.Error() : done.Reading.Error(), mountPoint);
    QvRequireChangedE(file, done);
    SetLastFailure(0, mountPoint);
    m_profile = std::move(profile);
}
