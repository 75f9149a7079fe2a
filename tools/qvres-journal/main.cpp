// qvres-journal: does the work of "qvres journal", which runs it.
#include <algorithm>
#include <cstdio>
#include <exception>

#include "JournalOperations.h"
#include "QvConfig/Config.h"
#include "manager/ResourceManager.h"

namespace
{
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/// Always one line, whatever ids and file names hold.
void PrintError(std::string message)
{
    std::replace_if(
        message.begin(), message.end(), [](char c) { return c >= 0 && c < 0x20; }, ' ');
    std::fprintf(stderr, "qvres: %s\n", message.c_str());
}

/// The configuration gives the lock its owner, and the settings when it has any: a storage can be
/// looked after on a machine that has no profile, with the defaults.
void ReadSettings()
{
    Init_QvConfig();
    try {
        if (pQvConfigData->getLoaded())
            ResourceManager.Init();
    } catch (const std::exception&) {
        // The settings are read first: what failed is the mounting, which nobody needs here.
    }
}
} // namespace

int main(int argc, char** argv)
{
    CLI::App app("The journal of a resource storage", "qvres journal");
    TJournalCall wanted;
    app.add_flag("--json", wanted.Json, "Records as JSON");
    AddJournalOperations(app, [&wanted](const TJournalCall& call) {
        const bool json = wanted.Json;
        wanted = call;
        wanted.Json = json;
    });
    try {
        app.parse(argc, argv);
        ReadSettings();
        return RunJournal(wanted);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        PrintError(error.what());
        return kWrongUsage;
    } catch (const std::exception& failure) {
        PrintError(failure.what());
        return kFailed;
    }
}
