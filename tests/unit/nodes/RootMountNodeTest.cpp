#include "nodes/RootMountNode.h"

#include <gtest/gtest.h>

#include "nodes/FileMountNode.h"
#include "support/Listing.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using TIds = std::vector<std::string>;

TRootMountNode MakeRoot(const TIds& mountPoints)
{
    std::vector<var_a<TResourceManager::TMountNode*>> nodes;
    for (const std::string& mountPoint : mountPoints)
        nodes.push_back(make_var<TFileMountNode>(mountPoint, TQvPath("/nowhere")));
    return TRootMountNode(nodes);
}

TEST(RootMountNode, ListsDirectChildrenOnceAsWritten)
{
    const TRootMountNode root = MakeRoot(
        {"/My Computer/Data.1", "/my computer/Other", "/Tmp2", "/a\xFF/b", "/my Computer/X/Data3"});
    const std::tuple<const char*, const char*, TIds> kRows[] = {
        // the first spelling in the table is the one shown; bytes sort above letters
        {"/", "*", {"/a\xFF/", "/My Computer/", "/Tmp2/"}},
        {"", "*", {"/a\xFF/", "/My Computer/", "/Tmp2/"}},
        {"/MY computer/", "*", {"/MY computer/Data.1/", "/MY computer/Other/", "/MY computer/X/"}},
        {"/a\xFF", "*", {"/a\xFF/b/"}},
        {"/My", "*", {}},
        // unlike a disk folder's, "*.*" matches every name; regular expressions pass through, and
        // what is no valid one matches nothing
        {"/", "*.*", {"/a\xFF/", "/My Computer/", "/Tmp2/"}},
        {"/My Computer", "data.?", {"/My Computer/Data.1/"}},
        {"/", "[s-u]*2", {"/Tmp2/"}},
        {"/", "(((", {}},
    };
    TTestProgress progress;
    for (const auto& [folder, mask, expected] : kRows)
        EXPECT_EQ(Listed(root, folder, mask, kFindFolders), expected) << folder << " " << mask;
    EXPECT_EQ(Listed(root, "/", "*", kFindResources), TIds());
    EXPECT_TRUE(root.Find({}, "/", "*", kFindFolders, &progress));
    EXPECT_EQ(progress.Polls, 1) << "a probe ends at the first match";
    EXPECT_FALSE(root.Find({}, "/Z", "*", kFindFolders, &progress));
    const auto items = make_var<std::vector<TQvResFindItem>>();
    EXPECT_TRUE(root.Find(items, "/", "*", kFindFolders, nullptr));
    EXPECT_EQ(items->at(0).Attrib.Origin, kOriginRootNode);
}

TEST(RootMountNode, HasTheParentFoldersOfMountPoints)
{
    TRootMountNode root = MakeRoot({"/A/B"});
    TQvResAttrib attrib;
    for (const char* folder : {"/", "", "/a", "/A/b"}) {
        attrib.Size = 77;
        EXPECT_EQ(root.ResourceExists(folder), *folder == 0 ? kResNothing : kResFolder) << folder;
        EXPECT_TRUE(root.GetResourceAttr(folder, &attrib)) << folder;
        EXPECT_EQ(attrib.Origin, kOriginRootNode);
        EXPECT_EQ(attrib.Size, 0u);
    }
    EXPECT_EQ(root.ResourceExists("/B"), kResNothing);
    EXPECT_FALSE(root.GetResourceAttr("/B", &attrib));
    EXPECT_FALSE(root.GetResourceAttr("/", nullptr));
    EXPECT_EQ(MakeRoot({}).ResourceExists("/"), kResNothing) << "nothing is mounted";
    EXPECT_EQ(Thrown([&] { root.RenameFolderE("/A", "A"); }).text(),
              "This is not possible here: the folder only contains mount points.");
    EXPECT_EQ(Thrown([&] { root.CreateLockFile("/A", 1, true, "me"); }).text(),
              "CreateLockFile shouldn't be invoked for TRootMountNode");
}
} // namespace
