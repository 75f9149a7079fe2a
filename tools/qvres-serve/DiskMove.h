// A rename as a disk makes it, with the sidecar.
//
// The library's move asks more: it refuses a target that is write-protected, and follows a target
// that is a link. Programs on a served tree replace both, as on a disk.
#pragma once

#include <string>

struct TDiskMove
{
    int Error = 0;        ///< of the file, or of its sidecar alone when the file is moved
    bool IsMoved = false; ///< the file has its new name
};

/// Renames a file or a link inside one disk, in one step; then its sidecar. Fails with EACCES when
/// another opener has the target for itself, and with EEXIST when the name `mustBeNew` and is not.
TDiskMove MoveOnDisk(const std::string& from, const std::string& to, bool mustBeNew);
