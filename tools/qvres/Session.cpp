#include "Session.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <QvConfig/Config.h>
#include <QvStd/Files.h>
#include <QvStd/Message.h>
#include <QvStd/Path.h>
#include <QvStd/XIniReader.h>

#include "Checks.h"
#include "Failure.h"
#include "Repository.h"

namespace
{
constexpr char kVarFolderVariable[] = "QV_VAR_FOLDER";

/// Throws TFailure when something is there and cannot be used.
bool IsSetUp()
{
    try {
        return !TQvCPUtils::IsWizardNecessaryE();
    } catch (const TQvMessage& message) {
        throw TFailure(message.what(), "", TResourceManager::LastFailure().Error);
    }
}

/// The missing part of a VAR folder that was set up once; "" when it was never set up.
std::string MissingPart(const TQvPath& varFolder)
{
    const std::string policy = (varFolder / "policy.x-ini").toSysStr();
    const std::string list = (varFolder / "Profiles/profiles.x-ini").toSysStr();
    if (QvFileExists(policy))
        return QvFileExists(list) ? std::string() : list;
    return QvFileExists(list) ? policy : std::string();
}

struct TMountOption
{
    std::string Id;
    std::string Folder;
};

TMountOption SplitMountOption(const std::string& option)
{
    const std::size_t equals = option.find('=');
    return {QvExcludeTrailingSlash(option.substr(0, equals)), option.substr(equals + 1)};
}
} // namespace

TSession::~TSession()
{
    // Also after a failed start, as long as the library was initialized.
    if (m_initialized)
        Deinit_QvServices();
}

TResourceManager& TSession::Tree()
{
    if (!m_started)
        Start();
    m_started = true;
    return ResourceManager;
}

TResourceManager& TSession::ProfileTree()
{
    TResourceManager& tree = Tree();
    if (!m_registryRead)
        ThrowRegistryUnread();
    if (!m_hasProfile)
        throw TFailure(SetUpHint(), "", ENOENT);
    return tree;
}

TResourceManager& TSession::PersistentTree()
{
    TResourceManager& tree = ProfileTree();
    if (!tree.CanMountPersistent())
        throw TFailure("the profile " + Quoted(tree.Profile().Name) +
                           " comes from the repository and cannot be changed here",
                       "", EROFS);
    return tree;
}

void TSession::Start()
{
    StartConfiguration(true);
    // A profile is used when there is one; a call with its own mounts needs none.
    if (m_registryRead && IsSetUp()) {
        if (pQvConfigData->getCurProfileName().empty())
            throw TFailure("no profile is selected; run \"qvres profile select NAME\"", "", ENOENT);
        ResourceManager.Init();
        m_hasProfile = true;
    } else if (Mounts.empty() || !VarFolder.empty()) {
        throw TFailure(SetUpHint(), "", ENOENT);
    } else {
        TResourceManager::RegisterURLScheme(); // which Init does otherwise
    }
    for (const std::string& option : Mounts) {
        const auto [id, folder] = SplitMountOption(option);
        Mount(id, folder, false);
    }
}

void TSession::StartConfiguration(bool withDefaultFolder)
{
    std::string folder;
    if (!VarFolder.empty())
        folder = Absolute(VarFolder);
    else if (withDefaultFolder &&
             TQvConfigData().getVarFolderSetting(true, nullptr, &m_registryRead).empty())
        folder = TQvCPUtils::GetDefaultVARFolder().toSysStr();
    // The setting may name another folder than the default one. The mounts of --mount are available
    // all the same.
    if (!m_registryRead && Mounts.empty())
        ThrowRegistryUnread();
    // The default folder may not be the one that the setting names.
    if (!m_registryRead)
        folder.clear();
    // Through the environment, so that every part of the configuration agrees on the folder.
    if (!folder.empty())
        setenv(kVarFolderVariable, folder.c_str(), 1);
    Init_QvServices();
    m_initialized = true;
}

