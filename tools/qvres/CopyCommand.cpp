// copy: the extended copy.
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
struct TCopyOptions
{
    bool Overwrite = false;
    bool Ask = false;
    std::vector<std::string> Ids; ///< the sources, then the destination
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
    static_cast<THost*>(context)->Progress.Hide();
    std::fprintf(stderr, "overwrite \"%s\"? [y/N] ", destinationId.c_str());
    const std::string answer = ReadAnswer();
    if (isatty(STDIN_FILENO) == 0)
        std::fputc('\n', stderr);
    return !answer.empty() && (answer.front() == 'y' || answer.front() == 'Y');
}

std::string Source(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    if (RequireExisting(tree, QvExcludeTrailingSlash(id)) == kResFolder)
        return QvIncludeTrailingSlash(id);
    RequireResource(tree, id);
    return id;
}

std::string Destination(const TResourceManager& tree, const std::string& givenId)
{
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    if (tree.IsResource(id))
        throw TFailure(Quoted(id) + " is not a folder");
    if (!tree.IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " lies outside of the mounted folders");
    return id;
}

void Copy(THost& host, const TCopyOptions& options)
{
    const TResourceManager& tree = host.Session.Tree();
    std::set<std::string> failed;
    std::map<std::string, TQvFailure> failures;
    TResourceManager::TCopyResourceExParams params;
    for (std::size_t i = 0; i + 1 < options.Ids.size(); ++i)
        params.Sources.insert(Source(tree, options.Ids[i]));
    params.DestFolder = Destination(tree, options.Ids.back());
    params.OverwriteDefault = options.Overwrite;
    params.OverwriteCallback = options.Ask ? &AskToOverwrite : nullptr;
    params.CallbackContext = &host;
    params.Failed = &failed;
    params.Failures = &failures;
    params.Progress = &host.Progress;
    host.Progress.SetMessage("Copying to " + params.DestFolder);
    const bool isDone = tree.CopyResourceEx(params);
    const TQvFailure failure = TResourceManager::LastFailure();
    if (isDone && failure.Error == 0)
        return;
    if (!isDone && failed.empty())
        ThrowFailed("nothing can be copied to " + Quoted(params.DestFolder));
    BreakSignal::ThrowIfWanted();
    host.Status = 1;
    if (isDone)
        PrintError(WithCause("the metadata of a resource could not be copied", failure));
    for (const auto& [id, cause] : failures)
        PrintError(WithCause(Quoted(id) + " could not be copied", cause));
}
} // namespace

void AddCopyCommand(CLI::App& app, THost& host)
{
    const auto options = std::make_shared<TCopyOptions>();
    CLI::App* command = AddCommand(
        app, "copy",
        "Copy resources and folders with their metadata into a folder, which is created when it\n"
        "is missing. They keep their layout below the folder that holds all of them; of one "
        "single\n"
        "folder the contents are copied. What exists is skipped. Each one that could not be\n"
        "copied is named on standard error, and the exit status is 1 then",
        "  qvres copy /Data/a /Data/b /Backup     (/Backup/a, /Backup/b)\n"
        "  qvres copy /Data/2024 /Backup/2024     (what /Data/2024 holds)\n"
        "  qvres copy --ask /Data /Backup");
    command->formatter(std::make_shared<TCopyFormatter>());
    CLI::Option* overwrite =
        command->add_flag("--overwrite", options->Overwrite, "Replace resources that exist");
    command
        ->add_flag("--ask", options->Ask,
                   "Ask for each resource that exists; the end of the input means no")
        ->excludes(overwrite);
    AddIdsOption(*command, "SRC", options->Ids,
                 "Resources and folders, then the folder to copy into")
        ->required()
        ->expected(2, -1);
    command->callback([&host, options] { Copy(host, *options); });
}
