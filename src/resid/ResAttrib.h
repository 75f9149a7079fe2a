/// @file
/// Attributes of resources and entries of listings.
///
/// Thread-safety: plain values.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/DateTime.h"

/// Existence codes, and the kinds in attributes.
inline constexpr unsigned kResNothing = 0;
inline constexpr unsigned kResResource = 1; ///< a resource
inline constexpr unsigned kResFolder = 2;   ///< a folder

/// Origin marks of attributes.
inline constexpr std::uint32_t kOriginFileNode = 1;
inline constexpr std::uint32_t kOriginRootNode = 3; ///< above the mount points

/// Bits of the flags of a listing.
inline constexpr unsigned kFindResources = 1;
inline constexpr unsigned kFindFolders = 2;    ///< list folders
inline constexpr unsigned kFindRecursive = 4;  ///< list the content of sub-folders, too
inline constexpr unsigned kFindAttributes = 8; ///< fill size and times too
inline constexpr unsigned kFindHidden = 16;    ///< names with a leading ".", too
/// The mount points directly below, and the parent folders of deeper ones, that are not on the
/// disk; with kFindRecursive in each folder, and their content. See TResourceManager::Find.
inline constexpr unsigned kFindMounts = 32;
inline constexpr unsigned kFindNoLink = 64; ///< a folder that is a symbolic link counts as empty

/// The suffix of a metadata sidecar, after the name of its resource.
inline constexpr char kSidecarSuffix[] = ".meta";

/// The attributes of a resource or folder.
struct TQvResAttrib
{
    std::uint32_t Kind = 0;   ///< kResResource or kResFolder
    std::uint32_t Origin = 0; ///< kOriginFileNode or kOriginRootNode
    std::uint64_t Size = 0;   ///< bytes
    TQvDateTime UpdateTime;   ///< last modification
    TQvDateTime CreationTime; ///< birth time, else the time of the last status change
};

/// An entry of a listing.
struct TQvResFindItem
{
    std::string Id;      ///< a folder's id has no trailing "/" either, see Attrib.Kind
    TQvResAttrib Attrib; ///< kind and origin; with kFindAttributes size and times, too
    /// False when the listing showed that a resource has no sidecar.
    bool MayHaveSidecar = true;
};
