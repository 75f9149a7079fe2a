// Renaming to a name that is not taken.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>

/// Renames and never replaces anything (EEXIST). False with errno.
bool QvRenameToFreeName(const std::string& from, const std::string& to);