void TSession::ThrowRegistryUnread() const
{
    if (m_registryRead.Error() == EBADMSG)
        GetXIniReader(
            TQvPath(m_registryRead.Name())); // throws with the line that is not well formed
    throw TFailure("the registry " + Quoted(m_registryRead.Name()) +
                       " cannot be read: " + QvErrorText(m_registryRead.Error()),
                   "", m_registryRead.Error());
}

void TSession::RequireSetUp() const
{
    if (!IsSetUp())
        throw TFailure(SetUpHint(), "", ENOENT);
}

TQvPath TSession::VarFolderInUse()
{
    return TQvPath(pQvConfigData->getVarFolderSetting(true, nullptr));
}

std::string TSession::NoVarFolderHint()
{
    return "there is no home folder, and so no default VAR folder; \"--var DIR\" names one";
}

std::string TSession::SetUpHint() const
{
    const TQvPath folder = VarFolderInUse();
    if (folder.isPathEmpty())
        return NoVarFolderHint();
    const std::string command =
        VarFolder.empty() ? "qvres setup" : "qvres --var " + VarFolder + " setup";
    const TQvPath repository = TQvCPUtils::GetRepositoryFolder(folder, false);
    const std::string problem =
        repository.isPathEmpty() ? std::string() : RepositoryProblem(repository);
    if (!problem.empty())
        return problem + "; \"" + command + " --repository DIR\" names another one, \"\" none";
    // A part that is missing is named: running setup from the beginning would suggest that the
    // profiles are gone.
    const std::string missing = MissingPart(folder);
    if (!missing.empty())
        return Quoted(missing) + " is missing; \"" + command + "\" creates it again";
    return "the VAR folder " + Quoted(folder.toSysStr()) + " is not set up; run \"" + command +
           " FOLDER\" first";
}

std::string TSession::CheckMountOption(const std::string& option)
{
    if (option.find('=') == std::string::npos)
        return Quoted(option) + " is not of the form ID=DIR";
    const auto [id, folder] = SplitMountOption(option);
    return folder.empty() ? Quoted(option) + " names no folder" : CheckMountPoint(id);
}

std::string TSession::CheckMountPoint(const std::string& id)
{
    if (id.empty() || id == "/")
        return "a mount point needs a name: the root of the tree is not one";
    const std::string problem = IdProblem(id);
    return problem.empty() ? problem : Quoted(id) + " is not a valid resource id: " + problem;
}

std::string TSession::Absolute(const std::string& folder)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(folder, error);
    if (error)
        ThrowFailed(Quoted(folder) + " is no usable path of a folder", error.value());
    return path.lexically_normal().string();
}

std::string TSession::RequireDiskFolder(const std::string& folder, const std::string& id)
{
    const std::string fullPath = Absolute(folder);
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(fullPath, &isFolder);
    if (exists.HasFailed())
        ThrowFailed("the folder " + Quoted(folder) + " cannot be accessed", exists.Error(), id);
    if (!exists)
        throw TFailure("the folder " + Quoted(folder) + " does not exist", id, ENOENT);
    if (!isFolder)
        throw TFailure(Quoted(folder) + " is not a folder", id, ENOTDIR);
    // Paths of the library take it for a separator, and would name another folder.
    if (fullPath.find('\\') != std::string::npos)
        throw TFailure("the path of a mounted folder must not contain a backslash: " + fullPath, id,
                       EINVAL);
    return fullPath;
}

void TSession::Mount(const std::string& id, const std::string& folder, bool persistent)
{
    const std::string fullPath = RequireDiskFolder(folder, id);
    if (ResourceManager.IsMountNode(id))
        throw TFailure(Quoted(id) + " is already a mount point", id, EEXIST);
    try {
        ResourceManager.MountFileNodeE(id, fullPath, persistent);
    } catch (const TQvMessage& message) {
        throw WithMissingCause(message);
    }
}
