#include <gtest/gtest.h>

#include <algorithm>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
using TIds = std::set<std::string>;

/// "/A" (with "/A/in/M" mounted inside it), "/B", and "/V/deep" below a virtual folder.
class CopyEx : public testing::Test
{
protected:
    CopyEx()
    {
        Manager.MountFileNodeE("/A", Temp.MakeFolder("a"), false);
        Manager.MountFileNodeE("/A/in/M", Temp.MakeFolder("m"), false);
        Manager.MountFileNodeE("/B", Temp.MakeFolder("b"), false);
        Manager.MountFileNodeE("/V/deep", Temp.MakeFolder("v"), false);
        Params.Failed = &Failed;
    }
    bool Copy(const TIds& sources, const std::string& destination)
    {
        Failed.clear();
        Params.Sources = sources;
        Params.DestFolder = destination;
        return Manager.CopyResourceEx(Params);
    }
    /// What lies below "/B", folders with a trailing "/".
    TIds Copied() const
    {
        const auto items = make_var<std::vector<TQvResFindItem>>();
        Manager.Find(items, "/B", "*", 7, nullptr);
        TIds ids;
        for (const TQvResFindItem& item : *items)
            ids.insert(item.Id.substr(3) + (item.Attrib.Kind == kResFolder ? "/" : ""));
        return ids;
    }
    std::string Disk(const std::string& name) const { return Temp / name; }

    TTempFolder Temp;
    TResourceManager Manager;
    TIds Failed;
    TResourceManager::TCopyResourceExParams Params;
};

TEST_F(CopyEx, LayoutFollowsTheCommonParent)
{
    for (const char* name : {"a/x", "a/xy", "a/sub/1", "a/sub/in/2", "a/subway/3", "m/4", "v/5"})
        Temp.Write(name, name);
    Temp.MakeFolder("a/in/M");
    const struct
    {
        TIds Sources;
        const char* Destination;
        TIds Expected;
    } kRows[] = {
        // one source: the text before its last "/"
        {{"/A/x"}, "/B", {"x"}},
        {{"/A/sub"}, "/B", {"sub/", "sub/1", "sub/in/", "sub/in/2"}},
        {{"/A/sub/"}, "/B", {"1", "in/", "in/2"}}, // is its own parent
        {{"/A/sub/"}, "/B/new/er/", {"new/", "new/er/", "new/er/1", "new/er/in/", "new/er/in/2"}},
        // several: the nearest "/" that both of them have before they differ
        {{"/A/x", "/A/sub/"}, "/B", {"x", "sub/", "sub/1", "sub/in/", "sub/in/2"}},
        {{"/A/x", "/A/xy"}, "/B", {"x", "xy"}},
        {{"/A/sub/1", "/A/subway/3"}, "/B", {"sub/", "sub/1", "subway/", "subway/3"}},
        {{"/A/sub/", "/A/sub/1"}, "/B", {"1", "in/", "in/2"}},
        // ids that only share the first "/" keep their whole text; mounts are crossed
        {{"/A/x", "/V/"}, "/B", {"A/", "A/x", "V/", "V/deep/", "V/deep/5"}},
        {{"/A/in/"}, "/B", {"M/", "M/4"}},
        // what is missing is left out
        {{"/A/none", "/A/x", "no id"}, "/B", {"A/", "A/x"}},
        {{}, "/B", {}},
    };
    for (const auto& row : kRows) {
        EXPECT_TRUE(Copy(row.Sources, row.Destination));
        EXPECT_EQ(Copied(), row.Expected) << *row.Sources.begin();
        EXPECT_TRUE(Failed.empty());
        Manager.ClearFolder("/B", nullptr);
    }
}

TEST_F(CopyEx, RefusedDestinations)
{
    Temp.Write("a/x", "content");
    for (const char* virtualFolder : {"/", "/V", "/V/", ""}) {
        EXPECT_FALSE(Copy({"/A/x"}, virtualFolder)) << virtualFolder;
        EXPECT_TRUE(Failed.empty()) << "nothing is done, nothing is noted";
    }
    try {
        Copy({"/A/x"}, "/A");
        ADD_FAILURE();
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(), "The destination folder is the folder that the sources are in.");
    }
    Params.OverwriteDefault = true;
    EXPECT_TRUE(Copy({"/A/x"}, "/A/")) << "is compared as written";
    EXPECT_EQ(ReadFile(Disk("a/x")), "content");
    EXPECT_THROW(Copy({"/A/x"}, "B"), TQvMessage);
}

