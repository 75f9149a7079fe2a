#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Registry.h"
#include "QvStd/XIniReader.h"
#include "setup/CPUtils.h"
#include "setup/VarFolderLayout.h"

namespace
{
constexpr char kValueName[] = "VarPath";
// The plain key is read from the common root and the other one from the user's: other modules of
// the suite store the setting there.
constexpr char kCommonKey[] = "Software\\Velmor\\KORVADEL\\6 Airlane";
constexpr char kUserKey[] = "Software\\Wow6432Node\\Velmor\\KORVADEL\\6 Airlane";

TQvPath ReadRegistry(bool wantCommon, bool* common)
{
    const auto read = [common](TQvRegKey root, const char* key) {
        const TQvPath folder(TQvRegMan::readString(root, key, kValueName));
        // A value that is no path counts as none: the next place is tried.
        if (!folder.isPathValid())
            return TQvPath();
        if (common != nullptr)
            *common = root == TQvRegKey::Common;
        return folder.addSlash();
    };
    TQvPath folder;
    if (wantCommon)
        // The common setting has precedence: an administrator sets it for all users.
        folder = read(TQvRegKey::Common, kCommonKey);
    return folder.isPathEmpty() ? read(TQvRegKey::User, kUserKey) : folder;
}

std::string ReadRepositoryE(const TQvPath& varFolder, const char* key)
{
    const auto reader = GetXIniReader(varFolder / kPolicyFile);
    return reader->Read(reader->FindF(key), std::string());
}

/// Whether a folder, or with `isFolder` false a file, exists. Throws a TQvMessage when that cannot
/// be found out.
bool ExistsE(const TQvPath& path, bool wantsFolder)
{
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(path, &isFolder);
    if (exists.HasFailed())
        throw QvMsg_helper("Err_ReadFile_name") << path.toSysStr() << QvErrorText(exists.Error());
    return exists && isFolder == wantsFolder;
}

/// Reads the names only to check that they can be read.
void CheckProfileListE(const TQvPath& folder)
{
    const auto reader = GetXIniReader(folder / kProfilesFolder / kProfileListFile);
    const TQvXIniSection list = reader->EnterSectionSE(kProfileListSection);
    for (int i = 0; reader->Exists(i); ++i)
        reader->ReadE<std::string>(i);
    reader->ExitSection(list);
}
} // namespace

TQvPath TQvCPUtils::GetVARFolder(bool* common)
{
    try {
        // The wanted scope, before the scope that was found replaces it.
        const bool wantCommon = common == nullptr || *common;
        TQvPath folder = QvVarFolderSettingE(wantCommon, common);
        return folder.isPathValid() ? folder : ReadRegistry(wantCommon, common);
    } catch (...) {
        return TQvPath();
    }
}

TQvPath TQvCPUtils::GetQvVARFolder(bool* common)
{
    TQvPath folder = GetVARFolder(common);
    return folder.isPathEmpty() ? GetDefaultVARFolder() : folder;
}

TQvPath TQvCPUtils::GetDefaultVARFolder()
{
    const TQvPath home = TQvPath::homeDir();
    return home.isPathEmpty() ? home : home / ".config/velmor" / "KORVADELAirlane7.VAR";
}

TQvPath TQvCPUtils::GetRepositoryFolder(TQvPath varFolder, bool switchedOff)
{
    try {
        if (varFolder.isPathEmpty())
            varFolder = QvVarFolderSettingE();
        if (!varFolder.isPathValid())
            return TQvPath();
        const char* key = switchedOff ? kSwitchedOffRepositoryKey : kRepositoryKey;
        return TQvPath(ReadRepositoryE(varFolder, key)).addSlash();
    } catch (...) {
        return TQvPath();
    }
}

/// A folder that cannot be read is not usable either; the set-up reports why.
bool TQvCPUtils::IsWizardNecessary()
{
    try {
        return IsWizardNecessaryE();
    } catch (...) {
        return true;
    }
}

bool TQvCPUtils::IsWizardNecessaryE()
{
    // Only the configuration counts: a folder that GetVARFolder would find elsewhere, or the
    // default one, has not been set up for the other modules.
    const TQvPath varFolder = QvVarFolderSettingE();
    if (!ExistsE(varFolder, true) || !ExistsE(varFolder / kPolicyFile, false) ||
        !ExistsE(varFolder / kProfilesFolder / kProfileListFile, false))
        return true;
    const TQvPath repository(ReadRepositoryE(varFolder, kRepositoryKey));
    CheckProfileListE(varFolder);
    try {
        // A repository that cannot be used makes the wizard necessary, unlike damage in the user's
        // own files, which is thrown.
        if (repository.isPathValid())
            CheckProfileListE(repository);
        return false;
    } catch (const TQvMessage&) {
        return true;
    }
}
