// qvres-journal: does the work of "qvres journal", which runs it.
#include <exception>

#include "JournalOperations.h"
#include "QvConfig/Config.h"
#include "manager/ResourceManager.h"

namespace
{
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/// The configuration gives the lock its owner, and the settings when it has any: a storage can be
/// looked after on a machine that has no profile, with the defaults.
void ReadSettings()
{
    Init_QvConfig();
    try {
        if (pQvConfigData->getLoaded())
            ResourceManager.Init();
    } catch (const std::exception& unreadable) {
        // No reason to leave a storage alone: what was not read has its default.
        PrintError(unreadable.what());
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
