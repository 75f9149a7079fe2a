#include "journal/StorageLocker.h"

#include <stdexcept>

#include "journal/JournalFormat.h"

namespace
{
/// Checked before the file is opened: a lock without an owner's name would leave no note.
const std::string& OwnerOf(const TStorageHome& storage)
{
    if (!storage.Settings.Owner)
        throw std::runtime_error("@QvConfigData is not initialized");
    return *storage.Settings.Owner;
}
} // namespace

TStorageLocker::TStorageLocker(const TStorageHome& storage, bool forWriting)
    : TQvLockFile(storage.Folder + kStorageLockSuffix, forWriting, OwnerOf(storage),
                  storage.Settings.LockTimeout)
{
}

var_a<TStorageLocker*> TStorageLocker::VCreate(const TStorageHome& storage, bool forWriting)
{
    return make_var<TStorageLocker>(storage, forWriting);
}
