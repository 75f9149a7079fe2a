// copy: the extended copy.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>
#include <QvStd/Strings.h>

#include "Checks.h"
#include "Commands.h"
#include "Json.h"

namespace
{
struct TCopyOptions
{
    bool Overwrite = false;
    bool Ask = false;
    bool DryRun = false;
    std::vector<std::string> Ids; ///< the sources, then the destination
};

/// The user's answer for all further resources.
enum class TAnswer
{
    Each,
    All,
    None,
    Quit
};

/// The context of the copy's callbacks.
struct TCopyCall
{
    THost& Host;
    TAnswer Answer = TAnswer::Each;
    std::vector<std::string> WouldCopy; ///< for JSON
};

/// One option takes all ids, because one that may be repeated would leave none for another.
class TCopyFormatter : public CLI::Formatter
{
public:
    std::string make_usage(const CLI::App*, std::string name) const override
    {
        return "Usage: " + name + " [OPTIONS] SRC... DESTFOLDER\n";
    }
};

/// One line of standard input; "" at its end.
std::string ReadAnswer()
{
    std::string answer;
    // Byte by byte, so that no input after the line is taken from a program that runs next.
    for (char c = 0;;) {
        BreakSignal::WaitForInput(STDIN_FILENO);
        const ssize_t count = read(STDIN_FILENO, &c, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0 || c == '\n')
            return answer;
        answer += c;
    }
}

bool AskToOverwrite(const std::string& destinationId, void* context)
{
    TCopyCall& call = *static_cast<TCopyCall*>(context);
    if (call.Answer != TAnswer::Each)
        return call.Answer == TAnswer::All;
    // The question is written to the line that the bar uses.
    call.Host.Progress.Hide();
    std::fprintf(stderr, "overwrite \"%s\"? [yes/No/all/none/quit] ", destinationId.c_str());
    std::string answer = ReadAnswer();
    // On a terminal the user's own line feed ends the line.
    if (isatty(STDIN_FILENO) == 0)
        std::fputc('\n', stderr);
    answer = tolower_locale(answer);
    if (answer == "none")
        call.Answer = TAnswer::None;
    else if (answer == "a" || answer == "all")
        call.Answer = TAnswer::All;
    else if (answer == "q" || answer == "quit")
        call.Answer = TAnswer::Quit;
    if (call.Answer == TAnswer::Quit)
        throw TQvUserBreak();
    return call.Answer == TAnswer::All || answer == "y" || answer == "yes";
}

void ShowDestination(const std::string& destinationId, void* context)
{
    TCopyCall& call = *static_cast<TCopyCall*>(context);
    if (call.Host.Json)
        call.WouldCopy.push_back(destinationId);
    else
        call.Host.Out.Line(destinationId);
}

/// Used as given: a "/" at the end of a folder means that only its content is copied.
std::string Source(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    if (RequireExisting(tree, QvExcludeTrailingSlash(id)) != kResFolder)
        RequireResource(tree, id);
    return id;
}

std::string Destination(const TResourceManager& tree, const std::string& givenId)
{
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    if (tree.IsResource(id))
        throw TFailure(Quoted(id) + " is not a folder", id, ENOTDIR);
    // Checked here, because the copy would report each resource instead of the cause.
    if (!tree.IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " is outside the mounted folders", id, EROFS);
    return id;
}

/// Without links, also where the folder is still to be made; "" above the mount points.
std::string DiskFolder(const TResourceManager& tree, const std::string& id)
{
    const TResourceManager::TMountNode* const node = tree.GetNode4Id(id, true, true, false);
    std::error_code error;
    return node->IsPureVirtual()
               ? std::string()
               : std::filesystem::weakly_canonical(node->GetResourceFile(id), error).string();
}

/// Each call would copy the copies of the calls before, too. A link or another mount may lead into
/// the folder.
void RefuseCopyIntoItself(const TResourceManager& tree, const std::string& source,
                          const std::string& destination)
{
    const std::string folder = QvExcludeTrailingSlash(source);
    if (!tree.IsFolder(folder, false))
        return;
    // Checked by ids and on the disk, since each check misses cases that the other one finds.
    const std::string from = DiskFolder(tree, folder);
    if (IsAtOrBelow(QvNormalizeResId(destination), QvNormalizeResId(folder)) ||
        (!from.empty() && IsAtOrBelow(DiskFolder(tree, destination), from)))
        throw TFailure("the folder " + Quoted(folder) + " cannot be copied into itself", folder,
                       EINVAL);
}

/// Of the names that begin with a "." below the folder those whose own folder is copied.
std::size_t HiddenNames(const TResourceManager& tree, const std::string& source)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    tree.Find(items, source, "*", kFindResources | kFindFolders | kFindRecursive | kFindHidden,
              nullptr);
    // A source that is itself hidden was named by the user, and is copied.
    const std::size_t skipped = QvExcludeTrailingSlash(source).size();
    return static_cast<std::size_t>(
        std::count_if(items->begin(), items->end(), [skipped](const TQvResFindItem& item) {
            const std::size_t hidden = item.Id.find("/.", skipped);
            return hidden != std::string::npos &&
                   item.Id.find('/', hidden + 1) == std::string::npos;
        }));
}

