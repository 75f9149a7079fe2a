// Names of files: which of them are one file, and taking a free name.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>
#include <sys/stat.h>

inline bool QvIsSameInode(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Renames with the promise that nothing is replaced (EEXIST). False with errno.
bool QvRenameToFreeName(const std::string& from, const std::string& to);
