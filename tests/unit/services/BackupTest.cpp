#include <algorithm>
#include <ctime>

#include "services/Backup.h"
#include "support/EnvironmentVariable.h"
#include "support/MountedFolder.h"
#include "support/Thrown.h"

namespace
{
using TNames = std::vector<std::string>;

constexpr std::int64_t kTime = 1709647629000; // 2024-03-05 14:07:09 UTC

class Backups : public TMountedFolder
{
protected:
    Backups() { tzset(); }
    /// The contents of the backups, sorted.
    TNames Kept() const
    {
        TNames contents;
        for (const std::string& name : NamesIn(Temp / "backup"))
            contents.push_back(ReadFile(Temp / ("backup/" + name)));
        std::sort(contents.begin(), contents.end());
        return contents;
    }

    const TEnvironmentVariable Zone{"TZ", "XYZ-5:30"}; // ahead of UTC
};

TEST_F(Backups, StampIsTheContentsLocalTime)
{
    Put("a.tar.gz", kTime, "1");
    Put("a.tar.gz.meta", kTime, "meta");
    BackupResource("/T/a.tar.gz", 3);
    EXPECT_EQ(NamesIn(Temp / "backup"),
              (TNames{"a.tar.2024-03-05.19-37-09.gz", "a.tar.2024-03-05.19-37-09.gz.meta"}));
    EXPECT_EQ(NamesIn(Temp.Path()), (TNames{"backup"}));
    Put("a.tar.gz", kTime + 999, "2");
    BackupResource("/T/a.tar.gz", 3);
    EXPECT_EQ(Kept(), (TNames{"2", "meta"})) << "the same second gives the same name";
}

TEST_F(Backups, KeepsAtMostThatManyOfItsOwn)
{
    const std::pair<std::size_t, TNames> kRows[] = {
        {2, {"3", "9"}}, {9, {"1", "2", "3", "9"}}, {0, {"1", "2", "3"}}};
    for (const auto& [keep, expected] : kRows) {
        // Age is the file's time, not the stamp in its name.
        Put("backup/a.2001-01-01.00-00-00.txt", kTime + 3000, "3");
        Put("backup/a.2002-01-01.00-00-00.txt", kTime + 2000, "2");
        Put("backup/a.2003-01-01.00-00-00.txt", kTime + 1000, "1");
        Put("a.txt", kTime + 9000, "9");
        BackupResource("/T/a.txt", keep);
        EXPECT_EQ(Kept(), expected) << keep;
        EXPECT_FALSE(Exists(Temp / "a.txt"));
        ResourceManager.ClearFolder("/T", nullptr);
    }
    // A mask made of the name as it is, or read without regard to case, takes each for its own.
    TNames expected = {"A[1]#.txt", "a#.txt", "a1#.txt", "a[1]#.x-ini", "a[1]x#.txt"};
    const auto put = [this](std::string name, const std::string& content) {
        Put("backup/" + name.replace(name.find('#'), 1, ".2001-01-01.00-00-00"), kTime, content);
    };
    for (const std::string& other : expected)
        put(other, other);
    put("a[1]#.txt", "old");
    Put("a[1].txt", kTime, "~new");
    BackupResource("/T/a[1].txt", 1);
    expected.push_back("~new");
    EXPECT_EQ(Kept(), expected);

    put("b#", "1"); // two of one time count as one
    Put("backup/b.2002-01-01.00-00-00", kTime, "2");
    Put("b", kTime + 9000, "3");
    BackupResource("/T/b", 2);
    EXPECT_EQ(Kept().size(), expected.size() + 3);
}

TEST_F(Backups, Failures)
{
    const auto textOf = [](const std::string& id) {
        return Thrown([&id] { BackupResource(id, 3); }).text();
    };
    const std::string signature = "@void BackupResource(const std::__cxx11::string &, size_t): ";
    for (const char* id : {"/T/none", "T/a"})
        EXPECT_EQ(textOf(id), signature + "Invalid resource ID") << id;
    Put("a", kTime, "content");
    Put("backup", kTime, "a resource");
    EXPECT_EQ(textOf("/T/a"), signature + "The folder for the backups cannot be created.");
    ResourceManager.DeleteResource("/T/backup");
    Temp.Write("backup/a.2024-03-05.19-37-09/in the way", "");
    EXPECT_EQ(textOf("/T/a"), "") << "a failed move is not reported";
    EXPECT_EQ(ReadFile(Temp / "a"), "content");
    ResourceManager.DeleteFolder("/T/backup", true, nullptr);
    Temp.Write("a.meta/in the way", "");
    EXPECT_NO_THROW(BackupResource("/T/a", 0)) << "nor is a failed delete";
    EXPECT_FALSE(Exists(Temp / "backup")) << "keeping none makes no folder";
}
} // namespace
