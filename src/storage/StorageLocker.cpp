#include "storage/StorageLocker.h"

#include <stdexcept>

#include "QvConfig/Config.h"
#include "manager/ResourceManager.h"
#include "storage/JournalFormat.h"
#include "storage/ResStorage.h"

namespace
{
std::string ComputerName()
{
    if (pQvConfigData == nullptr)
        throw std::runtime_error("@QvConfigData is not initialized");
    return pQvConfigData->getComputerName();
}
} // namespace

TStorageLocker::TStorageLocker(const TResStorage& storage, bool forWriting)
    : TQvLockFile(storage.Folder + kStorageLockSuffix, forWriting, ComputerName(),
                  ResourceManager.Config().StDirLockTimeout)
{
}

var_a<TStorageLocker*> TStorageLocker::VCreate(const TResStorage& storage, bool forWriting)
{
    return make_var<TStorageLocker>(storage, forWriting);
}
