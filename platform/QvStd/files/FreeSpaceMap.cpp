#include "QvStd/FreeSpaceMap.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

const std::string TQvFreeSpaceMap::InvalidVolSerial = "-";

var_a<TQvFreeSpaceMap*> TQvFreeSpaceMap::VCreate()
{
    return make_var<TQvFreeSpaceMap>();
}

std::string TQvFreeSpaceMap::GetVolumeSerial(const TQvPath& path)
{
    struct stat status = {};
    struct statvfs volume = {};
    // The device number and not f_fsid, which is 0 on several kinds of file systems.
    if (stat(path.toSysStr().c_str(), &status) != 0 ||
        statvfs(path.toSysStr().c_str(), &volume) != 0)
        return InvalidVolSerial;
    std::string serial = std::to_string(status.st_dev);
    m_freeBytes[serial] = std::uint64_t{volume.f_bavail} * volume.f_frsize;
    return serial;
}

std::uint64_t
TQvFreeSpaceMap::GetTotalFreeSpace(const std::unordered_set<std::string>& serials) const
{
    std::uint64_t total = 0;
    for (const auto& [serial, freeBytes] : m_freeBytes) {
        if (serials.count(serial) != 0)
            total += freeBytes;
    }
    return total;
}

void TQvFreeSpaceMap::Clear()
{
    m_freeBytes.clear();
}
