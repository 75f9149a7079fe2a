// The profiles of the VAR folder and of a repository, for the commands that change them.
//
// Thread-safety: as TQvCPUtils.
#pragma once

#include <string>

#include <QvServices/QvServices.h>

/// The state of all profiles, with the published profiles of the repository copied; the bar of
/// `progress` is shown meanwhile.
void LoadProfiles(TQvCPUtils::TCPState& state, TQvProgressHandler& progress);
/// The same for a change: the VAR folder is locked from the loading to the end of this object.
class TProfileChange
{
public:
    /// Throws the lock's TQvMessage, and TFailure when there is a profile file that could not be
    /// read, because saving would remove it.
    explicit TProfileChange(TQvProgressHandler& progress);
    void Save() { TQvCPUtils::SaveState(State); }

private:
    TQvVarFolderLock m_lock; ///< declared first, so that nothing is read before it

public:
    TQvCPUtils::TCPState State;
};

/// Throws TFailure when there is none.
TQvResourceProfile& RequireProfile(const TQvCPUtils::TCPState& state, const std::string& name);

/// A new empty profile, the current one when there was none.
TQvResourceProfile& CreateProfile(TQvCPUtils::TCPState& state, const std::string& name);

/// The folder of the disk that a user has named, absolute. Throws TFailure unless it is there and
/// its name can be that of a mount point.
TQvPath FolderToMount(const std::string& given);
/// Where AddFolder puts a folder.
std::string MountPointOf(const TQvPath& folder);
/// Puts the folder into the profile; nothing happens when it is there already. Throws TFailure when
/// another one is.
void AddFolder(TQvCPUtils::TCPState& state, const TQvResourceProfile& profile,
               const TQvPath& folder);
