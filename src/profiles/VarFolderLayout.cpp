#include "profiles/VarFolderLayout.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "QvConfig/Config.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniReader.h"
#include "manager/ModuleInitializer.h"

TQvPath QvVarFolderSettingE(bool wantCommon, bool* isCommon)
{
    if (pQvConfigData == nullptr)
        throw std::runtime_error("@QvConfigData is not initialized");
    return TQvPath(pQvConfigData->getVarFolderSetting(wantCommon, isCommon));
}

var_a<TQvXIniTree*> QvReadPolicyE(const TQvPath& file)
{
    std::string content;
    std::string error;
    if (!QvReadWholeFile(file.toSysStr(), &content)) {
        const int number = errno;
        if (number == ENOENT)
            return make_var<TQvXIniTree>();
        throw QvMsg_helper("Err_ReadFile_name")
            << file.toSysStr() << std::generic_category().message(number);
    }
    var_a<TQvXIniTree*> tree = QvParseXIniTree(content, &error);
    if (!tree)
        throw QvMsg_helper("Err_XIniParse_name") << file.toSysStr() << error;
    return tree;
}

std::string QvPolicyProfile(const var_a<TQvXIniTree*>& policy)
{
    const TQvXIniReader reader(policy, kPolicyFile);
    return reader.Read(reader.FindF(kCurrentProfileKey), std::string());
}

bool QvIsProfileName(const std::string& name)
{
    return name.find_first_of("/\\") == std::string::npos && name != "." && name != ".." &&
           name != kProfileListFile && TQvPath(name).isPathValid();
}

TQvPath QvProfileFile(const TQvPath& folder, const std::string& name)
{
    return folder / kProfilesFolder / name / kProfileFile;
}

bool QvHoldsProfile(const TQvPath& folder, const std::string& name)
{
    // The name is no path: it may hold a backslash.
    return QvFileExists((folder / kProfilesFolder).toSysStr() + '/' + name + '/' + kProfileFile);
}

bool QvHoldsTree(const TQvPath& file, const TQvXIniTree& tree)
{
    std::string text;
    return QvReadWholeFile(file.toSysStr(), &text) && text == QvFormatXIniTree(tree);
}

void QvForceDirectoriesE(const TQvPath& folder)
{
    if (!QvForceDirectories(folder))
        throw TQvMessage(QvFolderMessage("global.ErrCreateFolder", folder));
}

std::string QvFolderMessage(const std::string& key, const TQvPath& folder)
{
    return Korvadel::format_text(QvResourceString(key), folder.toSysStr());
}