struct TLeftOut
{
    std::size_t Hidden = 0;
    std::size_t Invalid = 0;
    std::size_t Failed = 0;
};

/// A folder whose name is no valid id is left out with its content.
bool IsBelowInvalid(const std::string& id)
{
    const std::string folder = QvExcludeTrailingSlash(QvExtractResPath(id));
    return !IdProblem(folder).empty();
}

/// One line for each that was not copied.
void PrintFailures(const std::map<std::string, TQvFailure>& failures, TLeftOut& leftOut)
{
    for (const auto& [id, cause] : failures) {
        const std::string problem = IdProblem(id);
        if (problem.empty()) {
            ++leftOut.Failed;
            PrintError(WithCause(Quoted(id) + " could not be copied", cause, id));
        } else if (!IsBelowInvalid(id)) {
            ++leftOut.Invalid;
            PrintError(
                TFailure(Quoted(id) + " was left out, because it is not a valid id: " + problem, id,
                         EINVAL));
        }
    }
}

std::string Count(std::uint64_t number, const std::string& noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

void PrintSummary(THost& host, const TCopyCall& call, const TResourceManager::TCopyCounts& counts,
                  const TLeftOut& leftOut, bool dryRun)
{
    if (host.Json) {
        nlohmann::ordered_json record = {
            {"resources", counts.Resources}, {"folders", counts.Folders},
            {"bytes", counts.Bytes},         {"skipped", counts.Skipped},
            {"hidden", leftOut.Hidden},      {"invalid", leftOut.Invalid},
            {"failed", leftOut.Failed}};
        for (const std::string& id : call.WouldCopy)
            record["wouldCopy"].push_back(RecordOf(id));
        return host.Out.Line(ToJsonText(record));
    }
    std::string line = dryRun ? "would copy " : "copied ";
    line += Count(counts.Resources, "resource") + " (" + Count(counts.Bytes, "byte") + ") and " +
            Count(counts.Folders, "folder");
    if (counts.Skipped > 0)
        line += ", skipped " + std::to_string(counts.Skipped) + " existing";
    if (leftOut.Hidden > 0)
        line += ", left out " + Count(leftOut.Hidden, "hidden name");
    if (leftOut.Invalid > 0)
        line += ", left out " + Count(leftOut.Invalid, "name") + " not valid as id";
    if (leftOut.Failed > 0)
        line += ", " + std::to_string(leftOut.Failed) + " failed";
    if (!host.Quiet)
        host.Out.Line(line);
}

TLeftOut CopyAll(THost& host, TCopyCall& call, TResourceManager::TCopyResourceExParams& params)
{
    std::set<std::string> failed;
    std::map<std::string, TQvFailure> failures;
    params.Failed = &failed;
    params.Failures = &failures;
    const TResourceManager& tree = host.Session.Tree();
    const bool isDone = tree.CopyResourceEx(params);
    const TQvFailure failure = TResourceManager::LastFailure();
    // Before the failures: after a break they are the consequence, and one line is enough.
    BreakSignal::ThrowIfWanted();
    if (call.Answer == TAnswer::Quit)
        throw TQvUserBreak();
    if (!isDone && failed.empty())
        ThrowFailed("nothing can be copied to " + Quoted(params.DestFolder));
    if (!isDone || failure.Error != 0)
        host.Status = 1;
    // Between two mounts the copy counts as done; this failure is in no list.
    if (isDone && failure.Error != 0)
        PrintError(WithCause("the metadata of a resource could not be copied", failure));
    TLeftOut leftOut;
    PrintFailures(failures, leftOut);
    return leftOut;
}

void Copy(THost& host, const TCopyOptions& options)
{
    const TResourceManager& tree = host.Session.Tree();
    TCopyCall call{host, TAnswer::Each, {}};
    TResourceManager::TCopyCounts counts;
    TResourceManager::TCopyResourceExParams params;
    for (std::size_t i = 0; i + 1 < options.Ids.size(); ++i)
        params.Sources.insert(Source(tree, options.Ids[i]));
    params.DestFolder = Destination(tree, options.Ids.back());
    for (const std::string& source : params.Sources)
        RefuseCopyIntoItself(tree, source, params.DestFolder);
    params.OverwriteDefault = options.Overwrite;
    params.OverwriteCallback = options.Ask ? &AskToOverwrite : nullptr;
    params.CallbackContext = &call;
    params.Progress = &host.Progress;
    params.Counts = &counts;
    params.DryRun = options.DryRun;
    params.CopiedCallback = options.DryRun ? &ShowDestination : nullptr;
    host.Progress.SetMessage("Copying to " + params.DestFolder);
    // By reference: the copy fills it in when it has listed the sources.
    host.Progress.CountBytesOf(counts.TotalBytes);
    TLeftOut leftOut = CopyAll(host, call, params);
    for (const std::string& source : params.Sources)
        if (tree.IsFolder(QvExcludeTrailingSlash(source), false))
            leftOut.Hidden += HiddenNames(tree, source);
    PrintSummary(host, call, counts, leftOut, options.DryRun);
}
} // namespace

