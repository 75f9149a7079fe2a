// Backups: backup, restore.
#include <cerrno>
#include <charconv>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>

#include "Checks.h"
#include "Commands.h"
#include "IsoTime.h"

namespace
{
constexpr std::size_t kBackupsKept = 3;
/// More would be a mistake in the arguments.
constexpr std::size_t kMostBackups = 1000000;

struct TBackupOptions
{
    std::string Id;
    std::size_t Keep = kBackupsKept;
    bool List = false;
};

struct TRestoreOptions
{
    std::string Id;
    std::string Backup; ///< an id, or the name of one of its backups; "" for the latest
    bool Overwrite = false;
};

/// What is wrong with the number of backups to keep; "" when nothing is.
std::string CheckCount(const std::string& text)
{
    std::size_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size() && count <= kMostBackups
               ? std::string()
               : Quoted(text) + " is not a whole number from 0 to " + std::to_string(kMostBackups);
}

std::vector<TQvResFindItem> Backups(THost& host, const std::string& id)
{
    CheckId(id);
    if (!host.Session.Tree().IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " is outside the mounted folders", id, EROFS);
    std::vector<TQvResFindItem> backups = FindResourceBackups(id);
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed("the backups of " + Quoted(id) + " cannot be listed");
    return backups;
}

void PrintBackups(THost& host, const std::string& id)
{
    auto records = nlohmann::ordered_json::array();
    for (const TQvResFindItem& backup : Backups(host, id)) {
        if (!host.Json) {
            host.Out.Line(backup.Id);
            continue;
        }
        nlohmann::ordered_json& record = records.emplace_back(RecordOf(backup.Id));
        record["size"] = backup.Attrib.Size;
        record["updated"] = IsoTimeValue(backup.Attrib.UpdateTime);
    }
    if (host.Json)
        host.Out.Line(ToJsonText(records));
}

void Backup(THost& host, const TBackupOptions& options)
{
    const std::string& id = options.Id;
    const TResourceManager& tree = host.Session.Tree();
    if (options.List)
        return PrintBackups(host, id);
    RequireResource(tree, id);
    if (options.Keep > 0 && tree.GetNode4Id(id, true, true, false)->IsLink(id))
        throw TFailure(Quoted(id) +
                           " is a symbolic link, and moving it would not keep the content; "
                           "\"qvres cp\" copies the target of the link",
                       id, ENOTSUP);
    const std::string folder = QvExtractResPath(id) + "backup";
    // The library would report only that the folder cannot be created.
    if (tree.IsResource(folder))
        throw TFailure(Quoted(folder) + " is a resource", folder, ENOTDIR);
    std::string backup;
    try {
        backup = MakeResourceBackup(id, options.Keep);
    } catch (const TQvMessage& message) {
        throw WithCause(Quoted(id) + " could not be moved into the backups",
                        TResourceManager::LastFailure());
    }
    // The backup function does not return later failures.
    const TQvFailure failure = TResourceManager::LastFailure();
    // The function answers no failure of the move; what counts is whether the id is free now.
    if (tree.ResourceExists(id) != kResNothing)
        throw WithCause(Quoted(id) + " could not be moved into the backups", failure);
    if (!backup.empty())
        PrintValue(host, backup);
    if (failure.Error != 0)
        throw WithCause("an old backup of " + Quoted(id) + " could not be deleted", failure);
}

/// The latest one, or that of the given id or name.
std::string ChooseBackup(THost& host, const TRestoreOptions& options)
{
    const std::vector<TQvResFindItem> backups = Backups(host, options.Id);
    // Before the resource is touched.
    if (backups.empty())
        throw TFailure(Quoted(options.Id) + " has no backups", options.Id, ENOENT);
    if (options.Backup.empty())
        return backups.back().Id;
    for (const TQvResFindItem& backup : backups)
        if (options.Backup == QvExtractResName(backup.Id) ||
            QvNormalizeResId(options.Backup) == QvNormalizeResId(backup.Id))
            return backup.Id;
    throw TFailure(Quoted(options.Id) + " has no backup " + Quoted(options.Backup) +
                       "; \"qvres backup --list\" shows those that it has",
                   options.Id, ENOENT);
}

void Restore(THost& host, const TRestoreOptions& options)
{
    const std::string& id = options.Id;
    const TResourceManager& tree = host.Session.Tree();
    RequireTarget(tree, id);
    const std::string backup = ChooseBackup(host, options);
    const TFailure exists(Quoted(id) + " exists; \"qvres backup\" moves it away first, and "
                                       "--overwrite replaces it",
                          id, EEXIST);
    if (tree.IsResource(id) && !options.Overwrite)
        throw exists;
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Restoring " + id);
    progress.Start();
    // Another process may write the resource meanwhile: the copy itself refuses it then.
    TResourceManager::TMountNode::TCopyHints hints;
    hints.IsTargetNew = !options.Overwrite;
    const TQvTransfer copied = tree.GetNode4Id(backup, true, true, false)
                                   ->CopyResourceTo(backup, *tree.GetNode4Id(id, true, true, false),
                                                    id, hints, &host.Progress);
    if (copied.Content.Error() == EEXIST && !options.Overwrite)
        throw exists;
    if (!copied.Content)
        ThrowFailed(Quoted(id) + " cannot be restored from " + Quoted(backup),
                    copied.Content.Error(), id);
    if (!copied.Sidecar)
        ThrowFailed("the content of " + Quoted(id) + " was restored from " + Quoted(backup) +
                        ", but not its metadata",
                    copied.Sidecar.Error(), id);
    progress.Stop();
    PrintValue(host, backup);
}
} // namespace

void AddBackupCommands(CLI::App& app, THost& host)
{
    const auto options = std::make_shared<TBackupOptions>();
    CLI::App* backup = AddCommand(
        app, "backup",
        "Move a resource into the folder \"backup\" next to it, named with the time of its last\n"
        "modification, and delete the oldest of its backups. The id of the backup is printed",
        "  qvres backup --keep 5 /Data/a.txt     # /Data/backup/a.2024-05-01.12-30-00.txt\n"
        "  qvres backup --list /Data/a.txt");
    backup
        ->add_option("--keep", options->Keep,
                     "How many backups to keep, the new one included (default 3); with 0 the\n"
                     "resource is deleted without a backup")
        ->type_name("N")
        ->check(&CheckCount, "", "");
    backup->add_flag("--list", options->List,
                     "Only print the ids of its backups, the oldest first; the resource need not "
                     "exist");
    AddIdOption(*backup, "ID", options->Id, "A resource")->required();
    backup->callback([&host, options] { Backup(host, *options); });

    const auto choice = std::make_shared<TRestoreOptions>();
    CLI::App* restore =
        AddCommand(app, "restore",
                   "Copy a backup back to the id of the resource, with its metadata, "
                   "and print the id of the backup",
                   "  qvres restore /Data/a.txt\n"
                   "  qvres restore /Data/a.txt a.2024-05-01.12-30-00.txt");
    restore->add_flag("--overwrite", choice->Overwrite, "Replace what is there now");
    AddIdOption(*restore, "ID", choice->Id, "The resource")->required();
    restore->add_option("BACKUP", choice->Backup,
                        "The name or id of one of its backups; by default the latest");
    restore->callback([&host, choice] { Restore(host, *choice); });
}
