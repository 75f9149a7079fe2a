#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <sys/stat.h>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "services/Backup.h"
#include "support/EnvironmentVariable.h"
#include "support/TempFolder.h"

namespace
{
using TNames = std::vector<std::string>;

constexpr std::int64_t kTime = 1709647629; // 2024-03-05 14:07:09 UTC

/// "/K" on the global manager.
class Backups : public testing::Test
{
protected:
    Backups() { ResourceManager.MountFileNodeE("/K", Temp.Path(), false); }
    ~Backups() override { ResourceManager.UnmountNodeE("/K", false); }

    void Put(const std::string& name, std::int64_t time, const std::string& content = "") const
    {
        const timespec times[2] = {{time, 0}, {time, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, Temp.Write(name, content).c_str(), times, 0), 0);
    }
    static std::string TextOf(const std::string& id)
    {
        try {
            BackupResource(id, 3);
        } catch (const TQvMessage& message) {
            return message.text();
        }
        return "";
    }
    TNames Kept() const { return NamesIn(Temp / "backup"); }

    TTempFolder Temp;
};

TEST_F(Backups, StampIsTheContentsLocalTime)
{
    TEnvironmentVariable zone("TZ", "XYZ-5:30"); // 5:30 ahead of UTC
    tzset();
    Put("a.tar.gz", kTime, "content");
    Put("a.tar.gz.meta", kTime, "meta");
    Put("plain", kTime + 100000000);
    BackupResource("/K/a.tar.gz", 3);
    BackupResource("/K/plain", 3);
    EXPECT_EQ(Kept(), (TNames{"a.tar.2024-03-05.19-37-09.gz", "a.tar.2024-03-05.19-37-09.gz.meta",
                              "plain.2027-05-07.05-23-49"}));
    EXPECT_EQ(ReadFile(Temp / "backup/a.tar.2024-03-05.19-37-09.gz"), "content");
    EXPECT_EQ(NamesIn(Temp.Path()), (TNames{"backup"}));
}

TEST_F(Backups, KeepsAtMostThatMany)
{
    const struct
    {
        std::size_t Keep;
        TNames Times; ///< of the files that are left, the new one included
    } kRows[] = {
        {1, {"9"}},
        {2, {"3", "9"}},
        {3, {"2", "3", "9"}},
        {4, {"1", "2", "3", "9"}},
        {9, {"1", "2", "3", "9"}},
    };
    for (const auto& row : kRows) {
        // Age is the file's time, not the stamp in its name.
        Put("backup/a.2001-01-01.00-00-00.txt", kTime + 3, "3");
        Put("backup/a.2002-01-01.00-00-00.txt", kTime + 2, "2");
        Put("backup/a.2003-01-01.00-00-00.txt", kTime + 1, "1");
        Put("a.txt", kTime + 9, "9");
        BackupResource("/K/a.txt", row.Keep);
        TNames times;
        for (const std::string& name : Kept())
            times.push_back(ReadFile(Temp / ("backup/" + name)));
        std::sort(times.begin(), times.end());
        EXPECT_EQ(times, row.Times) << row.Keep;
        ResourceManager.ClearFolder("/K", nullptr);
    }
    // Two of one time count once, so that one of them is never deleted.
    Put("backup/a.2001-01-01.00-00-00.txt", kTime);
    Put("backup/a.2002-01-01.00-00-00.txt", kTime);
    Put("a.txt", kTime + 9);
    BackupResource("/K/a.txt", 2);
    EXPECT_EQ(Kept().size(), 3u);
}

TEST_F(Backups, KeepingNoneDeletes)
{
    Put("a.txt", kTime);
    Put("a.txt.meta", kTime);
    BackupResource("/K/a.txt", 0);
    EXPECT_TRUE(NamesIn(Temp.Path()).empty());
}

TEST_F(Backups, PrunesItsOwnOnly)
{
    // Its mask could take each of the others for one of its own.
    const std::string stamp = ".2001-01-01.00-00-00";
    for (const char* other : {"a1", "a[1]x", "A[1]", "a[[]1]", "b", "a"})
        Put("backup/" + (other + stamp) + ".txt", kTime);
    Put("backup/a[1]" + stamp + ".x-ini", kTime);
    Put("backup/a[1].txt", kTime);
    const TNames others = Kept();
    Put("backup/a[1]" + stamp + ".txt", kTime);
    Put("a[1].txt", kTime + 9);
    BackupResource("/K/a[1].txt", 1);
    TNames kept = Kept();
    EXPECT_EQ(kept.size(), others.size() + 1);
    for (const std::string& other : others)
        EXPECT_EQ(std::count(kept.begin(), kept.end(), other), 1) << other;
    EXPECT_EQ(std::count(kept.begin(), kept.end(), "a[1]" + stamp + ".txt"), 0);
}

TEST_F(Backups, SameTimeSameName)
{
    Put("a", kTime, "1");
    BackupResource("/K/a", 3);
    Put("a", kTime, "2");
    BackupResource("/K/a", 3);
    ASSERT_EQ(Kept().size(), 1u);
    EXPECT_EQ(ReadFile(Temp / ("backup/" + Kept()[0])), "2");
}

TEST_F(Backups, Failures)
{
    const std::string signature = "@void BackupResource(const std::__cxx11::string &, size_t): ";
    for (const char* id : {"/K/none", "", "K/a", "/K/a*"})
        EXPECT_EQ(TextOf(id), signature + "Invalid resource ID") << id;
    Put("a", kTime, "content");
    Put("backup", kTime);
    EXPECT_EQ(TextOf("/K/a"), signature + "The folder for the backups cannot be created.");
    EXPECT_EQ(ReadFile(Temp / "a"), "content");
}
} // namespace
