/// @file
/// The lock of a VAR folder: a program that reads, changes and writes its profiles, their list or
/// its policy file keeps it from the reading to the writing.
///
/// Thread-safety: one lock object belongs to the thread that made it.
#pragma once

#include "QvServicesExport.h"
#include "QvStd/LockFile.h"
#include "QvStd/Path.h"
#include "QvStd/Var.h"

/// An exclusive lock on "<VAR folder>/.lock", a file that is never deleted. A thread that has the
/// lock gets it again at once, so it may call operations that take it; its last object releases the
/// lock.
class QVSERVICES_API TQvVarFolderLock
{
public:
    /// The default time-out, in milliseconds.
    static constexpr unsigned long kTimeoutMs = 10000;

    /// Waits up to `timeoutMs` milliseconds. A missing folder is created. Throws a TQvMessage when
    /// the folder is no valid path or cannot be created, and when the lock was not gained in time:
    /// that message names the holder. `error` (may be null) receives the errno before, EAGAIN when
    /// another process has the lock.
    explicit TQvVarFolderLock(const TQvPath& varFolder, unsigned long timeoutMs = kTimeoutMs,
                              int* error = nullptr);
    ~TQvVarFolderLock();
    TQvVarFolderLock(const TQvVarFolderLock&) = delete;
    TQvVarFolderLock& operator=(const TQvVarFolderLock&) = delete;

private:
    var_a<TQvLockFile*> m_lock;
};
