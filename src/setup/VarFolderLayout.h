// The layout of a VAR folder, and the reading functions that the configuration back end shares. (A
// storage has names of its own, in journal/JournalFormat.h.)
//
// Thread-safety: as QvConfig.
#pragma once

#include <optional>
#include <string>

#include "QvStd/Path.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"

inline constexpr char kPolicyFile[] = "policy.x-ini";
inline constexpr char kCurrentProfileKey[] = "profile";
inline constexpr char kRepositoryKey[] = "repository";
inline constexpr char kSwitchedOffRepositoryKey[] = "-repository";

inline constexpr char kProfilesFolder[] = "Profiles";
inline constexpr char kProfileListFile[] = "profiles.x-ini";
inline constexpr char kProfileListSection[] = "profiles";
inline constexpr char kProfileListKey[] = "profile";
inline constexpr char kProfileFile[] = "profile.x-ini";

/// The VAR folder setting of the configuration, which may be no valid path; the arguments are those
/// of TQvConfigData::getVarFolderSetting. Throws std::runtime_error "@QvConfigData is not
/// initialized" when there is no configuration object, and a TQvMessage when a registry file that
/// may contain the setting cannot be read.
TQvPath QvVarFolderSettingE(bool wantCommon = true, bool* isCommon = nullptr);

/// The policy file; an empty tree when the file is missing. Throws a TQvMessage that names the file
/// and the line when it cannot be read or is malformed.
var_a<TQvXIniTree*> QvReadPolicyE(const TQvPath& file);
/// The same of its content.
var_a<TQvXIniTree*> QvParsePolicyE(const TQvPath& file, const std::optional<std::string>& content);

/// The name of the current profile in a policy file; "" when there is none.
std::string QvPolicyProfile(const var_a<TQvXIniTree*>& policy);

/// Whether a profile's folder may have that name: one path component, and not the name of the list
/// of profiles.
bool QvIsProfileName(const std::string& name);
/// The path of the profile's file in a VAR folder or a repository.
TQvPath QvProfileFile(const TQvPath& folder, const std::string& name);
/// Whether a folder, or a file of another kind, is there. Throws a TQvMessage that names it when
/// that cannot be found out.
bool QvIsThereE(const std::string& path, bool asFolder);
/// Whether the folder of that name contains a profile file; the name may be no profile name. Throws
/// as QvIsThereE.
bool QvHoldsProfileE(const TQvPath& folder, const std::string& name);

/// Creates the folder with its missing parents, synced. Throws a TQvMessage that names it on
/// failure.
void QvForceDirectoriesE(const TQvPath& folder);

/// A message of this module about the folder.
std::string QvFolderMessage(const std::string& key, const TQvPath& folder);
