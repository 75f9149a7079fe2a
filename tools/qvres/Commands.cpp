#include "Commands.h"

#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Json.h"

namespace
{
/// As the library copies: large enough that calls cost little beside the content.
constexpr std::size_t kBlockSize = std::size_t{256} * 1024;
} // namespace

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& examples)
{
    CLI::App* command = app.add_subcommand(name, description);
    command->footer((examples.empty() ? std::string() : "Examples:\n" + examples + "\n") +
                    "The options --var, --mount, --json, --progress and --quiet are explained by "
                    "\"qvres --help\".");
    return command;
}

CLI::Option* AddIdOption(CLI::App& command, const std::string& name, std::string& id,
                         const std::string& description)
{
    return command.add_option(name, id, description)->transform(&CompactedId, "", "");
}

CLI::Option* AddIdsOption(CLI::App& command, const std::string& name, std::vector<std::string>& ids,
                          const std::string& description)
{
    return command.add_option(name, ids, description)->transform(&CompactedId, "", "");
}

void PrintValue(THost& host, const std::string& value)
{
    if (!host.Json)
        return host.Out.Line(value);
    host.Out.Line(ToJsonText(ValueOf(value)));
}

void WriteContent(THost& host, TQvStream& stream, const std::string& name)
{
    // Only for the bar: the loop ends where the stream does, whatever its size was.
    const std::uint64_t bytes = stream.getSize();
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Reading " + name);
    // The bar and the content would mix on one terminal.
    if (!host.Out.IsTerminal())
        progress.Start();
    const auto size = static_cast<double>(bytes);
    host.Progress.CountBytesOf(bytes);
    std::vector<char> block(kBlockSize);
    for (double done = 0;;) {
        BreakSignal::ThrowIfWanted();
        const std::size_t count = stream.Read(block.data(), block.size());
        // What was written already is on standard output: the exit status says that it is
        // incomplete.
        if (count == TQvStream::invalid_value)
            ThrowFailed(Quoted(name) + " cannot be read", -stream.getError(), name);
        if (count == 0)
            break;
        host.Out.Write({block.data(), count});
        done += static_cast<double>(count);
        progress.Report(done / size);
    }
}
