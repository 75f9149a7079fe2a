/// @file
/// The suite's configuration: VAR folder, current profile, computer name, numbered strings.
///
/// Thread-safety: call Init and Deinit from one thread while no other thread uses the library; the
/// queries are callable from any thread in between.
#pragma once

#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Result.h"

QVSTD_API std::string QvGetConfigString(int number, bool mustExist);

/// What the configuration says, as of the last Load.
class QVSTD_API TQvConfigData
{
public:
    /// Reads the configuration again: the VAR folder of getVarFolderSetting, and key "profile" of
    /// "policy.x-ini" in it. A missing or malformed policy file counts as one without the key.
    void Load();

    /// Whether Load has found a VAR folder setting.
    bool getLoaded() const { return m_loaded; }
    /// Name of the current profile; "" when none is set.
    std::string getCurProfileName() const { return m_profileName; }
    /// The computer's host name.
    std::string getComputerName() const;
    /// The VAR folder setting: QV_VAR_FOLDER of the process when set and not empty (its scope is
    /// the user's own), else "VarPath" of the registry under static string 11, the common root
    /// first when `wantCommon`, else the user's only. "" when there is none. `isCommon` (may be
    /// null) receives whether the answer is common to all users; it stays unchanged when there is
    /// no answer. `unread` (may be null) receives, when there is no answer, whether a registry file
    /// that may contain one could not be read.
    std::string getVarFolderSetting(bool wantCommon, bool* isCommon,
                                    TQvResult* unread = nullptr) const;

private:
    friend std::string QvGetConfigString(int number, bool mustExist);

    bool m_loaded = false;
    std::string m_varFolder;
    std::string m_profileName;
};

/// The configuration; null before Init_QvConfig and after the last Deinit_QvConfig.
QVSTD_API extern TQvConfigData* pQvConfigData;

/// Creates pQvConfigData, or loads it again; calls are counted. Does not throw when nothing is
/// configured: getLoaded is false then.
QVSTD_API void Init_QvConfig();
/// The call that matches the first Init_QvConfig destroys pQvConfigData; a call without a matching
/// Init_QvConfig does nothing.
QVSTD_API void Deinit_QvConfig();

/// Configuration strings, computed from the loaded configuration: 9 is VAR/Config/ (with the
/// trailing slash), 12 is `VAR/Profiles/<current profile>/profile.x-ini`. "" for any other number
/// or when nothing is loaded; with `mustExist` the former throws a TQvMessage that names the
/// number.
QVSTD_API std::string QvGetConfigString(int number, bool mustExist);

/// Strings fixed at build time: 11 is the registry key path "Software\Velmor\KORVADEL\6 Airlane";
/// "" for any other number.
QVSTD_API std::string QvGetStaticConfigString(int number);
