// Services around resources: backup, done, open.
#include <cerrno>
#include <charconv>
#include <memory>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>
#include <QvStd/URLManager.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
constexpr std::size_t kBackupsKept = 3;
constexpr std::size_t kMostBackups = 1000000;

/// What is wrong with the number of backups to keep; "" when nothing is.
std::string CheckCount(const std::string& text)
{
    std::size_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size() && count <= kMostBackups
               ? std::string()
               : Quoted(text) + " is not a whole number from 0 to " + std::to_string(kMostBackups);
}

void Backup(THost& host, const std::string& id, std::size_t keep)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id);
    const std::string folder = QvExtractResPath(id) + "backup";
    if (tree.IsResource(folder))
        throw TFailure(Quoted(folder) + " is a resource");
    try {
        BackupResource(id, keep);
    } catch (const TQvMessage& message) {
        throw TFailure(
            WithCause(Quoted(id) + " could not be put aside", TResourceManager::LastFailure()));
    }
    // The backup itself reports no failure that comes later.
    const TQvFailure failure = TResourceManager::LastFailure();
    if (tree.ResourceExists(id) != kResNothing)
        throw TFailure(WithCause(Quoted(id) + " could not be put aside", failure));
    if (failure.Error != 0)
        throw TFailure(
            WithCause("an old backup of " + Quoted(id) + " could not be deleted", failure));
}

void PrintDone(THost& host, const std::string& marker)
{
    CheckId(marker);
    bool ok = false;
    if (GetResDoneResult(marker, &ok))
        PrintValue(host, ok ? "ok" : "fail");
    else if (TResourceManager::LastFailure().Error == ENOENT)
        PrintValue(host, "none");
    else
        ThrowFailed("the marker " + Quoted(marker) + " cannot be read");
}

void Done(THost& host, const std::string& id, const std::string& result)
{
    const TResourceManager& tree = host.Session.Tree();
    CheckId(id);
    const std::string marker = GetDoneResId(QvExcludeTrailingSlash(id));
    if (result.empty()) {
        PrintDone(host, marker);
        return;
    }
    RequireTarget(tree, marker);
    if (!SetResDoneResult(marker, result == "ok"))
        ThrowFailed("the marker " + Quoted(marker) + " cannot be written");
}

void OpenURL(THost& host, const std::string& url)
{
    // The scheme is registered together with the profile.
    host.Session.ProfileTree();
    var_a<TQvStream*> stream;
    try {
        stream = QvURLManager.OpenURLE(TQvURL(url), kQvOpenRead, kQvShareAll, 0);
    } catch (const TQvMessage& message) {
        throw WithMissingCause(message);
    }
    WriteContent(host, *stream, url);
}
} // namespace

void AddServiceCommands(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto keep = std::make_shared<std::size_t>(kBackupsKept);
    CLI::App* backup = AddCommand(
        app, "backup",
        "Move a resource into the folder \"backup\" beside it, named with the time of its last\n"
        "modification, and delete the oldest of its backups",
        "  qvres backup --keep 5 /Data/a.txt     (/Data/backup/a.2024-05-01.12-30-00.txt)");
    backup
        ->add_option("--keep", *keep,
                     "How many backups there are at most afterwards, 3 when left out; with 0 the\n"
                     "resource is deleted and no backup made")
        ->type_name("N")
        ->check(&CheckCount, "", "");
    AddIdOption(*backup, "ID", *id, "A resource")->required();
    backup->callback([&host, id, keep] { Backup(host, *id, *keep); });

    const auto result = std::make_shared<std::string>();
    CLI::App* done = AddCommand(app, "done",
                                "Print what the marker ID.done says (ok or fail; none when there "
                                "is no marker), or write it",
                                "  qvres done /Data/import ok\n"
                                "  [ \"$(qvres done /Data/import)\" = ok ] || echo again");
    AddIdOption(*done, "ID", *id, "What the marker belongs to; it need not be there")->required();
    done->add_option("RESULT", *result, "What to write: ok or fail")
        ->check(CLI::IsMember({"ok", "fail"}));
    done->callback([&host, id, result] { Done(host, *id, *result); });

    const auto url = std::make_shared<std::string>();
    CLI::App* open = AddCommand(app, "open",
                                "Write what a \"qvres:\" URL leads to to standard output. It needs "
                                "a VAR folder that is set up,\nwith --mount, too",
                                "  qvres open qvres:/Data/a.txt");
    open->add_option("URL", *url, "\"qvres:\" and the id of a resource")->required();
    open->callback([&host, url] { OpenURL(host, *url); });
}
