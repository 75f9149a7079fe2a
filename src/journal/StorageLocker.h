// The lock of a resource storage, shared between processes and computers.
//
// Thread-safety: one lock object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QvStd/LockFile.h"
#include "QvStd/Var.h"

/// Settings that the owner of a storage passes in; the numbers are the defaults of the manager's
/// settings.
struct TStorageSettings
{
    /// Milliseconds to wait for the lock, and again for a busy journal.
    std::uint32_t LockTimeout = 10000;
    /// A journal of more blocks is rewritten while it is loaded.
    std::uint32_t ChangeCount2Merge = 256;
    /// The computer's name for the lock's note; without one no lock is taken.
    std::optional<std::string> Owner = {};
};

/// Identifies a storage.
struct TStorageHome
{
    std::string Name;   ///< shown in messages
    std::string Folder; ///< on disk; all users of a storage must spell it alike (see the locker)
    TStorageSettings Settings;
};

/// Held through a var_a, which every operation of a storage takes as its last argument, so that one
/// lock can serve a sequence of them. The last reference releases it.
class TStorageLocker : public TQvLockFile
{
public:
    /// Locks the file whose path is the storage's folder and "\$QvStorage.lock" (the texts are
    /// concatenated, without a path join), waiting up to LockTimeout milliseconds: exclusive when
    /// `forWriting`, else shared. operator bool is the outcome. Throws std::runtime_error
    /// "@QvConfigData is not initialized" when the settings name no owner: the name comes from the
    /// configuration, and is empty when the host has not loaded one.
    TStorageLocker(const TStorageHome& storage, bool forWriting);

    static var_a<TStorageLocker*> VCreate(const TStorageHome& storage, bool forWriting);
};
