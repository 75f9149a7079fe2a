// Attributes of resources and entries of listings.
//
// Thread-safety: plain values.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/DateTime.h"

/// Existence codes, and the kinds in attributes.
inline constexpr unsigned kResNothing = 0;
inline constexpr unsigned kResResource = 1;
inline constexpr unsigned kResFolder = 2;

/// Origin marks of attributes.
inline constexpr std::uint32_t kOriginFileNode = 1;
inline constexpr std::uint32_t kOriginRootNode = 3;

/// Bits of the flags of a listing.
inline constexpr unsigned kFindResources = 1;
inline constexpr unsigned kFindFolders = 2;
inline constexpr unsigned kFindRecursive = 4;
inline constexpr unsigned kFindAttributes = 8; ///< fill size and times too
inline constexpr unsigned kFindHidden = 16;    ///< names with a leading ".", too
/// The mount points directly below, and the folders on the way to deeper ones, which the disk does
/// not show; with kFindRecursive in each folder, and what lies in them. See
/// TResourceManager::Find.
inline constexpr unsigned kFindMounts = 32;
inline constexpr unsigned kFindNoLink = 64; ///< a folder that is a symbolic link holds nothing

/// What the name of a metadata sidecar has behind that of its resource.
inline constexpr char kSidecarSuffix[] = ".meta";

struct TQvResAttrib
{
    std::uint32_t Kind = 0;   ///< kResResource or kResFolder
    std::uint32_t Origin = 0; ///< kOriginFileNode or kOriginRootNode
    std::uint64_t Size = 0;   ///< bytes
    TQvDateTime UpdateTime;   ///< last modification
    TQvDateTime CreationTime;
};

struct TQvResFindItem
{
    std::string Id; ///< a folder's id has no trailing "/": the kind tells
    TQvResAttrib Attrib;
    /// False when the listing showed that a resource has no sidecar.
    bool MayHaveSidecar = true;
};
