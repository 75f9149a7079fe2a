// Ids as text: id compact, merge, relative, parts, valid, mask. The disk is not accessed.
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Json.h"

namespace
{
using TFunctionOfOne = std::string (*)(const std::string&);
using TFunctionOfTwo = std::string (*)(const std::string&, const std::string&);

void AddForOne(CLI::App& app, THost& host, const std::string& name, const std::string& description,
               const std::string& example, const char* argumentName, TFunctionOfOne function)
{
    const auto argument = std::make_shared<std::string>();
    CLI::App* command = AddCommand(app, name, description, example);
    // Not compacted, unlike the ids of other commands: the text is what the function is asked
    // about.
    command->add_option(argumentName, *argument)->required();
    command->callback([&host, argument, function] { PrintValue(host, function(*argument)); });
}

void AddForTwo(CLI::App& app, THost& host, const std::string& name, const std::string& description,
               const std::string& example, const char* firstName, const char* secondName,
               TFunctionOfTwo function)
{
    const auto arguments = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* command = AddCommand(app, name, description, example);
    command->add_option(firstName, arguments->first)->required();
    command->add_option(secondName, arguments->second)->required();
    command->callback([&host, arguments, function] {
        PrintValue(host, function(arguments->first, arguments->second));
    });
}

void AddValid(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto wildcards = std::make_shared<bool>(false);
    CLI::App* command = AddCommand(app, "valid", "Print whether an id is valid: true or false",
                                   "  qvres id valid /Data/a  # true");
    command->add_flag("--wildcards", *wildcards, "\"*\" and \"?\" are allowed");
    command->add_option("ID", *id)->required();
    command->callback([&host, id, wildcards] {
        host.Out.Line(TResourceManager::IsValidResId(*id, !*wildcards) ? "true" : "false");
    });
}

void PrintParts(THost& host, const std::string& id)
{
    const std::vector<std::string> parts = BreakIdIntoParts(id);
    // A part that is not UTF-8 is an object with its bytes.
    if (host.Json) {
        auto values = nlohmann::ordered_json::array();
        for (const std::string& part : parts)
            values.push_back(ValueOf(part));
        host.Out.Line(ToJsonText(values));
        return;
    }
    for (const std::string& part : parts)
        host.Out.Line(part);
}

void AddParts(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    CLI::App* command = AddCommand(app, "parts", "Print the segments of an absolute id",
                                   "  qvres id parts /Data/a  # Data, a");
    command->add_option("ID", *id)->required();
    command->callback([&host, id] { PrintParts(host, *id); });
}
} // namespace

void AddIdCommands(CLI::App& app, THost& host)
{
    CLI::App* id = AddCommand(app, "id", "Work on ids as text; needs no VAR folder", "");
    id->require_subcommand(1);
    AddForOne(*id, host, "compact", "Remove \"./\" and \"segment/../\"",
              "  qvres id compact /A/../B/c  # /B/c", "ID", &QvCompactResId);
    AddForTwo(*id, host, "merge", "A relative id as seen from a folder",
              "  qvres id merge /A/B/ ../c  # /A/c", "BASE", "REL", &QvMergeResId);
    AddForTwo(*id, host, "relative", "An id relative to a folder",
              "  qvres id relative /A/c /A/B/  # ../c", "ID", "BASE", &GetRelativeResId);
    AddParts(*id, host);
    AddValid(*id, host);
    AddForOne(*id, host, "mask", "The regular expression for a search mask",
              "  qvres id mask '*.txt'", "MASK", &QvResSearchMaskToRegExpPattern);
}
