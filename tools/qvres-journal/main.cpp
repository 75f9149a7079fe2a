// qvres-journal: does the work of "qvres journal", which runs it.
#include <exception>

#include "JournalOperations.h"
#include "QvConfig/Config.h"
#include "QvStd/Files.h"
#include "QvStd/XIniReader.h"
#include "manager/ResourceManager.h"

namespace
{
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

/// A malformed settings file is no reason to leave a storage alone, but is told: what it does not
/// give has its default.
void CheckSettings()
{
    const std::string file = QvGetConfigString(9, true) + "ResourceManager.x-ini";
    try {
        if (QvFileExists(file))
            GetXIniReader(TQvPath(file));
    } catch (const std::exception& malformed) {
        PrintError(malformed.what());
    }
}

/// The configuration gives the lock its owner, and the settings when it has any: a storage can be
/// looked after on a machine that has no profile, with the defaults.
void ReadSettings()
{
    Init_QvConfig();
    if (!pQvConfigData->getLoaded())
        return;
    CheckSettings();
    try {
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
