// setup: the first run.
#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "LogWarnings.h"
#include "ProfileState.h"
#include "Repository.h"

namespace
{
constexpr char kFirstProfile[] = "LocalProfile";

struct TSetupOptions
{
    bool Common = false;
    std::optional<std::string> Repository; ///< "" switches it off
    std::optional<std::string> Folder;
};

struct TSettings
{
    TQvPath VarFolder;
    bool Common = false;
    bool UseRepository = false;
    bool StartsRepository = false; ///< it publishes nothing yet
    TQvPath Repository;
};

TSettings ChooseVarFolder(const TSetupOptions& options)
{
    TSettings settings;
    // A setting for all users stays one.
    bool isCommon = true;
    settings.Common =
        options.Common || (!TQvCPUtils::GetVARFolder(&isCommon).isPathEmpty() && isCommon);
    settings.VarFolder = TQvCPUtils::GetQvVARFolder(nullptr);
    if (settings.VarFolder.isPathEmpty())
        throw TFailure(TSession::NoVarFolderHint());
    if (!settings.VarFolder.isAbsolute())
        throw TFailure("the VAR folder " + Quoted(settings.VarFolder.toSysStr()) +
                       " is not an absolute path");
    return settings;
}

void ChooseRepository(const TSetupOptions& options, TSettings& settings)
{
    if (options.Repository && !options.Repository->empty())
        settings.Repository = TQvPath(TSession::Absolute(*options.Repository));
    else
        settings.Repository = TQvCPUtils::GetRepositoryFolder(settings.VarFolder, false);
    // Switched off, its folder stays in the settings, so that it can be switched on again.
    const bool switchOff = options.Repository && options.Repository->empty();
    settings.UseRepository = !switchOff && !settings.Repository.isPathEmpty();
    if (settings.Repository.isPathEmpty())
        settings.Repository = TQvCPUtils::GetRepositoryFolder(settings.VarFolder, true);
    // Only for one in the arguments: a stored one that looks empty may be disconnected now.
    settings.StartsRepository =
        settings.UseRepository && options.Repository && PublishesNothingYet(settings.Repository);
    const std::string problem = settings.UseRepository && !settings.StartsRepository
                                    ? RepositoryProblem(settings.Repository)
                                    : std::string();
    if (!problem.empty())
        throw TFailure(problem);
}

void ApplySettings(const TSettings& settings)
{
    std::string error;
    if (!TQvCPUtils::PerformOK(settings.VarFolder, settings.Common, settings.UseRepository,
                               settings.Repository, error))
        throw TFailure(LogWarnings::WithLast(error));
}

/// A repository may publish one of the first profile's name.
std::string FreeName(const TQvCPUtils::TCPState& state)
{
    std::string name = kFirstProfile;
    for (int number = 2; state.FindProfile(name) != nullptr; ++number)
        name = kFirstProfile + std::to_string(number);
    return name;
}

/// A repository fills the VAR folder with profiles before there is a first one of its own.
void PutIntoFirstProfile(TQvCPUtils::TCPState& state, const TQvPath& folder)
{
    const bool allRemote =
        std::all_of(state.Profiles.begin(), state.Profiles.end(),
                    [](const TQvResourceProfile& profile) { return profile.Remote; });
    TQvResourceProfile* profile =
        allRemote ? &CreateProfile(state, FreeName(state)) : state.FindProfile(kFirstProfile);
    // A first profile with other mounts was changed by the user: setup does not extend it.
    if (profile == nullptr || profile->Remote ||
        (!profile->Nodes.empty() &&
         profile->Nodes.count(QvNormalizeResId(MountPointOf(folder))) == 0))
        throw TFailure("there are profiles already; \"qvres profile add NAME FOLDER\" adds a "
                       "folder to one of them");
    AddFolder(state, *profile, folder);
    if (state.CurrentProfile.empty())
        state.CurrentProfile = profile->Name;
}

void SelectSomeProfile(TQvCPUtils::TCPState& state)
{
    if (state.Profiles.empty())
        CreateProfile(state, kFirstProfile);
    else if (state.CurrentProfile.empty())
        state.CurrentProfile = state.Profiles.front().Name;
}

/// Why the folder could not be put into the first profile; "" when it is there. In either case some
/// profile is current afterwards, also when an earlier call was killed before it selected one.
std::string SetUpProfiles(TQvProgressHandler& progress, const TQvPath& folder)
{
    TProfileChange change(progress);
    std::string refusal;
    try {
        if (!folder.isPathEmpty())
            PutIntoFirstProfile(change.State, folder);
    } catch (const TFailure& failure) {
        refusal = failure.what();
    }
    SelectSomeProfile(change.State);
    change.Save();
    return refusal;
}

void Setup(THost& host, const TSetupOptions& options)
{
    if (options.Common && !host.Session.VarFolder.empty())
        throw CLI::ValidationError("--common",
                                   "cannot be combined with --var, which is for one call; "
                                   "set QV_VAR_FOLDER to use another VAR folder");
    // First, so that a wrong argument changes nothing.
    const TQvPath folder = options.Folder ? FolderToMount(*options.Folder) : TQvPath();
    // Without the default folder in the environment: the setting is stored for later calls.
    host.Session.StartConfiguration(false);
    TSettings settings = ChooseVarFolder(options);
    ChooseRepository(options, settings); // a refusal leaves no folder
    const TQvVarFolderLock lock(settings.VarFolder);
    ChooseRepository(options, settings); // another process may have changed it
    if (settings.StartsRepository)
        StartPublishing(settings.Repository);
    ApplySettings(settings);
    const std::string refusal = SetUpProfiles(host.Progress, folder);
    if (!refusal.empty())
        throw TFailure(refusal);
    // As the next command will see it.
    host.Session.RequireSetUp();
    if (!folder.isPathEmpty())
        PrintValue(host, MountPointOf(folder));
}
} // namespace

void AddSetupCommand(CLI::App& app, THost& host)
{
    const auto options = std::make_shared<TSetupOptions>();
    CLI::App* command = AddCommand(
        app, "setup",
        "Set up the VAR folder (the one in use, else the default one under the home folder), "
        "store\n"
        "it as the setting of this user unless --var or QV_VAR_FOLDER names it, and make the "
        "first\n"
        "profile, which mounts FOLDER at / and its name; that id is printed. When it is run "
        "again and\nno profile is current, it selects one",
        "  qvres setup /srv/data                # then: qvres ls /data\n"
        "  qvres setup --repository /mnt/server/profiles\n"
        "  qvres --var ./var setup ./data");
    command->add_flag("--common", options->Common,
                      "Store the setting for all users; a common setting stays common");
    command
        ->add_option("--repository", options->Repository,
                     "Take over the profiles that are published in this folder, now and whenever "
                     "profiles\nare listed or changed. A folder that publishes nothing yet gets an "
                     "empty list;\n\"\" ends it")
        ->type_name("DIR");
    command->add_option("FOLDER", options->Folder, "The folder of the first profile");
    command->callback([&host, options] { Setup(host, *options); });
}
