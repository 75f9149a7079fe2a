// qvres: the resource tree on the command line.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>
#include <QvStd/Result.h>

#include "BreakSignal.h"
#include "Commands.h"
#include "LogWarnings.h"
#include "ServeCommand.h"

namespace
{
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kCancelled = 130; ///< as shells report a command that Ctrl-C has ended

constexpr char kDescription[] =
    "qvres works on the tree of resources: folders of the disk, mounted at ids such as /Data.\n"
    "It exits with 0 when the work is done, 1 when it failed (one line on standard error says "
    "why),\n2 when it was called wrongly and 130 when it was cancelled.";

constexpr char kFooter[] =
    "Without --var the VAR folder is the one in QV_VAR_FOLDER, else the configured one, else\n"
    "the default folder under the home folder. Letter case does not matter in the names "
    "of\n"
    "mount points; the files in their folders are named as on the disk.\n"
    "\n"
    "Examples:\n"
    "  qvres --mount /Src=. ls -l /Src\n"
    "  qvres --mount /Src=. --mount /Bak=/srv/backup cp /Src/README.md /Bak/README.md\n"
    "  qvres setup /srv/data\n"
    "  qvres mount /Work /srv/work\n"
    "  echo hello | qvres put /Data/hello.txt\n"
    "\n"
    "\"qvres help COMMAND\" explains a command.";

/// A file that is opened later must not get the number of a closed standard stream. The placeholder
/// cannot be used, so that reading or writing a stream that the caller has closed still fails.
void OccupyClosedStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void AddOptions(CLI::App& app, THost& host)
{
    app.add_option("--var", host.Session.VarFolder, "The VAR folder")
        ->type_name("DIR")
        ->check(
            [](const std::string& folder) {
                return folder.empty() ? "\"\" names no folder" : std::string();
            },
            "", "");
    app.add_option("--mount", host.Session.Mounts,
                   "Mount the folder DIR at ID for this call only; may be repeated. A call with it "
                   "needs no VAR folder")
        ->type_name("ID=DIR")
        ->allow_extra_args(false)
        ->check(&TSession::CheckMountOption, "", "");
    app.add_flag("--json", host.Json, "Listings, records, values and errors as JSON");
    app.add_option("--progress", host.ProgressKind,
                   "How progress is shown on standard error: as a bar when that is a terminal\n"
                   "(bar, the default), as one object on each line (json), or not (none)")
        ->check(CLI::IsMember({"bar", "json", "none"}))
        ->type_name("KIND");
    app.add_flag("--quiet", host.Quiet, "No progress bar, and no summary of a copy");
    app.set_version_flag("--version", "qvres " QVRES_VERSION);
    // The common options are accepted after the command, too.
    app.fallthrough();
    app.require_subcommand(1);
    app.footer(kFooter);
    app.parse_complete_callback([&host] {
        if (host.ProgressKind == "json")
            host.Progress.ShowAsJson();
        else if (!host.Quiet && host.ProgressKind == "bar")
            host.Progress.ShowOnTerminal();
    });
}

int WrongUsage(const CLI::App& app, const CLI::ParseError& error)
{
    std::string command = "qvres";
    const CLI::App* level = &app;
    while (!level->get_subcommands().empty()) {
        level = level->get_subcommands().front();
        command += " " + level->get_name();
    }
    // CLI11 would only name the words that it does not know; a command that resembles one helps
    // more.
    const std::vector<std::string> unknown = app.remaining(true);
    const bool isUnknownCommand = !unknown.empty() && !level->get_subcommands({}).empty();
    PrintError((isUnknownCommand ? UnknownCommand(*level, unknown.front()) : error.what()) +
               " (\"" + command + " --help\" explains the usage)");
    return kWrongUsage;
}

int Run(CLI::App& app, THost& host, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        host.Out.Write(app.help());
    } catch (const CLI::CallForVersion& version) {
        host.Out.Line(version.what());
    } catch (const CLI::ParseError& error) {
        return WrongUsage(app, error);
    }
    // The last output is part of the work: when it cannot be written, the call has failed.
    host.Out.Close();
    return host.Status;
}

/// Output before a failure is still written.
void FlushAfterFailure(TOutput& out)
{
    try {
        if (!BreakSignal::Wanted())
            out.Flush();
    } catch (const std::exception&) {
        // The first failure is the one to report.
    }
}

int Report(THost& host, const TFailure& failure)
{
    FlushAfterFailure(host.Out);
    PrintError(failure);
    // What was logged on the way to the failure with the same cause says the same again. Another
    // cause may be the reason for this one.
    if (const int error = ErrorOf(failure); error != 0)
        LogWarnings::Drop(QvErrorText(error));
    return kFailed;
}

int RunAndReport(CLI::App& app, THost& host, int argc, char** argv)
{
    try {
        return Run(app, host, argc, argv);
    } catch (const TQvUserBreak& cancelled) {
        PrintError(TFailure(cancelled.what(), "", ECANCELED));
        return kCancelled;
    } catch (const TFailure& failure) {
        return Report(host, failure);
    } catch (const TQvMessage& message) {
        // The message is for people; the record adds errno and id for JSON.
        const TQvFailure& cause = TResourceManager::LastFailure();
        return Report(host, TFailure(message.what(), cause.Id, cause.Error));
    } catch (const std::exception& failure) {
        return Report(host, TFailure(failure.what()));
    }
}
} // namespace

int main(int argc, char** argv)
{
    // Before anything opens a file.
    OccupyClosedStandardStreams();
    BreakSignal::Install();
    // "qvres cat ID | head" ends without a message, whatever signal handling the caller has set.
    std::signal(SIGPIPE, SIG_DFL);

    // Known before the arguments are parsed, which may fail, too.
    if (std::find(argv, argv + argc, std::string_view("--json")) != argv + argc)
        ErrorsAsJson();
    LogWarnings::Collect();
    THost host;
    CLI::App app(kDescription, "qvres");
    AddOptions(app, host);
    AddSetupCommand(app, host);
    AddMountCommands(app, host);
    AddListCommands(app, host);
    AddWhichCommand(app, host);
    AddContentCommands(app, host);
    AddPutCommand(app, host);
    AddFolderCommands(app, host);
    AddCopyCommand(app, host);
    AddLabelCommands(app, host);
    AddBackupCommands(app, host);
    AddServiceCommands(app, host);
    AddDoctorCommand(app, host);
    AddXIniCommands(app, host);
    AddServeCommand(app, host);
    AddIdCommands(app, host);
    AddProfileCommands(app, host);
    AddJournalCommand(app, host);
    AddHelpCommand(app, host);
    const int status = RunAndReport(app, host, argc, argv);
    LogWarnings::PrintUnsaid();
    return status;
}
