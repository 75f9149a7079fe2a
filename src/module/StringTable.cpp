// The English texts of this module. %1% to %9% are places for arguments; texts that are used as
// formats have one %s.
#include "module/StringTable.h"

#include "QvStd/StringTable.h"

namespace
{
constexpr TQvStringTableEntry kEnglish[] = {
    // Resources and folders
    {"global.ErrResCreate", "The resource \"%1%\" cannot be created."},
    {"global.ErrResOpenWrite", "The resource \"%1%\" cannot be opened for writing."},
    {"global.ErrResOpenRead", "The resource \"%1%\" cannot be opened for reading."},
    {"global.ErrResOpen", "The resource \"%1%\" cannot be opened."},
    {"global.ErrNotFolder", "\"%1%\" is not a folder."},
    {"global.ErrRenameMtPoint",
     "The folder \"%1%\" cannot be renamed: it is a mount point or contains one."},
    {"global.ErrRenameFolder", "The folder cannot be renamed (error %1%: %2%)."},
    {"global.ErrNotSupported", "This is not possible here: the folder only contains mount points."},
    {"global.ErrDestFolderEqSrc", "The destination folder is the parent folder of the sources."},
    {"global.ErrCreateBackupFolder", "The folder for the backups cannot be created."},
    // Profiles and settings
    {"global.Msg_ReadProfileNodePath_path", "Reading the free space of \"%1%\"."},
    {"global.Prg_ReadConfig", "Reading the configuration"},
    {"global.Prg_CopyRemoteProfiles", "Copying profiles from the repository"},
    {"global.Prg_ReadProfile_name", "Reading profile \"%1%\""},
    {"global.WarnStorageGroupNotSupported", "The storage group \"%1%\" does not count in the free "
                                            "space: storage groups are not supported."},
    {"global.MustSetVarFolder", "A VAR folder must be set."},
    {"global.MustSetDirEditRepository", "The folder of the repository must be set."},
    {"global.ErrRepositoryDirNotExists", "The folder of the repository does not exist"},
    {"global.ErrCreateFolder", "The folder \"%s\" cannot be created."},
    {"global.ErrProfilesUnread",
     "The profiles in the folder \"%s\" have not been read: they cannot be saved."},
    {"global.ErrFolderWrite", "The folder \"%s\" cannot be written to."},
    {"global.ErrRegWrite", "The setting of the VAR folder cannot be written to the registry."},
};

} // namespace

void RegisterEnglishTexts(const std::string& module)
{
    QvRegisterStringTable(module.c_str(), kEnglish, sizeof kEnglish / sizeof kEnglish[0]);
}

// At load, so that the texts can be looked up before anything else here is used.
[[maybe_unused]] static const bool kRegistered = (RegisterEnglishTexts("QvServices"), true);
