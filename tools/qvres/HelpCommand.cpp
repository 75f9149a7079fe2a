// help, and the command that a mistyped one may have meant.
#include <algorithm>
#include <memory>
#include <numeric>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"

namespace
{
/// The edit distance: insertions, deletions, replacements and swaps of two letters.
std::size_t Distance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> rows(a.size() + 1,
                                               std::vector<std::size_t>(b.size() + 1));
    std::iota(rows[0].begin(), rows[0].end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        rows[i][0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, replaced});
            // Two swapped letters are the most frequent mistake in typing: one step, not two.
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

void PrintHelp(CLI::App& app, THost& host, const std::vector<std::string>& words)
{
    CLI::App* level = &app;
    std::string before;
    for (const std::string& word : words) {
        const std::vector<CLI::App*> commands = level->get_subcommands(
            [&word](CLI::App* command) { return command->check_name(word); });
        if (commands.empty())
            throw CLI::ValidationError(UnknownCommand(*level, word));
        before += (before.empty() ? "" : " ") + level->get_name();
        level = commands.front();
    }
    // Without words the overview of all commands.
    host.Out.Write(words.empty() ? app.get_formatter()->make_help(&app, app.get_name(),
                                                                  CLI::AppFormatMode::Normal)
                                 : level->help(before));
}
} // namespace

std::string UnknownCommand(const CLI::App& level, const std::string& word)
{
    std::string best;
    // A third of the letters may be wrong, and one in any case.
    std::size_t least = std::max<std::size_t>(word.size() / 3, 1) + 1;
    for (const CLI::App* command : level.get_subcommands({})) {
        const std::size_t distance = Distance(word, command->get_name());
        if (distance < least) {
            least = distance;
            best = command->get_name();
        }
    }
    return "\"" + word + "\" is neither a command nor an option" +
           (best.empty() ? best : "; did you mean \"" + best + "\"?");
}

void AddHelpCommand(CLI::App& app, THost& host)
{
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* command = AddCommand(app, "help", "Explain a command",
                                   "  qvres help ls\n"
                                   "  qvres help profile add");
    command->add_option("COMMAND", *words, "The command; without one the overview is shown");
    command->callback([&app, &host, words] { PrintHelp(app, host, *words); });
}
