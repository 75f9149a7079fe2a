// The commands of qvres and what they share.
#pragma once

#include <string>
#include <vector>

#include "Output.h"
#include "Session.h"
#include "TerminalProgress.h"

namespace CLI
{
class App;
class Option;
} // namespace CLI

/// The state that commands share.
struct THost
{
    bool Json = false;
    bool Quiet = false;
    std::string ProgressKind = "bar";
    /// The exit status when nothing is thrown: a command that has reported a problem sets 1.
    int Status = 0;
    TOutput Out;
    TTerminalProgress Progress;
    TSession Session;
};

/// A command whose help ends with `examples` (separate lines) and a sentence about the common
/// options.
CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& examples);

/// That there is no command or option `word` at this level, and which command may be meant.
std::string UnknownCommand(const CLI::App& level, const std::string& word);

/// An argument that is an id (or several): "." and ".." are resolved before a command sees it, so
/// that checks and operations use the same id.
CLI::Option* AddIdOption(CLI::App& command, const std::string& name, std::string& id,
                         const std::string& description);
CLI::Option* AddIdsOption(CLI::App& command, const std::string& name, std::vector<std::string>& ids,
                          const std::string& description);

/// One value on a line of its own; as JSON a string, or an object with its bytes (Json.h) when it
/// is no UTF-8.
void PrintValue(THost& host, const std::string& value);

/// Writes everything from the stream's position to its end to standard output; `name` is the user's
/// name for it.
void WriteContent(THost& host, TQvStream& stream, const std::string& name);

// Each adds the commands of its file; `host` must outlive the parsing. Options are declared one by
// one, though alike: a table could not have the parser's own checks.
void AddMountCommands(CLI::App& app, THost& host);
void AddListCommands(CLI::App& app, THost& host);
void AddContentCommands(CLI::App& app, THost& host);
void AddPutCommand(CLI::App& app, THost& host);
void AddFolderCommands(CLI::App& app, THost& host);
void AddCopyCommand(CLI::App& app, THost& host);
void AddLabelCommands(CLI::App& app, THost& host);
void AddWhichCommand(CLI::App& app, THost& host);
void AddDoctorCommand(CLI::App& app, THost& host);
void AddBackupCommands(CLI::App& app, THost& host);
void AddServiceCommands(CLI::App& app, THost& host);
void AddXIniCommands(CLI::App& app, THost& host);
void AddSetupCommand(CLI::App& app, THost& host);
void AddProfileCommands(CLI::App& app, THost& host);
void AddIdCommands(CLI::App& app, THost& host);
void AddJournalCommand(CLI::App& app, THost& host);
void AddHelpCommand(CLI::App& app, THost& host);
