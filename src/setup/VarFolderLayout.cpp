#include "setup/VarFolderLayout.h"

#include <cerrno>
#include <stdexcept>

#include "QvConfig/Config.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniReader.h"
#include "module/ModuleInitializer.h"

/// A registry file that cannot be read may contain the setting: an empty answer would be wrong.
TQvPath QvVarFolderSettingE(bool wantCommon, bool* isCommon)
{
    if (pQvConfigData == nullptr)
        throw std::runtime_error("@QvConfigData is not initialized");
    TQvResult unread;
    const TQvPath folder(pQvConfigData->getVarFolderSetting(wantCommon, isCommon, &unread));
    // The registry reports only that the file is malformed; reading it once more finds the line.
    if (unread.Error() == EBADMSG)
        GetXIniReader(TQvPath(unread.Name())); // throws with the line that is not well formed
    if (!unread)
        throw QvMsg_helper("Err_ReadFile_name") << unread.Name() << QvErrorText(unread.Error());
    return folder;
}

/// A missing file has no keys; one that cannot be read is an error, since saving would replace it.
var_a<TQvXIniTree*> QvReadPolicyE(const TQvPath& file)
{
    std::string content;
    if (QvReadWholeFile(file.toSysStr(), &content))
        return QvParsePolicyE(file, content);
    const int error = errno;
    if (error != ENOENT)
        throw QvMsg_helper("Err_ReadFile_name") << file.toSysStr() << QvErrorText(error);
    return make_var<TQvXIniTree>();
}

var_a<TQvXIniTree*> QvParsePolicyE(const TQvPath& file, const std::optional<std::string>& content)
{
    std::string error;
    var_a<TQvXIniTree*> tree = QvParseXIniTree(content.value_or(""), &error);
    // A malformed file is refused and not repaired: a repair would drop entries of other programs.
    if (!tree)
        throw QvMsg_helper("Err_XIniParse_name") << file.toSysStr() << error;
    return tree;
}

std::string QvPolicyProfile(const var_a<TQvXIniTree*>& policy)
{
    const TQvXIniReader reader(policy, kPolicyFile);
    return reader.Read(reader.FindF(kCurrentProfileKey), std::string());
}

/// The name becomes a folder of "Profiles": it must not leave that, nor be the name of the list.
bool QvIsProfileName(const std::string& name)
{
    return name.find_first_of("/\\") == std::string::npos && name != "." && name != ".." &&
           name != kProfileListFile && TQvPath(name).isPathValid();
}

TQvPath QvProfileFile(const TQvPath& folder, const std::string& name)
{
    return folder / kProfilesFolder / name / kProfileFile;
}

bool QvIsThereE(const std::string& path, bool asFolder)
{
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(path, &isFolder);
    if (there.HasFailed())
        throw QvMsg_helper("Err_ReadFile_name") << path << QvErrorText(there.Error());
    return there && isFolder == asFolder;
}

bool QvHoldsProfileE(const TQvPath& folder, const std::string& name)
{
    // The name is no path: it may contain a backslash.
    return QvIsThereE((folder / kProfilesFolder).toSysStr() + '/' + name + '/' + kProfileFile,
                      false);
}

void QvForceDirectoriesE(const TQvPath& folder)
{
    // Synced: a power cut must not remove the folder of a profile that was reported as saved.
    if (const TQvResult made = QvForceDirectories(folder.toSysStr(), true); !made)
        throw QvMsg_helper("Err_CreateFolder_name")
            << folder.toSysStr() << QvErrorText(made.Error());
}

std::string QvFolderMessage(const std::string& key, const TQvPath& folder)
{
    return Korvadel::format_text(QvResourceString(key), folder.toSysStr());
}
