/// @file
/// The resource profile: which disk folders are mounted, and where.
///
/// TResourceManager::Init loads the current profile of the VAR folder, and persistent mounts change
/// it. A program that edits profiles uses TQvCPUtils, which saves them under the lock of the VAR
/// folder and keeps the changes of other programs. docs/formats.md describes the file.
///
/// Thread-safety: a plain value; one object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "QvServicesExport.h"
#include "QvStd/FreeSpaceMap.h"
#include "QvStd/Path.h"
#include "QvStd/Progress.h"
#include "QvStd/Var.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"

/// Kinds of profile nodes.
inline constexpr std::int32_t kProfileNodeNone = 0;
/// A folder of the disk.
inline constexpr std::int32_t kProfileNodePath = 1;
/// A storage group, which cannot be mounted here.
inline constexpr std::int32_t kProfileNodeStorageGroup = 2;

/// A profile, as its file contains it.
class QVSERVICES_API TQvResourceProfile
{
public:
    /// One mount of the profile.
    struct TNode
    {
        std::int32_t Kind = kProfileNodeNone; ///< one of the kinds above
        std::string Name;                     ///< the mount point, with its case as written
        TQvPath Path;                         ///< the folder of a path node
        std::string VolumeSerial =
            TQvFreeSpaceMap::InvalidVolSerial; ///< of the volume of `Path`, where a
                                               ///< free-space map was attached
    };

    std::string Name;    ///< set by the owner; neither read from nor written to the file
    bool Remote = false; ///< copied from a repository: mounting may not change it
    bool FreeSpaceIncomplete = false; ///< the free space of some node could not be counted
    std::uint64_t TotalFreeSpace =
        0; ///< bytes over the distinct volumes of the path nodes; 0 without a map
    std::map<std::string, TNode> Nodes;   ///< by upper-cased name
    var_a<TQvFreeSpaceMap*> FreeSpaceMap; ///< attached by the owner, shared; may be null

    TQvResourceProfile() = default;
    TQvResourceProfile(const TQvResourceProfile&) = default;
    TQvResourceProfile& operator=(const TQvResourceProfile&) = default;
    TQvResourceProfile(TQvResourceProfile&&) = default;
    /// Copies everything but the free-space map, which both then share.
    TQvResourceProfile& operator=(TQvResourceProfile&& other) noexcept;
    ~TQvResourceProfile() = default;

    /// Replaces the content by that of the section of `reader`. A mount without a name, without a
    /// path or storage group, or with a path that is not valid is dropped. Throws the reader's
    /// TQvMessage when section "profile" or its key "remote" is missing (then there are no nodes)
    /// and TQvUserBreak; nodes read before a failure stay.
    void LoadE(TQvXIniReader* reader, TQvProgressHandler* progress);

    /// Writes the profile; committing is the caller's. Throws the writer's TQvMessage on the first
    /// entry that cannot be written.
    void SaveE(TQvXIniWriter* writer) const;

private:
    void LoadNode(TQvXIniReader* reader, TQvProgress& progress, double position,
                  std::unordered_set<std::string>& serials);
    void ReadVolume(TNode& node, TQvProgress& progress, double position,
                    std::unordered_set<std::string>& serials);
};
