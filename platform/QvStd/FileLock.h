/// @file
/// The lock on a file whose content is about to be replaced, and the message about a lock that was
/// not gained.
///
/// Thread-safety: one lock object belongs to one thread at a time; the function is callable from
/// any.
#pragma once

#include <string>

#include "QvStd/Export.h"
#include "QvStd/Message.h"

/// Locks the file at a path exclusively while its content is read and new content is renamed over
/// it. A waiter whose file was replaced meanwhile takes the lock of the new file, so that it reads
/// the content that the path has now.
///
/// An open-file-description lock on byte 0 of the file, as TQvLockFile takes it; it excludes only
/// programs that take it, too. The content of the file is not changed. The lock of a killed process
/// is released.
class QVSTD_API TQvFileLock
{
public:
    /// `path` is a raw system path to a regular file that may be written; nothing is created. Waits
    /// up to `timeoutMs` milliseconds. operator bool answers whether the lock is held.
    TQvFileLock(const std::string& path, unsigned long timeoutMs);
    ~TQvFileLock();
    TQvFileLock(const TQvFileLock&) = delete;
    TQvFileLock& operator=(const TQvFileLock&) = delete;

    /// Whether the lock is held.
    explicit operator bool() const { return m_descriptor >= 0; }
    /// 0, or a negative errno (-11: another process holds it).
    int getError() const { return m_error; }

private:
    int Take(const std::string& path);

    int m_descriptor = -1;
    int m_error = 0;
};

/// Why the lock on `path` was not gained: the holder, where the file has its note (TQvLockFile), or
/// the system's reason. `error` is the negative errno of the lock.
QVSTD_API TQvMessage QvLockMessage(const std::string& path, int error);
