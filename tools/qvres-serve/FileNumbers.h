// The inode numbers that programs see: those of the disk, made distinct when several disks are
// served as one file system. A file keeps its number for as long as its disk does, so that tools
// that remember numbers find their files unchanged after a restart.
//
// Thread-safety: callable from any thread.
#pragma once

#include <mutex>
#include <sys/stat.h>
#include <vector>

class TFileNumbers
{
public:
    /// `status` as it is shown: its number, its kind and its link count.
    void Show(struct stat* status);

    /// What is shown is a number of the disk with these bits changed.
    ino_t MarkOf(dev_t device);

private:
    std::mutex m_mutex;
    std::vector<dev_t> m_devices;
};
