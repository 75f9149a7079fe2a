// Life of the manager: construction and Init.
#include "manager/ResourceManager.h"

#include <cerrno>
#include <stdexcept>

#include "QvConfig/Config.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/XIniReader.h"
#include "manager/MountIndex.h"
#include "module/Configuration.h"
#include "resid/ResId.h"

const std::uint32_t TResourceManager::SConfig::StDirLockTimeout_Default = 10000;
const std::uint32_t TResourceManager::SConfig::StDirSyncMinInterval_Default = 1000;
const std::uint32_t TResourceManager::SConfig::StDirChangeCount2Merge_Default = 256;
const bool TResourceManager::SConfig::MountMyComputer_Default = false;

/// Constructed when the library is loaded; it touches no file and no configuration before Init.
TResourceManager ResourceManager;

TResourceManager::TResourceManager()
    : m_config{SConfig::StDirLockTimeout_Default, SConfig::StDirSyncMinInterval_Default,
               SConfig::StDirChangeCount2Merge_Default, SConfig::MountMyComputer_Default},
      m_mountIndex(std::make_unique<TMountIndex>()), m_myComputerId("/My Computer"),
      m_myComputerNormal(QvNormalizeResId(m_myComputerId)),
      m_myComputerFolder(QvIncludeTrailingSlash(m_myComputerNormal))
{
}

TResourceManager::~TResourceManager() = default;

bool TResourceManager::Init()
{
    int error = EINVAL;
    try {
        Load(&error);
    } catch (...) {
        SetLastFailure(error, "/");
        throw;
    }
    SetLastFailure(0, "/");
    return true;
}

/// `error` receives the errno of what is thrown; it stays unchanged when that has none.
void TResourceManager::Load(int* error)
{
    if (!QvConfiguration().getLoaded())
        throw TQvMessage("@bool TResourceManager::Init(): QvConfigData not loaded");
    ReadSettings(error);

    // Cleared with the list, so that after a failure below no index refers to a missing node.
    m_mountNodes.clear();
    RefreshNodeMaps();
    // A missing profile throws here: an empty tree would look as if all resources were deleted.
    const auto profile = GetXIniReader(TQvPath(QvGetConfigString(12, true)), error);
    *error = EBADMSG;
    m_profile.LoadE(profile.get(), nullptr);
    *error = EINVAL;
    // The file does not contain its own name.
    m_profile.Name = QvConfiguration().getCurProfileName();
    LoadProfileNodes();
    // Last, since it is built from the mount points of all others; mounting finds it at this place.
    m_mountNodes.push_back(LoadRootMountNode());
    RefreshNodeMaps();

    // Only when the table is complete: an Init that fails leaves no handler for it behind.
    RegisterURLScheme();
}

void TResourceManager::ReadSettings(int* error)
{
    // MountMyComputer is not reset: it keeps the value of the previous Init.
    m_config.StDirLockTimeout = SConfig::StDirLockTimeout_Default;
    m_config.StDirSyncMinInterval = SConfig::StDirSyncMinInterval_Default;
    m_config.StDirChangeCount2Merge = SConfig::StDirChangeCount2Merge_Default;

    const std::string path = QvGetConfigString(9, true) + "ResourceManager.x-ini";
    // No file is the normal case: a new installation has only the defaults.
    if (!QvFileExists(path))
        return;
    const auto reader = GetXIniReader(TQvPath(path), error);
    const auto read = [&reader](const char* key, std::uint32_t& value) {
        const int position = reader->FindF(key);
        value = static_cast<std::uint32_t>(
            reader->Read<std::int32_t>(position, static_cast<std::int32_t>(value)));
    };
    read("StDirLockTimeout", m_config.StDirLockTimeout);
    read("StDirSyncMinInterval", m_config.StDirSyncMinInterval);
    read("StDirChangeCount2Merge", m_config.StDirChangeCount2Merge);
    m_config.MountMyComputer = reader->Read<std::int32_t>(reader->FindF("MountMyComputer"),
                                                          m_config.MountMyComputer ? 1 : 0) != 0;
}

/// A kind that cannot be mounted is an error: its resources would silently be missing.
void TResourceManager::LoadProfileNodes()
{
    for (const auto& [key, node] : m_profile.Nodes) {
        var_a<TMountNode*> mountNode;
        if (node.Kind == kProfileNodePath)
            mountNode = LoadFileMountNode(node);
        if (!mountNode)
            throw TQvMessage("@bool TResourceManager::Init(): Error mounting node " + node.Name);
        m_mountNodes.push_back(std::move(mountNode));
    }
}
