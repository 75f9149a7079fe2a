// A fresh folder, mounted at "/T" of the process's manager while it lives.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "manager/ResourceManager.h"
#include "support/TempFolder.h"

class TMountedFolder : public testing::Test
{
protected:
    TMountedFolder() { ResourceManager.MountFileNodeE("/T", Temp.Path(), false); }
    ~TMountedFolder() override { ResourceManager.UnmountNodeE("/T", false); }

    /// Writes a file that was last modified `milliseconds` after 1970-01-01 UTC.
    void Put(const std::string& name, std::int64_t milliseconds, const std::string& content) const
    {
        const timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
        const timespec times[2] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, Temp.Write(name, content).c_str(), times, 0), 0);
    }

    TTempFolder Temp;
};
