#include "nodes/RootMountNode.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "nodes/FileMountNode.h"
#include "support/TestProgress.h"

namespace
{
using TNodes = std::vector<var_a<TResourceManager::TMountNode*>>;

TRootMountNode MakeRoot(const std::vector<std::string>& mountPoints)
{
    TNodes nodes;
    for (const std::string& mountPoint : mountPoints)
        nodes.push_back(make_var<TFileMountNode>(mountPoint, TQvPath("/nowhere")));
    return TRootMountNode(nodes);
}

std::vector<std::string> List(const TRootMountNode& root, const std::string& folder,
                              const std::string& mask = "*", unsigned flags = kFindFolders)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    root.Find(items, folder, mask, flags, nullptr);
    std::vector<std::string> ids;
    for (const TQvResFindItem& item : *items) {
        EXPECT_EQ(item.Attrib.Kind, kResFolder);
        EXPECT_EQ(item.Attrib.Origin, kOriginRootNode);
        ids.push_back(item.Id);
    }
    return ids;
}

using TIds = std::vector<std::string>;

TEST(RootMountNode, ListsDirectChildrenOnceAsWritten)
{
    const TRootMountNode root =
        MakeRoot({"/My Computer/Data", "/my computer/Other", "/Tmp", "/a\xFF/b"});
    // the first spelling in the table is the one shown; bytes sort above letters
    EXPECT_EQ(List(root, "/"), (TIds{"/a\xFF", "/My Computer", "/Tmp"}));
    EXPECT_EQ(List(root, ""), List(root, "/"));
    EXPECT_EQ(List(root, "/MY computer/"), (TIds{"/MY computer/Data", "/MY computer/Other"}));
    EXPECT_EQ(List(root, "/a\xFF"), (TIds{"/a\xFF/b"}));
    EXPECT_EQ(List(root, "/My"), TIds());
    EXPECT_EQ(List(root, "/Tmp"), TIds());
    EXPECT_EQ(List(root, "/", "*", kFindResources), TIds());
}

TEST(RootMountNode, Masks)
{
    const TRootMountNode root = MakeRoot({"/Data.1", "/Data2", "/X/Data3"});
    EXPECT_EQ(List(root, "/", "*.*"), (TIds{"/Data.1", "/Data2", "/X"}))
        << "\"*.*\" matches every name here";
    EXPECT_EQ(List(root, "/", "data.?"), (TIds{"/Data.1"}));
    EXPECT_EQ(List(root, "/", "[a-d]*2"), (TIds{"/Data2"})) << "regular expressions pass through";
    EXPECT_EQ(List(root, "/", "((("), TIds()) << "no valid expression matches nothing";
}

TEST(RootMountNode, PollsAndProbes)
{
    const TRootMountNode root = MakeRoot({"/A/B/C", "/D"});
    TTestProgress progress;
    EXPECT_TRUE(root.Find({}, "/", "*", kFindFolders, &progress));
    EXPECT_EQ(progress.Polls, 1) << "a probe ends at the first match";
    EXPECT_FALSE(root.Find({}, "/Z", "*", kFindFolders, &progress));
    progress.BreakAfter = 2;
    const auto items = make_var<std::vector<TQvResFindItem>>();
    EXPECT_THROW(root.Find(items, "/", "*", kFindFolders, &progress), TQvUserBreak);
}

TEST(RootMountNode, AnswersForTheWayToEachMountPoint)
{
    const TRootMountNode root = MakeRoot({"/A/B"});
    for (const char* folder : {"/", "", "/a", "/A/b"})
        EXPECT_EQ(root.ResourceExists(folder), kResFolder) << folder;
    EXPECT_EQ(root.ResourceExists("/B"), kResNothing);
    EXPECT_EQ(MakeRoot({}).ResourceExists("/"), kResNothing) << "nothing is mounted";

    TQvResAttrib attrib;
    attrib.Size = 77;
    ASSERT_TRUE(root.GetResourceAttr("", &attrib));
    EXPECT_EQ(attrib.Kind, kResFolder);
    EXPECT_EQ(attrib.Origin, kOriginRootNode);
    EXPECT_EQ(attrib.Size, 0u);
    EXPECT_TRUE(root.GetResourceAttr("/", &attrib));
    EXPECT_FALSE(root.GetResourceAttr("/B", &attrib));
    EXPECT_FALSE(root.GetResourceAttr("/", nullptr));
}

TEST(RootMountNode, RefusesEverythingElse)
{
    TRootMountNode root = MakeRoot({"/A/B"});
    EXPECT_FALSE(root.OpenResource("/A/x", kQvOpenCreate, kQvShareAll, 0));
    EXPECT_FALSE(root.OpenResourceMeta("/A/x", kQvOpenCreate, kQvShareAll));
    EXPECT_FALSE(root.CreateFolder("/C"));
    EXPECT_FALSE(root.DeleteFolder("/A"));
    EXPECT_FALSE(root.CopyResource("/A", "/C", nullptr));
    EXPECT_EQ(root.GetResourceFile("/A"), "");
    try {
        root.RenameFolderE("/A", "A");
        FAIL() << "no exception";
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(),
                  "This is not possible here: the folder only leads to mounted folders.");
    }
    try {
        root.CreateLockFile("/A", 1, true, "me");
        FAIL() << "no exception";
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(), "CreateLockFile shouldn't be invoked for TRootMountNode");
    }
}
} // namespace
