#include "Commands.h"

#include <CLI/CLI.hpp>

#include "Json.h"

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& examples)
{
    CLI::App* command = app.add_subcommand(name, description);
    command->footer((examples.empty() ? std::string() : "Examples:\n" + examples + "\n") +
                    "The options --var, --mount, --json and --quiet are explained by \"qvres "
                    "--help\".");
    return command;
}

void PrintValue(THost& host, const std::string& value)
{
    host.Out.Line(host.Json ? ToJsonText(value) : value);
}
