#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
/// "/A" with "/A/in/B" mounted inside it, "/X/Deep" below a virtual folder.
class Folders : public testing::Test
{
protected:
    Folders()
    {
        Manager.MountFileNodeE("/A", Temp.MakeFolder("a"), false);
        Manager.MountFileNodeE("/A/in/B", Temp.MakeFolder("b"), false);
        Manager.MountFileNodeE("/X/Deep", Temp.MakeFolder("deep"), false);
    }
    std::string Disk(const std::string& name) const { return Temp / name; }
    std::vector<std::string> List(const std::string& folder, const std::string& mask,
                                  unsigned flags, TQvProgressHandler* progress = nullptr) const
    {
        const auto items = make_var<std::vector<TQvResFindItem>>();
        Manager.Find(items, folder, mask, flags, progress);
        std::vector<std::string> ids;
        for (const TQvResFindItem& item : *items)
            ids.push_back(item.Id + (item.Attrib.Kind == kResFolder ? "/" : ""));
        return ids;
    }
    static std::string TextOf(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const TQvMessage& message) {
            return message.what();
        }
        return "";
    }

    TTempFolder Temp;
    TResourceManager Manager;
};

using TIds = std::vector<std::string>;

TEST_F(Folders, CreateWithParents)
{
    EXPECT_TRUE(Manager.CreateFolder("/A/x/y/z/"));
    EXPECT_TRUE(Manager.CreateFolder("/A/x/y/z"));
    EXPECT_TRUE(Manager.IsFolder("/a/x/y/z/", true));
    EXPECT_TRUE(Manager.CreateFolder("/X")) << "a virtual folder is there";
    EXPECT_FALSE(Manager.CreateFolder("/New/folder")) << "nothing is mounted there";
    Temp.Write("a/file", "");
    TLogCapture log;
    EXPECT_FALSE(Manager.CreateFolder("/A/file"));
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Text, "%1% failed: \"%2%\" is resource");
    EXPECT_EQ(log.Entries[0].Shown, "bool TResourceManager::CreateFolder(const "
                                    "std::__cxx11::string &) failed: \"/A/file\" is resource");
    EXPECT_EQ(log.Entries[0].Level, 5);
    EXPECT_FALSE(Manager.CreateFolder("/A/file/below"));
}

TEST_F(Folders, RealAndEmpty)
{
    EXPECT_TRUE(Manager.IsFolder("/X", false));
    EXPECT_FALSE(Manager.IsFolder("/X", true));
    EXPECT_TRUE(Manager.IsFolderEmpty("/A"));
    EXPECT_FALSE(Manager.IsFolderEmpty("/X"));
    EXPECT_FALSE(Manager.IsFolder("X", false));
}

TEST_F(Folders, RenameKeepsMountPoints)
{
    Manager.CreateFolder("/A/in");
    Manager.CreateFolder("/A/other/sub");
    Manager.CreateFolder("/A/i");
    EXPECT_EQ(TextOf([&] { Manager.RenameFolderE("/A/none", "x"); }),
              "\"/A/none\" is not a folder.");
    for (const char* id : {"/A/", "/A/in", "/a/in/", "/A/in/B", "/X", "/X/Deep"})
        EXPECT_EQ(TextOf([&] { Manager.RenameFolderE(id, "x"); }),
                  std::string("The folder \"") + id +
                      "\" cannot be renamed: it is a mount point or holds one.");
    EXPECT_EQ(TextOf([&] { Manager.RenameFolderE("/A/other/", "renamed"); }), "");
    EXPECT_EQ(TextOf([&] { Manager.RenameFolderE("/A/i", "j"); }), "")
        << "begins like a mount point, and is none";
    EXPECT_EQ(NamesIn(Disk("a")), (TIds{"in", "j", "renamed"}));
}

