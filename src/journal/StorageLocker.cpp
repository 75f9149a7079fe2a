#include "journal/StorageLocker.h"

#include <stdexcept>

#include "journal/JournalFormat.h"
#include "journal/ResStorage.h"

namespace
{
const std::string& OwnerOf(const TResStorage& storage)
{
    if (!storage.Settings.Owner)
        throw std::runtime_error("@QvConfigData is not initialized");
    return *storage.Settings.Owner;
}
} // namespace

TStorageLocker::TStorageLocker(const TResStorage& storage, bool forWriting)
    : TQvLockFile(storage.Folder + kStorageLockSuffix, forWriting, OwnerOf(storage),
                  storage.Settings.LockTimeout)
{
}

var_a<TStorageLocker*> TStorageLocker::VCreate(const TResStorage& storage, bool forWriting)
{
    return make_var<TStorageLocker>(storage, forWriting);
}
