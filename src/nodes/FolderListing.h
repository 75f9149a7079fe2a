// Listing of one disk folder as resources.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Progress.h"
#include "QvStd/Result.h"
#include "resid/ResAttrib.h"

/// Appends the entries of the folder `path` to `items`, with ids of `idPrefix` and the name, in the
/// order of the folder. Without `items` the search ends at the first match. Done when something was
/// found, "nothing" when nothing matched or there is no such folder. With kFindNoLink a link at
/// `path`, which must not end with a "/" then, counts as no folder. A folder that cannot be read
/// completely, or an entry whose kind or attributes cannot be found out, is a failure that names
/// the id; the other entries are still listed. Names that are no UTF-8 are listed byte for byte.
///
/// It lists files (symbolic links to anything but folders too) with kFindResources and folders
/// (links to folders too) with kFindFolders, whose names match `mask`: wildcards "*", "?" and
/// "[...]", without regard to case; one that is no valid mask matches nothing. Never listed: hidden
/// names (a leading ".") without kFindHidden, sidecars (ending in ".meta", except that name alone),
/// dangling links, and FIFOs, sockets and devices. Sizes and times are zero without
/// kFindAttributes. In a folder without sidecars MayHaveSidecar of each entry is false. `progress`
/// (may be null) is polled once an entry.
TQvResult QvListFolder(const std::string& path, const std::string& idPrefix,
                       const std::string& mask, unsigned flags, TQvProgressHandler* progress,
                       std::vector<TQvResFindItem>* items);