TEST_F(Folders, RecursiveListingIsDeepestFirstAndCrossesMounts)
{
    Temp.Write("a/in/one/1.txt", "");
    Temp.MakeFolder("a/in/B");
    Temp.Write("b/2.txt", "");
    Temp.Write("a/in/3.TXT", "");
    ASSERT_EQ(symlink("..", Disk("a/in/loop").c_str()), 0);
    const TIds all = List("/A", "*", 7);
    const auto at = [&all](const std::string& id) {
        return std::find(all.begin(), all.end(), id) - all.begin();
    };
    EXPECT_EQ(all.size(), 7u) << "each once; the link is shown and not entered";
    EXPECT_LT(at("/A/in/one/1.txt"), at("/A/in/one/"));
    EXPECT_LT(at("/A/in/B/2.txt"), at("/A/in/B/"));
    EXPECT_LT(at("/A/in/3.TXT"), at("/A/in/"));
    EXPECT_LT(at("/A/in/loop/"), at("/A/in/"));
    EXPECT_EQ(at("/A/in/"), 6);
    // a mask, or folders left out, gives the same entries less what does not match
    TIds masked = List("/A", "*.txt", 5);
    std::sort(masked.begin(), masked.end());
    EXPECT_EQ(masked, (TIds{"/A/in/3.TXT", "/A/in/B/2.txt", "/A/in/one/1.txt"}));
    EXPECT_EQ(List("/", "*", 2), (TIds{"/A/", "/X/"}));
    EXPECT_EQ(List("/X/", "*", 2), (TIds{"/X/Deep/"}));
    EXPECT_EQ(List("/", "*", 7).size(), 10u);
}

TEST_F(Folders, FindWithProgress)
{
    TTestProgress progress;
    List("/X", "*", 2, &progress);
    EXPECT_EQ(progress.Starts, 1);
    EXPECT_FALSE(progress.Started());
    TLogCapture log;
    progress.Start();
    EXPECT_EQ(List("/X", "*", 2, &progress).size(), 1u);
    EXPECT_EQ(progress.Starts, 2) << "not started again";
    EXPECT_TRUE(progress.Started()) << "nor stopped";
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Text, "@TResourceManager::Find(): Progress already started!");
    EXPECT_EQ(log.Entries[0].Kind, TQvLogKind::Warning);
    EXPECT_EQ(log.Entries[0].Level, 5);
    progress.BreakAfter = 0;
    EXPECT_THROW(List("/X", "*", 2, &progress), TQvUserBreak);
}

TEST_F(Folders, ClearGoesOnAfterAFailure)
{
    Temp.Write("a/in/x.txt", "");
    Temp.Write("a/in/x.txt.meta", "");
    Temp.Write("a/in/.hidden", "");
    Temp.Write("a/in/bad:name", "");
    Temp.Write("a/z/y", "");
    Temp.Write("outside/kept", "");
    ASSERT_EQ(symlink(Disk("outside").c_str(), Disk("a/link").c_str()), 0);
    EXPECT_FALSE(Manager.ClearFolder("/A", nullptr));
    EXPECT_EQ(NamesIn(Disk("a")), (TIds{"in"}));
    EXPECT_EQ(NamesIn(Disk("a/in")), (TIds{".hidden", "bad:name"}));
    EXPECT_EQ(NamesIn(Disk("outside")), (TIds{"kept"})) << "the link went, not what it leads to";
    EXPECT_FALSE(Manager.ClearFolder("/A/none", nullptr));
}

TEST_F(Folders, ClearLeavesMountPointsAndHeedsTheUser)
{
    Temp.MakeFolder("a/in/B");
    Temp.Write("b/x", "");
    EXPECT_FALSE(Manager.ClearFolder("/A/in", nullptr));
    EXPECT_TRUE(NamesIn(Disk("b")).empty()) << "cleared across the mount point";
    EXPECT_TRUE(Exists(Disk("a/in/B")));

    for (const char* name : {"deep/1", "deep/2", "deep/3"})
        Temp.Write(name, "");
    TTestProgress progress;
    progress.Start();
    progress.BreakAfter = 1;
    EXPECT_FALSE(Manager.ClearFolder("/X/Deep", &progress));
    EXPECT_EQ(NamesIn(Disk("deep")).size(), 2u);
    TTestProgress patient;
    patient.Start();
    EXPECT_TRUE(Manager.ClearFolder("/X/Deep", &patient));
    EXPECT_EQ(patient.Positions, (std::vector<double>{0, 0.5}));
}

TEST_F(Folders, DeleteNeverTakesAMountPoint)
{
    Temp.Write("deep/x", "");
    EXPECT_FALSE(Manager.DeleteFolder("/X/Deep", true, nullptr));
    EXPECT_TRUE(NamesIn(Disk("deep")).empty()) << "cleared first all the same";
    EXPECT_FALSE(Manager.DeleteFolder("/A/..", false, nullptr)) << "nor by way of \"..\"";
    EXPECT_TRUE(Exists(Disk("a")));
    Temp.Write("a/f/g/x", "");
    EXPECT_FALSE(Manager.DeleteFolder("/A/f", false, nullptr));
    EXPECT_TRUE(Manager.DeleteFolder("/A/f/", true, nullptr));
    EXPECT_FALSE(Exists(Disk("a/f")));
    EXPECT_FALSE(Manager.DeleteFolder("/A/f", true, nullptr));
}
} // namespace
