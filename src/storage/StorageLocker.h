// The lock of a resource storage, shared between processes and computers.
//
// Thread-safety: one lock object belongs to one thread at a time.
#pragma once

#include "QvStd/LockFile.h"
#include "QvStd/Var.h"

class TResStorage;

/// Held through a var_a, which every operation of a storage takes as its last argument, so that one
/// lock can serve a sequence of them. The last reference releases it.
class TStorageLocker : public TQvLockFile
{
public:
    /// Locks the file "\$QvStorage.lock" behind the storage's folder (a text put behind a text, no
    /// path join), waiting up to StDirLockTimeout milliseconds: exclusive when `forWriting`, else
    /// shared. operator bool tells the outcome. Throws std::runtime_error
    /// "@QvConfigData is not initialized" when there is no configuration to take the owner from.
    TStorageLocker(const TResStorage& storage, bool forWriting);

    static var_a<TStorageLocker*> VCreate(const TResStorage& storage, bool forWriting);
};
