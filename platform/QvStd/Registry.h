/// @file
/// Registry emulation: one X-Ini file for each root.
///
/// 1 = common (/etc/velmor/registry.x-ini), 2 = user (~/.config/velmor/registry.x-ini).
/// QV_REGISTRY_DIR moves both into that folder, as common.x-ini and user.x-ini. A registry key is a
/// section named by the whole key ("Software\Velmor\..."); its values are the keys in it. Names of
/// both are compared without regard to case, and the first of several of one name counts.
///
/// Thread-safety: callable from any thread and process; writers lock the file "<registry
/// file>.lock", and the registry file is replaced as a whole.
#pragma once

#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Result.h"

/// The roots.
enum class TQvRegKey : int
{
    Common = 1, ///< of all users
    User = 2    ///< of the user; missing without a home folder
};

/// Access to the values of both roots. Each call reads the file: other processes may have changed
/// it.
class QVSTD_API TQvRegMan
{
public:
    /// The file of a root; empty for the user's where there is no home folder: that root then has
    /// no values, and writing to it fails.
    static TQvPath filePath(TQvRegKey root);
    /// "" when the value is missing or the file cannot be read; a malformed file is logged.
    static std::string readString(TQvRegKey root, const std::string& key,
                                  const std::string& valueName);
    /// "Nothing" when the value is missing; failed when that could not be found out (EBADMSG for a
    /// malformed file), which is logged. The result names the file.
    static TQvResult readString(TQvRegKey root, const std::string& key,
                                const std::string& valueName, std::string* value);
    /// True when the value is stored safely (synced). With `create` a missing file, folder or key
    /// is made; without, it is a failure. A malformed file is never overwritten. Waits up to 10 s
    /// for the lock; a failure is logged with its reason, or with the holder of the lock.
    static bool writeString(TQvRegKey root, const std::string& key, const std::string& valueName,
                            const std::string& value, bool create);
    /// True when the value does not exist afterwards.
    static bool removeEntry(TQvRegKey root, const std::string& key, const std::string& valueName);
};
