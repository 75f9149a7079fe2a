/// @file
/// The back end of the configuration dialog: VAR folder, repository, the state of all profiles,
/// applying settings.
///
/// Thread-safety: a state belongs to one thread. Processes and threads exclude each other by the
/// lock of the VAR folder (profiles/VarFolderLock.h), which every writing operation takes; a caller
/// that keeps it from ReloadState to SaveState excludes changes by others in between.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "QvServicesExport.h"
#include "QvStd/FreeSpaceMap.h"
#include "QvStd/Path.h"
#include "QvStd/Progress.h"
#include "QvStd/Var.h"
#include "profiles/ResourceProfile.h"

/// All of it is static: the state is the caller's.
class QVSERVICES_API TQvCPUtils
{
public:
    /// The editable picture of all profiles of one VAR folder (or, with Remote, of a repository).
    struct QVSERVICES_API TCPState
    {
        TQvPath VarFolder; ///< set by the caller before ReloadState, or empty for the one in use
        bool Remote =
            false; ///< edits a repository: no copy from one, no policy file, every profile remote
        std::string CurrentProfile;               ///< its name; empty for none
        std::string SelectedProfile;              ///< what the dialog shows; not saved
        std::vector<TQvResourceProfile> Profiles; ///< sorted as they were read
        /// By upper-cased name. The pointers of all three maps are invalid after Profiles has
        /// changed: call BuildIndex after each change.
        std::map<std::string, TQvResourceProfile*> ProfileIndex;
        var_a<TQvFreeSpaceMap*> FreeSpaceMap; ///< shared by all profiles; made by ReloadState
        std::map<std::int64_t, TQvResourceProfile*>
            ProfilesById; ///< filled by the dialog, for its list
        std::map<TQvResourceProfile*, std::int64_t> ProfileIds; ///< the reverse
        /// True after a ReloadState that listed all profiles. Without one, or after one that failed
        /// or was cancelled, SaveState refuses: it would delete profiles that were not loaded.
        bool Listed = false;
        /// What the state was last loaded from or saved to: SaveState writes only what differs from
        /// it.
        struct TLoaded
        {
            TQvPath VarFolder; ///< where it was loaded from
            /// The folders of the profiles, by their exact names; one without a value has no
            /// profile that could be read.
            std::map<std::string, std::optional<TQvResourceProfile>> Folders;
            std::string PolicyProfile;  ///< as the policy file names it
            std::string CurrentProfile; ///< of the state
            /// The first thing that could not be read, as a sentence; "" when all was.
            std::string Failure;
            /// The policy file could not be read: PolicyProfile is not what it names.
            bool IsPolicyUnread = false;
        };
        TLoaded Loaded; ///< set by ReloadState and SaveState

        TCPState();
        ~TCPState();
        TCPState(const TCPState&) = delete;
        TCPState& operator=(const TCPState&) = delete;
        /// Rebuilds ProfileIndex from Profiles. The dialog's maps are its own work.
        void BuildIndex();
        /// The profile of that name, ignoring letter case; null when the index has none.
        TQvResourceProfile* FindProfile(const std::string& name) const;
    };

    // Folders. None of these throws.

    /// The configured VAR folder: the configuration's setting exactly as configured, else that of
    /// the registry with a trailing slash, else empty. `common` (may be null, which means true)
    /// says whether the setting common to all users is wanted, and receives whether the answer is.
    static TQvPath GetVARFolder(bool* common);
    /// As GetVARFolder, with GetDefaultVARFolder when nothing is configured.
    static TQvPath GetQvVARFolder(bool* common);
    /// The default VAR folder under the home folder; empty where there is no home folder.
    static TQvPath GetDefaultVARFolder();
    /// The repository named in the VAR folder's policy file, with a trailing slash; empty when
    /// there is none. With `switchedOff` the repository that is configured but not in use.
    static TQvPath GetRepositoryFolder(TQvPath varFolder, bool switchedOff);
    /// Whether the first-run set-up must run: there is no usable configured VAR folder, or its
    /// repository is not readable.
    static bool IsWizardNecessary();
    /// The same, but a folder or file that is there and cannot be read, or is malformed, throws a
    /// TQvMessage: true means that nothing is set up, or that the repository is not readable.
    static bool IsWizardNecessaryE();

    // The state of all profiles.

    /// Copies the profiles that the repository publishes, then loads the state. A profile that
    /// cannot be read is left out (and SaveState would remove it). Throws only when the user
    /// cancels (TQvUserBreak, or a failure at the same time); the state is empty then.
    static void ReloadState(TCPState& state, TQvProgressHandler* progress);
    /// Writes, under the lock of the VAR folder, what changed since ReloadState, and removes the
    /// folders that existed then and whose profiles are no longer in the index; a folder that
    /// cannot be removed is logged, one whose name is no profile name stays. Changes by others
    /// since ReloadState stay: their profiles, their mounts, also in a profile that changed here,
    /// and their choice of the current profile unless it changed here. Throws a TQvMessage on the
    /// first failure; nothing is rolled back. Refused before anything is written: an invalid VAR
    /// folder or name, a state that is not Listed, and a policy file that cannot be read or could
    /// not be read by ReloadState.
    static void SaveState(TCPState& state);
    /// Appends an empty profile; call BuildIndex then.
    static void CreateProfileState(const std::string& name, TCPState& state);
    /// Calls BuildIndex of `state`, after its Profiles were changed.
    static void RefreshProfilesState(TCPState& state);
    /// Adds (or replaces) the node "/<base name of the folder>" of an existing profile; does
    /// nothing when there is no such profile.
    static void AddNodeState(const TQvPath& folder, const std::string& profileName,
                             TCPState& state);
    /// Recomputes the profile's free space; false when there is no such profile.
    static bool RefreshProfileFreeSpaceState(const std::string& profileName, TCPState& state);
    /// The first run: when there is no profile at all, not even one that is unreadable or badly
    /// named, saves "LocalProfile" with the folder as the current profile. Throws what SaveState
    /// throws; when loading fails or is cancelled, nothing is changed.
    static void CreateProfileNode(const TQvPath& folder, TQvProgressHandler* progress);

    // Settings.

    /// Checks and applies the VAR folder and the repository. False with a message for the user in
    /// `error`; earlier steps are not undone. A common registry value that would hide the user's
    /// own and cannot be removed is such a failure. Other write failures throw a TQvMessage. A
    /// policy file that cannot be read is replaced by a new one; the old one is kept as
    /// "policy.x-ini.damaged" (".damaged.2", ... when that is taken). The policy file is changed
    /// under the lock of the VAR folder.
    static bool PerformOK(const TQvPath& varFolder, bool common, bool useRepository,
                          const TQvPath& repository, std::string& error);
};
