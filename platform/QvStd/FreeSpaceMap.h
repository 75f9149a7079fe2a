/// @file
/// Free disk space, counted once for each volume: GetVolumeSerial for each folder, collecting the
/// serials in a set, then GetTotalFreeSpace of the set.
///
/// Thread-safety: one map belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Var.h"

/// The free bytes of volumes, each as of the last query for a path on it.
class QVSTD_API TQvFreeSpaceMap
{
public:
    /// The serial of "no known volume".
    static const std::string InvalidVolSerial;

    /// An empty map.
    static var_a<TQvFreeSpaceMap*> VCreate();

    /// The identity of the volume of `path`; notes the volume's free space now. InvalidVolSerial
    /// when nothing is there.
    std::string GetVolumeSerial(const TQvPath& path);
    /// Bytes free to the user on those volumes together, as noted; unknown serials add nothing.
    std::uint64_t GetTotalFreeSpace(const std::unordered_set<std::string>& serials) const;
    /// Forgets all volumes.
    void Clear();

private:
    std::map<std::string, std::uint64_t> m_freeBytes;
};