TEST_F(CopyEx, OverwriteAnswers)
{
    for (const char* name : {"a/1", "a/2", "a/f/3"})
        Temp.Write(name, "new");
    for (const char* name : {"b/1", "b/2", "b/f/other"})
        Temp.Write(name, "old");
    EXPECT_TRUE(Copy({"/A/"}, "/B")) << "a skipped resource is no failure";
    EXPECT_EQ(ReadFile(Disk("b/1")), "old");
    EXPECT_EQ(ReadFile(Disk("b/f/3")), "new");

    std::vector<std::string> asked;
    Params.CallbackContext = &asked;
    Params.OverwriteCallback = [](const std::string& id, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back(id);
        return id == "/B/2";
    };
    Params.OverwriteDefault = true; // the callback wins
    EXPECT_TRUE(Copy({"/A/1", "/A/2"}, "/B"));
    EXPECT_EQ(asked, (std::vector<std::string>{"/B/1", "/B/2"}));
    EXPECT_EQ(ReadFile(Disk("b/1")), "old");
    EXPECT_EQ(ReadFile(Disk("b/2")), "new");
    Params.OverwriteCallback = nullptr;
    EXPECT_TRUE(Copy({"/A/1", "/A/2"}, "/B"));
    EXPECT_EQ(ReadFile(Disk("b/1")), "new");
    EXPECT_EQ(ReadFile(Disk("b/f/other")), "old");
}

TEST_F(CopyEx, FailuresAreNotedAndTheRestIsCopied)
{
    for (const char* name : {"a/file", "a/folder/in", "a/good", "a/bad:name", "a/z"})
        Temp.Write(name, name);
    Temp.Write("b/file/is a folder", "");
    Temp.Write("b/folder", "is a file");
    EXPECT_FALSE(Copy({"/A/"}, "/B"));
    EXPECT_EQ(Failed, (TIds{"/A/bad:name", "/A/file", "/A/folder", "/A/folder/in"}));
    EXPECT_EQ(Copied(), (TIds{"file/", "file/is a folder", "folder", "good", "z"}));
    EXPECT_EQ(ReadFile(Disk("b/folder")), "is a file");
    Params.Failed = nullptr;
    EXPECT_FALSE(Copy({"/A/"}, "/B"));
    EXPECT_FALSE(Copy({"/A/good"}, "/Z")) << "nothing is mounted there";
}

TEST_F(CopyEx, AParentThatGoesIsMadeAgain)
{
    for (const char* name : {"a/f/1", "a/f/2", "a/f/3"})
        Temp.Write(name, "new");
    Temp.Write("b/f/2", "old");
    Params.CallbackContext = &Manager;
    Params.OverwriteCallback = [](const std::string&, void* context) {
        return static_cast<TResourceManager*>(context)->ClearFolder("/B", nullptr);
    };
    EXPECT_TRUE(Copy({"/A/f/1", "/A/f/2", "/A/f/3"}, "/B/f"));
    EXPECT_EQ(Copied(), (TIds{"f/", "f/2", "f/3"}));
}

TEST_F(CopyEx, ProgressIsWeightedByBytes)
{
    Temp.Write("a/1", std::string(1000000, 'x'));
    Temp.Write("a/2", std::string(1000001, 'x'));
    Temp.Write("a/3", std::string(1999999, 'x'));
    TTestProgress progress;
    Params.Progress = &progress;
    EXPECT_TRUE(Copy({"/A/1", "/A/2", "/A/3"}, "/B"));
    EXPECT_EQ(progress.Messages, (std::vector<std::string>{"/A/2", "/A/3"}))
        << "1000000 bytes are still copied without a range of their own";
    EXPECT_TRUE(std::is_sorted(progress.Positions.begin(), progress.Positions.end()));
    EXPECT_EQ(progress.Positions.front(), 0);
    EXPECT_EQ(std::count(progress.Positions.begin(), progress.Positions.end(), 0.25), 1);
    EXPECT_EQ(progress.Positions.back(), 1);
    EXPECT_EQ(progress.Starts, 1);
    EXPECT_FALSE(progress.Started());

    Temp.Write("a/e1", "");
    Temp.Write("a/e2", "");
    TTestProgress empty;
    Params.Progress = &empty;
    EXPECT_TRUE(Copy({"/A/e1", "/A/e2"}, "/B"));
    EXPECT_EQ(empty.Positions, (std::vector<double>{0, 0})) << "no division by no bytes";
}

TEST_F(CopyEx, AUserBreakEndsTheCopy)
{
    Temp.Write("a/1", "1");
    Temp.Write("a/2", std::string(20 << 20, 'x'));
    Temp.Write("a/3", "3");
    // Between two items, and during the large one: on one node and between two.
    const struct
    {
        const char* Destination;
        int BreakAfter;
        TIds Failed;
    } kRows[] = {{"/B", 1, {}}, {"/B", 3, {"/A/2"}}, {"/A/to", 1, {}}, {"/A/to", 3, {"/A/2"}}};
    for (const auto& row : kRows) {
        const std::string folder = row.Destination[1] == 'B' ? "b" : "a/to";
        Manager.CreateFolder(row.Destination);
        Manager.ClearFolder(row.Destination, nullptr);
        Temp.Write(folder + "/2", "old");
        TTestProgress progress;
        progress.BreakAfter = row.BreakAfter;
        Params.Progress = &progress;
        Params.OverwriteDefault = true;
        EXPECT_FALSE(Copy({"/A/1", "/A/2", "/A/3"}, row.Destination));
        EXPECT_EQ(Failed, row.Failed) << row.Destination << row.BreakAfter;
        EXPECT_EQ(NamesIn(Disk(folder)), (std::vector<std::string>{"1", "2"}));
        EXPECT_EQ(ReadFile(Disk(folder + "/2")), "old");
        EXPECT_FALSE(progress.Started());
    }
}
} // namespace
