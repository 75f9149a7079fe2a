// The note in a lock file: it names the holder, for people to read. Only the lock counts.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

/// Whether all of a content is a note, so that no other content is ever overwritten.
bool QvIsLockNote(std::string_view content);
/// The note of this process, from now on.
std::string QvMakeLockNote(const std::string& owner);
/// The note of a lock that was released.
const std::string& QvFreeLockNote();
/// The content of an open lock file, or its start when it is longer than a note; "" also when it
/// cannot be read.
std::string QvReadLockNote(int descriptor);

/// What a note says about the holder of the lock.
struct TQvLockHolder
{
    std::string Text;  ///< "NAME (process 12, since 2024-03-05T14:07:09Z)"; "" without such a note
    pid_t Process = 0; ///< on the holder's machine
};
TQvLockHolder QvReadLockHolder(const std::string& note);
