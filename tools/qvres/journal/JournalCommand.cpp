// journal: the journal of a resource storage, which is no part of the exported interface.
#include <memory>

#include <CLI/CLI.hpp>

#include <QvConfig/Config.h>
#include <QvStd/Files.h>
#include <QvStd/XIniReader.h>

#include "Commands.h"
#include "JournalCommandOperations.h"

namespace
{
/// A malformed settings file is reported, and missing settings have their defaults.
void CheckSettings()
{
    const std::string file = QvGetConfigString(9, true) + "ResourceManager.x-ini";
    try {
        if (QvFileExists(file))
            GetXIniReader(TQvPath(file));
    } catch (const std::exception& malformed) {
        PrintError(malformed.what());
    }
}

/// The configuration names the computer, and holds the settings when there are any: a storage can
/// be repaired on a machine without a profile, with the defaults.
TStorageSettings ReadSettings(THost& host)
{
    host.Session.StartConfiguration(false);
    TStorageSettings settings;
    settings.Owner = pQvConfigData->getComputerName();
    if (!pQvConfigData->getLoaded())
        return settings;
    CheckSettings();
    try {
        ResourceManager.Init();
    } catch (const std::exception&) {
        // The settings were read before: only the mounting failed, which is not needed here.
    }
    settings.LockTimeout = ResourceManager.Config().StDirLockTimeout;
    settings.ChangeCount2Merge = ResourceManager.Config().StDirChangeCount2Merge;
    return settings;
}
} // namespace

void AddJournalCommand(CLI::App& app, THost& host)
{
    struct TOperation
    {
        const char* Name;
        bool HasId;
        const char* Description;
    };
    constexpr TOperation kOperations[] = {
        {"load", false,
         "Load the journal, repairing a broken one, and print its records: one \"id<TAB>name\" a "
         "line"},
        {"verify", false,
         "Read the journal without changing it and print its state: whole, missing, torn tail, "
         "damage at byte N, or bad signature; the exit status is 0 only for whole"},
        {"add", true, "Record a resource; an ID with a \"/\" at its end is a folder"},
        {"remove", true, "Remove the record of a resource or folder"},
        {"rebuild", false, "Rebuild the journal from the files in FOLDER/content"},
        {"merge", false, "Rewrite the journal in its shortest form"},
    };
    CLI::App* const journal =
        AddCommand(app, "journal", "Work on the journal of a resource storage", "");
    journal->require_subcommand(1);
    const auto call = std::make_shared<TJournalCall>();
    for (const TOperation& operation : kOperations) {
        CLI::App* const command =
            AddCommand(*journal, operation.Name, operation.Description,
                       std::string("  qvres journal ") + operation.Name + " /srv/storage" +
                           (operation.HasId ? " /Data/a.txt" : ""));
        command->add_option("FOLDER", call->Folder, "The storage folder")->required();
        if (operation.HasId)
            command->add_option("ID", call->Id, "An absolute id")->required();
        command->callback([call, &host, name = operation.Name] {
            call->Operation = name;
            RunJournal(host, *call, ReadSettings(host));
        });
    }
}
