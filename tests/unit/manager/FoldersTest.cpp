#include <algorithm>

#include "ManagerFixtures.h"
#include "support/Listing.h"
#include "support/LogCapture.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using Folders = TAnyMountedTree;
QV_WITH_ANY_NODES(Folders);
using TIds = std::vector<std::string>;

TEST_P(Folders, CreatedClearedAndDeleted)
{
    ExpectTrees({{"create /A/x/y/z/", true, "A/", "A/x/y/z/"},
                 {"create /A/x/y", true, "A/x/y/"},
                 {"create /V", true, "A/"}, // is there, virtual
                 {"create /New/folder", false, "A/"},
                 {"create /A/file/below", false, "A/file="},
                 // a failure does not end it
                 {"clear /A", false, "A/in/x= A/in/x.meta= A/in/.hidden= A/in/bad:name/x= A/z/y=",
                  "A/in/.hidden= A/in/bad:name/x="},
                 // a link is deleted, not its target
                 {"clear /A", true, "A/link>../other other/kept=", "A/ other/kept="},
                 // across a mount point, which stays
                 {"clear /A/in", false, "A/in/M/ M/x=", "A/in/M/ M/"},
                 {"clear /A/none", false, "A/"},
                 {"remove /V/D", false, "D/x=", "D/"}, // a mount point stays, though cleared
                 {"rmdir /V", false, "A/"},
                 {"rmdir /A/..", false, "A/"},
                 {"remove /A/f", false, "A/"}});

    TLogCapture log;
    Write("A/file", "");
    EXPECT_FALSE(Manager.CreateFolder("/A/file"));
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Text, "%1% failed: \"%2%\" is resource");
    EXPECT_EQ(log.Entries[0].Shown, "bool TResourceManager::CreateFolder(const "
                                    "std::__cxx11::string &) failed: \"/A/file\" is resource");
    EXPECT_EQ(log.Entries[0].Level, 5);
}

TEST_P(Folders, ClearShowsProgressAndCanBeCancelled)
{
    Fill("D/1= D/2= D/3=");
    TTestProgress progress;
    progress.Start();
    progress.BreakAfter = 1;
    EXPECT_FALSE(Manager.ClearFolder("/V/D", &progress));
    EXPECT_EQ(Listed(Manager, "/V/D", "*", 1).size(), 2u);
    TTestProgress patient;
    patient.Start();
    EXPECT_TRUE(Manager.ClearFolder("/V/D", &patient));
    EXPECT_EQ(patient.Positions, (std::vector<double>{0, 0.5}));
}

TEST_P(Folders, VirtualFoldersAreNotRealAndNotEmpty)
{
    EXPECT_TRUE(Manager.IsFolder("/V/d/", true));
    EXPECT_FALSE(Manager.IsFolder("/V", true));
    EXPECT_FALSE(Manager.IsFolder("V", false));
    EXPECT_TRUE(Manager.IsFolderEmpty("/A"));
    EXPECT_FALSE(Manager.IsFolderEmpty("/V"));
}

TEST_P(Folders, RenameKeepsMountPoints)
{
    Fill("A/in/ A/other/sub/ A/i/ M/ D/");
    const auto rename = [this](const std::string& id, const char* name) {
        return std::string(Thrown([&] { Manager.RenameFolderE(id, name); }).what());
    };
    EXPECT_EQ(rename("/A/none", "x"), "\"/A/none\" is not a folder.");
    for (const std::string id : {"/A/", "/A/in", "/a/in/", "/A/in/M", "/V", "/V/D"})
        EXPECT_EQ(rename(id, "x"),
                  "The folder \"" + id +
                      "\" cannot be renamed: it is a mount point or contains one.");
    EXPECT_NE(rename("/A/other", "other/sub/below"), "");
    EXPECT_EQ(TResourceManager::LastFailure().Error, EINVAL) << "a folder inside itself";
    EXPECT_EQ(rename("/A/other/", "renamed"), "");
    EXPECT_EQ(rename("/A/i", "j"), "") << "begins like a mount point, and is none";
    EXPECT_EQ(Tree(), "A/in/ A/j/ A/renamed/sub/ D/ M/");
}

