/// @file
/// The lock of a VAR folder: whoever reads, changes and writes its profiles, their list or its
/// policy file holds it from the reading to the writing.
///
/// Thread-safety: one lock object belongs to the thread that made it.
#pragma once

#include "QvServicesExport.h"
#include "QvStd/LockFile.h"
#include "QvStd/Path.h"
#include "QvStd/Var.h"

/// An exclusive lock on "<VAR folder>/.lock", a file that stays. A thread that holds it gains it
/// again at once, so that operations which take it can be called under it; the last object
/// releases it.
class QVSERVICES_API TQvVarFolderLock
{
public:
    /// How long a lock is waited for when nothing else is said.
    static constexpr unsigned long kTimeoutMs = 10000;

    /// Waits up to `timeoutMs` milliseconds. A missing folder is created. Throws a TQvMessage when
    /// the folder is no valid path or cannot be created, and when the lock was not gained: it names
    /// the holder. `error` (may be null) receives the errno of that before, EAGAIN for a holder.
    explicit TQvVarFolderLock(const TQvPath& varFolder, unsigned long timeoutMs = kTimeoutMs,
                              int* error = nullptr);
    ~TQvVarFolderLock();
    TQvVarFolderLock(const TQvVarFolderLock&) = delete;
    TQvVarFolderLock& operator=(const TQvVarFolderLock&) = delete;

private:
    var_a<TQvLockFile*> m_lock;
};
