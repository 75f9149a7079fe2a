// The command line of "qvres journal", as qvres and the program that does its work both parse it.
//
// Thread-safety: belongs to one thread.
#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>

struct TJournalCall
{
    std::string Operation; ///< load, verify, add, remove, rebuild or merge
    std::string Folder;
    bool HasId = false; ///< add and remove take one
    std::string Id;
    bool Json = false;
    std::string VarFolder; ///< of --var; "" when it was not given
};

/// Adds the operations to `app` as subcommands, one of which is required; `run` is called when the
/// command line was right.
void AddJournalOperations(CLI::App& app, const std::function<void(const TJournalCall&)>& run);
