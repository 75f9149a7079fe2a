#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
/// Two mounts, "/A" and "/B".
class Resources : public testing::Test
{
protected:
    Resources()
    {
        Manager.MountFileNodeE("/A", Temp.MakeFolder("a"), false);
        Manager.MountFileNodeE("/B", Temp.MakeFolder("b"), false);
    }
    std::string Disk(const std::string& name) const { return Temp / name; }

    TTempFolder Temp;
    TResourceManager Manager;
};

TEST_F(Resources, OpenTellsWhatItCouldNotDo)
{
    constexpr std::pair<qvOpenMode, const char*> kRows[] = {
        {7, "The resource \"%1%\" cannot be created."},
        {11, "The resource \"%1%\" cannot be created."},
        {12, "The resource \"%1%\" cannot be created."},
        {8, "The resource \"%1%\" cannot be opened for writing."},
        {9, "The resource \"%1%\" cannot be opened for writing."},
        {10, "The resource \"%1%\" cannot be opened for reading."},
        {0, "The resource \"%1%\" cannot be opened."},
        {6, "The resource \"%1%\" cannot be opened."},
        {13, "The resource \"%1%\" cannot be opened."},
    };
    for (const char* id : {"/A/no/such", "/Z"}) {
        for (const auto& [mode, text] : kRows) {
            try {
                Manager.OpenResourceE(id, mode, kQvShareAll, 0);
                ADD_FAILURE() << id << " in mode " << mode;
            } catch (const TQvMessage& message) {
                EXPECT_EQ(message.text(), text) << mode;
                EXPECT_EQ(message.arguments(), std::vector<std::string>{id});
            }
        }
    }
    EXPECT_THROW(Manager.OpenResource("A", kQvOpenRead, kQvShareAll, 0), TQvMessage);
    Temp.Write("a/x", "1");
    EXPECT_TRUE(*Manager.OpenResourceE("/A/x", kQvOpenRead, kQvShareAll, 0));
}

TEST_F(Resources, ExistsNeverThrows)
{
    Temp.Write("a/x", "1");
    EXPECT_EQ(Manager.ResourceExists("/a/x"), kResResource);
    EXPECT_EQ(Manager.ResourceExists("/A///"), kResFolder);
    EXPECT_EQ(Manager.ResourceExists("/"), kResFolder);
    for (const char* id : {"", "A/B", "/A/*", "/A//x", "/A\\x", "/A/no"})
        EXPECT_EQ(Manager.ResourceExists(id), kResNothing) << id;
}

TEST_F(Resources, CopyBetweenNodesTakesTheSidecar)
{
    Temp.Write("a/x", "content");
    Temp.Write("a/x.meta", "meta");
    TTestProgress progress;
    progress.Start();
    EXPECT_TRUE(Manager.CopyResource("/A/x", "/B/y", &progress));
    EXPECT_EQ(progress.Positions.back(), 1.0);
    EXPECT_EQ(ReadFile(Disk("b/y")), "content");
    EXPECT_EQ(ReadFile(Disk("b/y.meta")), "meta");

    Temp.Write("a/plain", "2");
    EXPECT_TRUE(Manager.CopyResource("/A/plain", "/B/y", nullptr));
    EXPECT_EQ(ReadFile(Disk("b/y")), "2");
    EXPECT_EQ(ReadFile(Disk("b/y.meta")), "meta") << "stays when the source has none";
    EXPECT_FALSE(Manager.CopyResourceMeta("/A/plain", "/B/y")) << "and is not emptied";
    EXPECT_EQ(ReadFile(Disk("b/y.meta")), "meta");

    Temp.Write("b/new.meta", "stale");
    EXPECT_TRUE(Manager.CopyResource("/A/plain", "/B/new", nullptr));
    EXPECT_EQ(NamesIn(Disk("b")), (std::vector<std::string>{"new", "y", "y.meta"}));
}

TEST_F(Resources, FailedCopyLeavesNoHalfTarget)
{
    Temp.Write("a/big", std::string(20 << 20, 'x'));
    Temp.Write("b/old", "old");
    Temp.MakeFolder("b/folder");
    EXPECT_FALSE(Manager.CopyResource("/A/none", "/B/old", nullptr));
    EXPECT_FALSE(Manager.CopyResource("/A/big", "/B/folder", nullptr));
    EXPECT_FALSE(Manager.CopyResource("/A/big", "/B/no/such", nullptr));
    EXPECT_FALSE(Manager.CopyResource("/A/big", "/Z", nullptr));
    for (const char* target : {"/B/old", "/B/new", "/A/new"}) {
        TTestProgress progress;
        progress.BreakAfter = 1;
        EXPECT_FALSE(Manager.CopyResource("/A/big", target, &progress)) << target;
        EXPECT_FALSE(Manager.RenMovResource("/A/big", "/B/new", &progress));
    }
    TQvFileStream other(TQvPath(Disk("b/old")), kQvOpenWrite, 0);
    EXPECT_FALSE(Manager.CopyResource("/A/big", "/B/old", nullptr))
        << "somebody has it for himself";
    EXPECT_EQ(ReadFile(Disk("b/old")), "old");
    EXPECT_EQ(NamesIn(Disk("b")), (std::vector<std::string>{"folder", "old"}));
    EXPECT_EQ(NamesIn(Disk("a")), (std::vector<std::string>{"big"}));
}

