#include <algorithm>

#include "ManagerFixtures.h"
#include "support/Listing.h"
#include "support/LogCapture.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using Folders = TMountedTree;
using TIds = std::vector<std::string>;

TEST_F(Folders, CreatedClearedAndDeleted)
{
    ExpectTrees(Temp.Path(), Manager,
                {{"create /A/x/y/z/", true, "A/", "A/x/y/z/"},
                 {"create /A/x/y", true, "A/x/y/"},
                 {"create /V", true, "A/"}, // is there, virtual
                 {"create /New/folder", false, "A/"},
                 {"create /A/file/below", false, "A/file="},
                 // a failure does not end it; a link goes, not what it leads to
                 {"clear /A", false,
                  "A/in/x= A/in/x.meta= A/in/.hidden= A/in/bad:name/x= A/z/y= A/link>../other "
                  "other/kept=",
                  "A/in/.hidden= A/in/bad:name/x= other/kept="},
                 // across a mount point, which stays
                 {"clear /A/in", false, "A/in/M/ M/x=", "A/in/M/ M/"},
                 {"clear /A/none", false, "A/"},
                 {"remove /V/D", false, "D/x=", "D/"}, // a mount point stays, though cleared
                 {"rmdir /V", false, "A/"},
                 {"rmdir /A/..", false, "A/"},
                 {"remove /A/f", false, "A/"}});

    TLogCapture log;
    Temp.Write("A/file", "");
    EXPECT_FALSE(Manager.CreateFolder("/A/file"));
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Text, "%1% failed: \"%2%\" is resource");
    EXPECT_EQ(log.Entries[0].Shown, "bool TResourceManager::CreateFolder(const "
                                    "std::__cxx11::string &) failed: \"/A/file\" is resource");
    EXPECT_EQ(log.Entries[0].Level, 5);
}

TEST_F(Folders, ClearShowsProgressAndHeedsTheUser)
{
    MakeTree(Temp.Path(), "D/1= D/2= D/3=");
    TTestProgress progress;
    progress.Start();
    progress.BreakAfter = 1;
    EXPECT_FALSE(Manager.ClearFolder("/V/D", &progress));
    EXPECT_EQ(NamesIn(Temp / "D").size(), 2u);
    TTestProgress patient;
    patient.Start();
    EXPECT_TRUE(Manager.ClearFolder("/V/D", &patient));
    EXPECT_EQ(patient.Positions, (std::vector<double>{0, 0.5}));
}

TEST_F(Folders, RealAndEmpty)
{
    EXPECT_TRUE(Manager.IsFolder("/V/d/", true));
    EXPECT_FALSE(Manager.IsFolder("/V", true));
    EXPECT_FALSE(Manager.IsFolder("V", false));
    EXPECT_TRUE(Manager.IsFolderEmpty("/A"));
    EXPECT_FALSE(Manager.IsFolderEmpty("/V"));
}

TEST_F(Folders, RenameKeepsMountPoints)
{
    MakeTree(Temp.Path(), "A/in/ A/other/sub/ A/i/ M/ D/");
    const auto rename = [this](const std::string& id, const char* name) {
        return std::string(Thrown([&] { Manager.RenameFolderE(id, name); }).what());
    };
    EXPECT_EQ(rename("/A/none", "x"), "\"/A/none\" is not a folder.");
    for (const std::string id : {"/A/", "/A/in", "/a/in/", "/A/in/M", "/V", "/V/D"})
        EXPECT_EQ(rename(id, "x"),
                  "The folder \"" + id + "\" cannot be renamed: it is a mount point or holds one.");
    EXPECT_EQ(rename("/A/other/", "renamed"), "");
    EXPECT_EQ(rename("/A/i", "j"), "") << "begins like a mount point, and is none";
    EXPECT_EQ(TreeOf(Temp.Path()), "A/in/ A/j/ A/renamed/sub/ D/ M/");
}

TEST_F(Folders, RecursiveListingIsDeepestFirstAndCrossesMounts)
{
    MakeTree(Temp.Path(), "A/in/one/1.txt= A/in/M/ A/in/loop>.. A/in/3.TXT= M/2.txt= B/ D/");
    TIds all = Listed(Manager, "/A", "*", 7);
    for (auto folder = all.begin(); folder != all.end(); ++folder)
        EXPECT_TRUE(std::none_of(folder + 1, all.end(), [&](const std::string& later) {
            return folder->back() == '/' && later.compare(0, folder->size(), *folder) == 0;
        })) << *folder;
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, (TIds{"/A/in/", "/A/in/3.TXT", "/A/in/M/", "/A/in/M/2.txt", "/A/in/loop/",
                         "/A/in/one/", "/A/in/one/1.txt"}))
        << "each once; the link is shown and not entered";
    // a mask, or folders left out, gives the same entries less what does not match
    TIds masked = Listed(Manager, "/A", "*.txt", 5);
    std::sort(masked.begin(), masked.end());
    EXPECT_EQ(masked, (TIds{"/A/in/3.TXT", "/A/in/M/2.txt", "/A/in/one/1.txt"}));
    EXPECT_EQ(Listed(Manager, "/", "*", 7).size(), all.size() + 4);
}

TEST_F(Folders, FindWithProgress)
{
    TTestProgress progress;
    Listed(Manager, "/V", "*", 2, &progress);
    EXPECT_EQ(progress.Starts, 1);
    EXPECT_FALSE(progress.Started());
    TLogCapture log;
    progress.Start();
    EXPECT_EQ(Listed(Manager, "/V", "*", 2, &progress), TIds{"/V/D/"});
    EXPECT_EQ(progress.Starts, 2) << "not started again";
    EXPECT_TRUE(progress.Started()) << "nor stopped";
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Text, "@TResourceManager::Find(): Progress already started!");
    EXPECT_EQ(log.Entries[0].Kind, TQvLogKind::Warning);
    EXPECT_EQ(log.Entries[0].Level, 5);
    progress.BreakAfter = 0;
    EXPECT_THROW(Listed(Manager, "/V", "*", 2, &progress), TQvUserBreak);
}
} // namespace
