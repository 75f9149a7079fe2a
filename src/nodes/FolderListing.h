// Listing of one disk folder as resources.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Progress.h"
#include "resid/ResAttrib.h"

/// Appends the entries of the folder `path` to `items`, their ids `idPrefix` plus the name, in the
/// order of the folder. Without `items` it is a probe that ends at the first match. True when
/// something was found; false for a folder that cannot be read, or not to its
/// end. Names that are no UTF-8 are listed byte for byte.
///
/// Listed are files (symbolic links to anything but folders too) with kFindResources and folders
/// (links to folders too) with kFindFolders, whose names match `mask`: wildcards "*", "?" and
/// "[...]", without regard to case. Never listed: hidden names (a leading "."), sidecars (ending in
/// ".meta"), dangling links, and FIFOs, sockets and devices. Sizes and times are zero without
/// kFindAttributes. `progress` (may be null) is polled once an entry.
bool QvListFolder(const std::string& path, const std::string& idPrefix, const std::string& mask,
                  unsigned flags, TQvProgressHandler* progress, std::vector<TQvResFindItem>* items);