TEST_F(Resources, OverwritingBetweenNodesKeepsPermissions)
{
    Temp.Write("a/x", "new");
    Temp.Write("b/x", "private");
    ASSERT_EQ(chmod(Disk("b/x").c_str(), 0600), 0);
    EXPECT_TRUE(Manager.CopyResource("/A/x", "/B/x", nullptr));
    struct stat status = {};
    ASSERT_EQ(stat(Disk("b/x").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(ReadFile(Disk("b/x")), "new");
}

TEST_F(Resources, TwoMountsOfOneFolder)
{
    Manager.MountFileNodeE("/Same", Disk("a"), false);
    Temp.Write("a/x", "content");
    Temp.Write("a/x.meta", "meta");
    EXPECT_TRUE(Manager.CopyResource("/A/x", "/Same/x", nullptr));
    EXPECT_TRUE(Manager.CopyResourceMeta("/A/x", "/Same/x"));
    EXPECT_TRUE(Manager.RenMovResource("/A/x", "/Same/x", nullptr));
    EXPECT_EQ(ReadFile(Disk("a/x")), "content");
    EXPECT_EQ(ReadFile(Disk("a/x.meta")), "meta");
}

TEST_F(Resources, MoveBetweenNodes)
{
    // a hard link is another entry of one file: the source goes. A symbolic link would lead to
    // nothing then
    Temp.Write("a/h", "linked");
    ASSERT_EQ(link(Disk("a/h").c_str(), Disk("b/h").c_str()), 0);
    EXPECT_TRUE(Manager.RenMovResource("/A/h", "/B/h", nullptr));
    EXPECT_FALSE(Exists(Disk("a/h")));
    ASSERT_EQ(symlink(Disk("b/h").c_str(), Disk("a/h").c_str()), 0);
    EXPECT_FALSE(Manager.RenMovResource("/B/h", "/A/h", nullptr));
    EXPECT_EQ(ReadFile(Disk("a/h")), "linked");

    // a sidecar that cannot follow is not lost
    Temp.Write("a/m", "content");
    Temp.Write("a/m.meta", "precious");
    Temp.MakeFolder("b/m.meta");
    EXPECT_FALSE(Manager.RenMovResource("/A/m", "/B/m", nullptr));
    EXPECT_EQ(ReadFile(Disk("a/m.meta")), "precious");

    Temp.Write("a/x", "content");
    EXPECT_TRUE(Manager.RenMovResource("/A/x", "/B/x", nullptr));
    EXPECT_EQ(ReadFile(Disk("b/x")), "content");
    EXPECT_FALSE(Exists(Disk("a/x")));
    EXPECT_FALSE(Manager.RenMovResource("/B/x", "/A/no/x", nullptr));
    EXPECT_EQ(ReadFile(Disk("b/x")), "content");
}

TEST_F(Resources, DiskFileOfAResource)
{
    EXPECT_EQ(Manager.GetResourceFile("/A/x", false), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), "");
    EXPECT_EQ(Manager.GetResourceFile("/A/x", true), Disk("a/x"));
    EXPECT_EQ(ReadFile(Disk("a/x")), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), Disk("a/"));
    EXPECT_EQ(Manager.GetResourceFile("/A", true), "");
    const auto lock = Manager.CreateLockFile("/A/x", 100, true, "me");
    ASSERT_TRUE(lock);
    EXPECT_TRUE(*lock);
}

TEST(ResourceLabelWeak, WorksOnTheGlobalManager)
{
    TTempFolder temp;
    ResourceManager.MountFileNodeE("/Weak", temp.Path(), false);
    temp.Write("x", "12345");
    TQvResourceLabel label;
    label.CRC = 7;
    EXPECT_TRUE(TResourceManager::GetResourceLabelWeak("/weak/x", &label));
    EXPECT_EQ(label.Size, 5u);
    EXPECT_NE(label.Time, TQvDateTime());
    EXPECT_EQ(label.CRC, 7u) << "no checksum is computed";
    EXPECT_FALSE(TResourceManager::GetResourceLabelWeak("/weak", &label));
    ResourceManager.UnmountNodeE("/Weak", false);
}
} // namespace
