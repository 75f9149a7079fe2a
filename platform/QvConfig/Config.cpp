#include "QvConfig/Config.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <unistd.h>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Registry.h"
#include "QvStd/Result.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniTree.h"

namespace
{
constexpr int kConfigFolder = 9;
constexpr int kProductKey = 11;
constexpr int kProfileFile = 12;

constexpr int kWarningLevel = 6;

/// "" when there is no such key or no usable file; the latter is logged.
std::string ReadProfileName(const std::string& policyFile)
{
    std::string content;
    std::string error;
    if (!QvReadWholeFile(policyFile, &content)) {
        if (errno != ENOENT && errno != ENOTDIR)
            QvLogWriteWarning(TQvMessage("Err_ReadFile_name") << policyFile << QvErrorText(errno),
                              kWarningLevel, 0);
        return std::string();
    }
    const var_a<TQvXIniTree*> tree = QvParseXIniTree(content, &error);
    if (!tree) {
        QvLogWriteWarning(TQvMessage("Err_XIniParse_name") << policyFile << error, kWarningLevel,
                          0);
        return std::string();
    }
    // A missing key means that no profile is selected.
    const TQvXIniReader reader(tree, policyFile);
    return reader.Read(reader.FindF("profile"), std::string());
}
unsigned startCount = 0;
} // namespace

TQvConfigData* pQvConfigData = nullptr;

void TQvConfigData::Load()
{
    m_varFolder = getVarFolderSetting(true, nullptr);
    m_loaded = !m_varFolder.empty();
    m_profileName.clear();
    if (m_loaded)
        m_profileName = ReadProfileName((TQvPath(m_varFolder) / "policy.x-ini").toSysStr());
}

std::string TQvConfigData::getComputerName() const
{
    char name[HOST_NAME_MAX + 1] = {};
    // The last byte stays zero: a name that is cut need not be terminated.
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

/// Reads environment and registry each time: another program may have changed them. An unreadable
/// registry file only matters when no other one has the setting.
std::string TQvConfigData::getVarFolderSetting(bool wantCommon, bool* isCommon,
                                               TQvResult* unread) const
{
    const auto answer = [isCommon](std::string folder, bool common) {
        if (isCommon != nullptr)
            *isCommon = common;
        return folder;
    };
    // Before the registry, so that one process can use another folder than the rest.
    const char* setting = std::getenv("QV_VAR_FOLDER");
    if (setting != nullptr && *setting != '\0')
        return answer(setting, false);

    TQvResult failure;
    const std::string key = QvGetStaticConfigString(kProductKey);
    for (const TQvRegKey root : {TQvRegKey::Common, TQvRegKey::User}) {
        const bool common = root == TQvRegKey::Common;
        if (common && !wantCommon)
            continue;
        std::string folder;
        const TQvResult read = TQvRegMan::readString(root, key, "VarPath", &folder);
        if (!folder.empty())
            return answer(std::move(folder), common);
        if (failure && read.HasFailed())
            failure = read;
    }
    if (unread != nullptr)
        *unread = failure;
    return std::string();
}

void Init_QvConfig()
{
    if (pQvConfigData == nullptr)
        pQvConfigData = new TQvConfigData;
    ++startCount;
    // Also for a further user: the settings may have been changed since the first one came.
    pQvConfigData->Load();
}

/// The last of several users destroys it; users count themselves by Init_QvConfig.
void Deinit_QvConfig()
{
    if (startCount == 0 || --startCount > 0)
        return;
    delete pQvConfigData;
    pQvConfigData = nullptr;
}

std::string QvGetConfigString(int number, bool mustExist)
{
    if (number != kConfigFolder && number != kProfileFile) {
        if (mustExist)
            throw TQvMessage(QvMsg_helper("Err_ConfigString_number") << number);
        return std::string();
    }
    // A path made of an empty folder would be relative to the current one.
    if (pQvConfigData == nullptr || !pQvConfigData->getLoaded())
        return std::string();
    const TQvPath folder(pQvConfigData->m_varFolder);
    if (number == kConfigFolder)
        return (folder / "Config").addSlash().toSysStr();
    return (folder / "Profiles" / pQvConfigData->m_profileName / "profile.x-ini").toSysStr();
}

std::string QvGetStaticConfigString(int number)
{
    return number == kProductKey ? "Software\\Velmor\\KORVADEL\\6 Airlane" : "";
}
