// Files without a name (O_TMPFILE): a killed process leaves nothing of them.
//
// Thread-safety: callable from any thread.
#pragma once

#include <fcntl.h>
#include <string>
#include <sys/types.h>

/// A descriptor of a new unnamed file in the open folder `folder`, or in the folder `path`. -1 with
/// errno.
int QvOpenUnnamed(const std::string& path, mode_t mode, int folder = AT_FDCWD);

/// Whether QvOpenUnnamed failed because there are no unnamed files in that folder.
bool QvLacksUnnamedFiles(int error);

/// Gives an unnamed file its first name, in `folder` unless the name is an absolute path. -1 with
/// errno.
int QvLinkUnnamed(int file, const char* name, int folder = AT_FDCWD);