void AddCopyCommand(CLI::App& app, THost& host)
{
    const auto options = std::make_shared<TCopyOptions>();
    CLI::App* command = AddCommand(
        app, "copy",
        "Copy resources and folders with their metadata into a folder, which is created when it\n"
        "is missing. A single folder is copied as a whole; with a \"/\" at its end its "
        "content is.\n"
        "Several sources keep their layout below the folder that contains all of them. What "
        "exists is\n"
        "skipped, hidden names are left out. Each one that could not be copied is named on "
        "standard\n"
        "error, and the exit status is 1 then. The last line has the counts",
        "  qvres copy /Data/a /Data/b /Backup     # /Backup/a, /Backup/b\n"
        "  qvres copy /Data/2024 /Backup          # /Backup/2024\n"
        "  qvres copy /Data/2024/ /Backup/2024    # the content of /Data/2024\n"
        "  qvres copy --ask /Data /Backup");
    command->formatter(std::make_shared<TCopyFormatter>());
    CLI::Option* overwrite =
        command->add_flag("--overwrite", options->Overwrite, "Replace resources that exist");
    command
        ->add_flag("--ask", options->Ask,
                   "Ask for each resource that exists (yes, no, all, none, quit); the end of the "
                   "input means no")
        ->excludes(overwrite);
    command->add_flag("--dry-run", options->DryRun,
                      "Change nothing; print the ids that would be written");
    AddIdsOption(*command, "SRC", options->Ids,
                 "Resources and folders, then DESTFOLDER, the folder to copy into")
        ->required()
        ->expected(2, -1);
    command->callback([&host, options] { Copy(host, *options); });
}
