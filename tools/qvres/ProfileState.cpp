#include "ProfileState.h"

#include <cerrno>
#include <filesystem>

#include <QvStd/Files.h>
#include <QvStd/Message.h>
#include <QvStd/Strings.h>

#include "Checks.h"
#include "Failure.h"
#include "Session.h"

namespace
{
/// True, too, when it cannot be examined: the user may have no access to the folder.
bool MayHoldProfile(const std::string& file)
{
    std::error_code ignored; // the type says it
    return std::filesystem::symlink_status(file, ignored).type() !=
           std::filesystem::file_type::not_found;
}

void RequireAllRead(const TQvCPUtils::TCPState& state)
{
    const std::string& failure = state.Loaded.Failure;
    // Saving removes the folders of profiles that are not in the state.
    for (const std::string& folder : QvFindFiles(state.VarFolder / "Profiles", "*", true, false)) {
        const std::string file = folder + "/profile.x-ini";
        if (state.FindProfile(folder.substr(folder.rfind('/') + 1)) == nullptr &&
            QvDirExists(folder) && MayHoldProfile(file))
            throw TFailure(Quoted(file) +
                           " cannot be read, and saving would remove it; "
                           "repair it or move it away first" +
                           (failure.empty() ? "" : ": " + failure));
    }
    if (!failure.empty())
        throw TFailure(failure);
}
} // namespace

void LoadProfiles(TQvCPUtils::TCPState& state, TQvProgressHandler& progress)
{
    progress.SetMessage("Reading the profiles");
    TQvCPUtils::ReloadState(state, &progress);
}

TProfileChange::TProfileChange(TQvProgressHandler& progress) : m_lock(TSession::VarFolderInUse())
{
    LoadProfiles(State, progress);
    RequireAllRead(State);
}

TQvResourceProfile& RequireProfile(const TQvCPUtils::TCPState& state, const std::string& name)
{
    TQvResourceProfile* const profile = state.FindProfile(name);
    // "There is no such profile" would be wrong as long as not all were read.
    if (profile == nullptr && !state.Loaded.Failure.empty())
        throw TFailure(state.Loaded.Failure); // it may be the one that could not be read
    if (profile == nullptr)
        throw TFailure("there is no profile " + Quoted(name), "", ENOENT);
    return *profile;
}

TQvResourceProfile& CreateProfile(TQvCPUtils::TCPState& state, const std::string& name)
{
    TQvCPUtils::CreateProfileState(name, state);
    state.BuildIndex();
    if (state.CurrentProfile.empty())
        state.CurrentProfile = name;
    return state.Profiles.back();
}

TQvPath FolderToMount(const std::string& given)
{
    TQvPath folder = TQvPath(TSession::RequireDiskFolder(given, "")).excludeSlash();
    const std::string problem = TSession::CheckMountPoint(MountPointOf(folder));
    if (!problem.empty())
        throw TFailure(problem);
    return folder;
}

std::string MountPointOf(const TQvPath& folder)
{
    return "/" + folder.fileName();
}

void AddFolder(TQvCPUtils::TCPState& state, const TQvResourceProfile& profile,
               const TQvPath& folder)
{
    const auto node = profile.Nodes.find(toupper_locale(MountPointOf(folder)));
    if (node == profile.Nodes.end())
        TQvCPUtils::AddNodeState(folder, profile.Name, state);
    // The same folder again is no error, so that setup can be repeated.
    else if (node->second.Path.excludeSlash() != folder)
        throw TFailure(Quoted(node->second.Name) + " is already a mount point of the profile " +
                           Quoted(profile.Name),
                       "", EEXIST);
}
