// Starts qvres-serve, which alone needs libfuse.
#include <cerrno>
#include <filesystem>
#include <unistd.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "ServeCommand.h"

namespace
{
std::vector<std::string> Arguments(const THost& host, const TServeOptions& options)
{
    std::vector<std::string> arguments{"qvres"};
    if (!host.Session.VarFolder.empty())
        arguments.insert(arguments.end(), {"--var", host.Session.VarFolder});
    for (const std::string& mount : host.Session.Mounts)
        arguments.insert(arguments.end(), {"--mount", mount});
    if (host.Json)
        arguments.emplace_back("--json");
    arguments.emplace_back("serve");
    if (options.ReadOnly)
        arguments.emplace_back("--read-only");
    if (options.Foreground)
        arguments.emplace_back("--foreground");
    if (options.AllowOther)
        arguments.emplace_back("--allow-other");
    if (options.Stop)
        arguments.emplace_back("--stop");
    else
        arguments.insert(arguments.end(), {"--attr-timeout", std::to_string(options.AttrTimeout),
                                           "--", CompactedId(options.Id)});
    arguments.push_back(options.Folder);
    return arguments;
}
} // namespace

void RunServe(THost& host, const TServeOptions& options)
{
    // Beside this program, not by PATH: both must be of one version.
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path program = (self.parent_path() / QVRES_SERVE).lexically_normal();
    std::vector<std::string> arguments = Arguments(host, options);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    // In place of this process, so that signals and the exit status are those of the server.
    execv(program.c_str(), pointers.data());
    if (errno == ENOENT)
        throw TFailure("this installation has no " + program.string() +
                       ": it was built without libfuse");
    ThrowFailed(program.string() + " cannot be started", errno);
}