TEST_P(Folders, RecursiveListingIsDeepestFirstAndCrossesMounts)
{
    Fill("A/in/one/1.txt= A/in/M/ A/in/loop>.. A/in/3.TXT= M/2.txt= B/ D/");
    TIds all = Listed(Manager, "/A", "*", 7);
    for (auto folder = all.begin(); folder != all.end(); ++folder)
        EXPECT_TRUE(std::none_of(folder + 1, all.end(), [&](const std::string& later) {
            return folder->back() == '/' && later.compare(0, folder->size(), *folder) == 0;
        })) << *folder;
    std::sort(all.begin(), all.end());
    TIds expected = {"/A/in/",        "/A/in/3.TXT", "/A/in/M/",
                     "/A/in/M/2.txt", "/A/in/one/",  "/A/in/one/1.txt"};
    if (OnDisk("A"))
        expected.insert(expected.begin() + 4, "/A/in/loop/");
    EXPECT_EQ(all, expected) << "each once; the link is shown and not entered";
    // a mask, or a listing without folders, gives those of the same entries that match
    TIds masked = Listed(Manager, "/A", "*.txt", 5);
    std::sort(masked.begin(), masked.end());
    EXPECT_EQ(masked, (TIds{"/A/in/3.TXT", "/A/in/M/2.txt", "/A/in/one/1.txt"}));
    EXPECT_EQ(Listed(Manager, "/", "*", 7).size(), all.size() + 4);
}

TEST_P(Folders, FindShowsHiddenNamesAndMountsWhenAsked)
{
    Manager.MountFileNodeE("/A/way/to/N", Temp.MakeFolder("N"), false);
    Manager.MountFileNodeE("/A/file", Temp / "N", false);
    Manager.MountFileNodeE("/B/res/P", Temp / "N", false);
    constexpr unsigned kAll = 3, kDeep = 7, kHidden = kFindHidden, kMounts = kFindMounts;
    const struct
    {
        const char* Folder;
        const char* Mask;
        unsigned Flags;
        TIds Ids;
    } rows[] = {
        {"/A", "*", kAll, {"/A/FILE", "/A/IN/"}},
        {"/A", "*", kAll | kHidden, {"/A/.d/", "/A/.h", "/A/FILE", "/A/IN/"}},
        {"/A", ".?", kFindResources | kHidden, {"/A/.h"}},
        // the disk shows IN, though in other letters; no id leads to the disk's FILE
        {"/A", "*", kAll | kMounts, {"/A/IN/", "/A/file/", "/A/way/"}},
        {"/A", "*", kFindResources | kMounts, {}},
        {"/A", "W*", kAll | kMounts, {"/A/way/"}},
        {"/A/in", "?", kFindFolders | kMounts, {"/A/in/M/"}},
        {"/V", "*", kAll | kMounts, {"/V/D/"}},
        {"/B", "*", kAll | kMounts, {"/B/res"}}, // no folder, though a mount point lies below
        {"/B", "*", kFindFolders | kMounts, {}},
        {"/A", "*.h", kDeep | kMounts, {"/A/IN/M/1.h"}},
        {"/A", "[ih]*", kDeep | kHidden, {"/A/.d/in", "/A/IN/"}},
        {"/A",
         "*",
         kDeep | kMounts,
         {"/A/IN/", "/A/IN/M/", "/A/IN/M/1.h", "/A/file/", "/A/file/n", "/A/way/", "/A/way/to/",
          "/A/way/to/N/", "/A/way/to/N/n"}},
    };
    Fill("A/FILE= A/.h= A/.h.meta= A/.d/in= A/IN/ M/1.h= M/.h= N/n= B/res= D/");
    for (const auto& row : rows) {
        TIds ids = Listed(Manager, row.Folder, row.Mask, row.Flags);
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, row.Ids) << row.Folder << ' ' << row.Mask << ' ' << row.Flags;
    }
    const auto items = make_var<std::vector<TQvResFindItem>>();
    Manager.Find(items, "/A/in", "*", kAll | kMounts, nullptr);
    ASSERT_EQ(items->size(), 1u);
    EXPECT_EQ(items->at(0).Attrib.Origin, kOriginRootNode);
}

TEST_P(Folders, FindStartsOnlyAnIdleProgress)
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
