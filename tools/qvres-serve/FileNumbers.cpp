#include "FileNumbers.h"

#include <algorithm>

void TFileNumbers::Show(struct stat* status)
{
    status->st_ino = status->st_ino ^ MarkOf(status->st_dev);
    // 1 means "not counted": mount points appear as additional sub-folders.
    if (S_ISDIR(status->st_mode))
        status->st_nlink = 1;
    // The tree shows everything else as a resource; opening anything but a regular file fails.
    else if (!S_ISREG(status->st_mode) && !S_ISLNK(status->st_mode))
        status->st_mode = S_IFREG | (status->st_mode & ~static_cast<mode_t>(S_IFMT));
}

ino_t TFileNumbers::MarkOf(dev_t device)
{
    constexpr unsigned kDeviceShift = 54;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = std::find(m_devices.begin(), m_devices.end(), device);
    const auto index = static_cast<ino_t>(known - m_devices.begin());
    if (known == m_devices.end())
        m_devices.push_back(device);
    return index << kDeviceShift;
}
