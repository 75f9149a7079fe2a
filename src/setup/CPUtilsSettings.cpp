#include <cerrno>

#include "QvConfig/Config.h"
#include "QvStd/FileChange.h"
#include "QvStd/FileStream.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Registry.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniWriter.h"
#include "module/ModuleInitializer.h"
#include "profiles/VarFolderLock.h"
#include "setup/CPUtils.h"
#include "setup/VarFolderLayout.h"

namespace
{
constexpr int kProductKey = 11; // number of the static configuration string
constexpr char kValueName[] = "VarPath";
constexpr int kDamagedFileLogLevel = 6;

bool Refuse(std::string& error, std::string text)
{
    error = std::move(text);
    return false;
}

bool CreateVarFolder(const TQvPath& folder, std::string& error)
{
    if (!folder.isPathValid())
        return Refuse(error, QvResourceString("global.MustSetVarFolder"));
    return folder.makePath(true) ||
           Refuse(error, QvFolderMessage("global.ErrCreateFolder", folder));
}

bool CheckRepository(const TQvPath& repository, std::string& error)
{
    if (!repository.isPathValid())
        return Refuse(error, QvResourceString("global.MustSetDirEditRepository"));
    if (repository.isFolder())
        return true;
    return Refuse(error, Korvadel::ssprintf(
                             "%s: %s", QvResourceString("global.ErrRepositoryDirNotExists").c_str(),
                             repository.toSysStr().c_str()));
}

bool CheckWritable(const TQvPath& folder, std::string& error)
{
    // A fixed name: what a killed process left is removed by the next check.
    const TQvPath path = folder / "$cp.tmp";
    if (path.rmFile()) {
        TQvFileStream probe(path, kQvOpenCreate, kQvShareAll);
        // Not checked by reading the folder: another process that makes the same check may have
        // removed it.
        if (probe && probe.Close()) {
            path.rmFile();
            return true;
        }
    }
    return Refuse(error, QvFolderMessage("global.ErrFolderWrite", folder));
}

bool RemoveCommonSetting(const std::string& key)
{
    // A registry file that cannot be read counts as empty and is no reason to refuse.
    return TQvRegMan::removeEntry(TQvRegKey::Common, key, kValueName) ||
           TQvRegMan::readString(TQvRegKey::Common, key, kValueName).empty();
}

bool StoreVarFolder(const TQvPath& folder, bool common, std::string& error)
{
    bool currentCommon = true;
    const TQvPath current = QvVarFolderSettingE(true, &currentCommon);
    // Not written again: the common registry may be read-only for this user.
    if (current == folder && currentCommon == common)
        return true;
    const std::string key = QvGetStaticConfigString(kProductKey);
    // A remaining common value would hide the user's own. In the other direction the user's value
    // may stay, since the common one is read first.
    const bool removed = !currentCommon || common || RemoveCommonSetting(key);
    const TQvRegKey root = common ? TQvRegKey::Common : TQvRegKey::User;
    return (removed && TQvRegMan::writeString(root, key, kValueName, folder.toSysStr(), true)) ||
           Refuse(error, QvResourceString("global.ErrRegWrite"));
}

/// Renames the file to the first free name of "<file>.damaged", "<file>.damaged.2", ...
void PutAsideE(const std::string& file)
{
    const std::string first = file + ".damaged";
    std::string name = first;
    for (int number = 2; !QvMoveFileEx(file, name, false, false); ++number) {
        const int error = errno;
        if (error != EEXIST)
            throw QvMsg_helper("Err_WriteFile_name") << file << QvErrorText(error);
        name = first + '.' + std::to_string(number);
    }
}

/// A policy file that cannot be read is renamed, and a new one is begun, so that the settings can
/// be applied.
void PutUnreadablePolicyAsideE(const TQvPath& file)
{
    try {
        QvReadPolicyE(file);
        return;
    } catch (const TQvMessage& damage) {
        QvLogWriteWarning(damage, kDamagedFileLogLevel, 0);
    }
    PutAsideE(file.toSysStr());
}

void StoreRepositoryE(const TQvPath& varFolder, bool useRepository, const TQvPath& repository)
{
    const TQvPath file = varFolder / kPolicyFile;
    // Before the policy is examined: another process may be writing it.
    const TQvVarFolderLock lock(varFolder);
    PutUnreadablePolicyAsideE(file);
    QvChangeFileE(file, [&](const std::optional<std::string>& text) {
        const var_a<TQvXIniTree*> tree = QvParsePolicyE(file, text);
        TQvXIniTreeWriter policy(tree);
        // This key stores a repository that is switched off.
        const char* key = useRepository ? kRepositoryKey : kSwitchedOffRepositoryKey;
        const char* otherKey = useRepository ? kSwitchedOffRepositoryKey : kRepositoryKey;
        if (!policy.Write(policy.FindCreateF(key), repository.addSlash().toSysStr()))
            policy.RaiseErrorE();
        // All of them: in a file written by hand a second one would become effective now.
        while (policy.Delete(policy.FindF(otherKey))) {
        }
        return QvFormatXIniTree(*tree);
    });
}
} // namespace

bool TQvCPUtils::PerformOK(const TQvPath& varFolder, bool common, bool useRepository,
                           const TQvPath& repository, std::string& error)
{
    error.clear();
    if (!CreateVarFolder(varFolder, error) ||
        (useRepository && !CheckRepository(repository, error)) || !CheckWritable(varFolder, error))
        return false;
    for (const char* name : {"Config", "Logs", kProfilesFolder, "Tmp", "UserData"})
        (varFolder / name).makePath(true); // a later use of a missing one reports it
    // After the folders: a stored setting must name a folder that can be used.
    if (!StoreVarFolder(varFolder, common, error))
        return false;
    StoreRepositoryE(varFolder, useRepository, repository);
    return true;
}
