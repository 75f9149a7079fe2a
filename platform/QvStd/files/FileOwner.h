// Owner, group and extended attributes of a new file, after another file's.
//
// Thread-safety: callable from any thread.
#pragma once

#include <sys/stat.h>

/// The errno of a file system that has no owners, permission bits or attributes, or that lets only
/// an administrator set them.
bool QvMayBeLeftOut(int error);

/// Copies the extended attributes that may be read and set. False with errno.
bool QvCopyAttributes(int from, int to);

/// Gives `to` the owner and the group of another file, as far as that is allowed, and removes from
/// `mode` the bits that would then apply to another user or group. 0 or an errno.
int QvCopyOwner(const struct stat& from, int to, mode_t* mode);
