/// @file
/// The lock of a VAR folder: a program that reads, changes and writes its profiles, their list or
/// its policy file holds it from the reading to the writing.
///
/// Thread-safety: one lock object belongs to the thread that made it.
#pragma once

#include "QvServicesExport.h"
#include "QvStd/LockFile.h"
#include "QvStd/Path.h"
#include "QvStd/Var.h"

/// An exclusive lock on "<VAR folder>/.lock", a file that is never deleted. A thread that has the
/// lock gains it again at once, so that operations which take it can be called under it; the last
/// object releases it.
class QVSERVICES_API TQvVarFolderLock
{
public:
    /// The default time-out, in milliseconds.
    static constexpr unsigned long kTimeoutMs = 10000;

    /// Waits up to `timeoutMs` milliseconds. A missing folder is created. Throws a TQvMessage when
    /// the folder is no valid path or cannot be created, and when the lock was not gained: the
    /// message names the holder. `error` (may be null) receives the errno of that before, EAGAIN
    /// for a holder.
    explicit TQvVarFolderLock(const TQvPath& varFolder, unsigned long timeoutMs = kTimeoutMs,
                              int* error = nullptr);
    ~TQvVarFolderLock();
    TQvVarFolderLock(const TQvVarFolderLock&) = delete;
    TQvVarFolderLock& operator=(const TQvVarFolderLock&) = delete;

private:
    var_a<TQvLockFile*> m_lock;
};
