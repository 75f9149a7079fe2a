// Ids as text: id compact, merge, relative, parts, valid, mask. Nothing of the disk is looked at.
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Json.h"

namespace
{
using TArguments = std::vector<std::string>;

void PrintAll(THost& host, const TArguments& values)
{
    if (host.Json) {
        host.Out.Line(ToJsonText(values));
        return;
    }
    for (const std::string& value : values)
        host.Out.Line(value);
}

/// A function of one argument, applied to each.
void AddForEach(CLI::App& app, THost& host, const std::string& name, const std::string& description,
                const std::string& example, std::string (*function)(const std::string&))
{
    const auto arguments = std::make_shared<TArguments>();
    CLI::App* command = AddCommand(app, name, description, example);
    command->add_option("ARG", *arguments, "One or more; one result a line")->required();
    command->callback([&host, arguments, function] {
        TArguments results;
        for (const std::string& argument : *arguments)
            results.push_back(function(argument));
        PrintAll(host, results);
    });
}

using TFunctionOfTwo = std::string (*)(const std::string&, const std::string&);

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
    const auto arguments = std::make_shared<TArguments>();
    const auto wildcards = std::make_shared<bool>(false);
    CLI::App* command = AddCommand(app, "valid", "Print true or false for each id",
                                   "  qvres id valid /Data/a  (true)");
    command->add_flag("--wildcards", *wildcards, "\"*\" and \"?\" are allowed");
    command->add_option("ID", *arguments, "One or more")->required();
    command->callback([&host, arguments, wildcards] {
        TArguments results;
        for (const std::string& id : *arguments)
            results.push_back(TResourceManager::IsValidResId(id, !*wildcards) ? "true" : "false");
        PrintAll(host, results);
    });
}

void AddParts(CLI::App& app, THost& host)
{
    const auto argument = std::make_shared<std::string>();
    CLI::App* command = AddCommand(app, "parts", "Print the segments of an absolute id",
                                   "  qvres id parts /Data/a  (Data, a)");
    command->add_option("ID", *argument, "An absolute id")->required();
    command->callback([&host, argument] { PrintAll(host, BreakIdIntoParts(*argument)); });
}
} // namespace

void AddIdCommands(CLI::App& app, THost& host)
{
    CLI::App* id = AddCommand(app, "id", "Work on ids as text; needs no VAR folder", "");
    id->require_subcommand(1);
    AddForEach(*id, host, "compact", "Remove \"./\" and \"segment/../\"",
               "  qvres id compact /A/../B/c  (/B/c)", &QvCompactResId);
    AddForTwo(*id, host, "merge", "A relative id as seen from a folder",
              "  qvres id merge /A/B/ ../c  (/A/c)", "BASE", "REL", &QvMergeResId);
    AddForTwo(*id, host, "relative", "An id relative to a folder",
              "  qvres id relative /A/c /A/B/  (../c)", "ID", "BASE", &GetRelativeResId);
    AddParts(*id, host);
    AddValid(*id, host);
    AddForEach(*id, host, "mask", "The regular expression for a search mask",
               "  qvres id mask '*.txt'", &QvResSearchMaskToRegExpPattern);
}
