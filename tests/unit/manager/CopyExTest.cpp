#include <algorithm>

#include "ManagerFixtures.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using TIds = std::set<std::string>;

class CopyEx : public TAnyMountedTree
{
protected:
    bool Copy(const TIds& sources, const std::string& destination)
    {
        Failed.clear();
        Params.Failed = &Failed;
        Params.Sources = sources;
        Params.DestFolder = destination;
        return Manager.CopyResourceEx(Params);
    }

    TIds Failed;
    TResourceManager::TCopyResourceExParams Params;
};

QV_WITH_ANY_NODES(CopyEx);

TEST_P(CopyEx, LayoutFollowsTheCommonParent)
{
    const std::tuple<TIds, const char*, const char*> kRows[] = {
        // one source: the text before its last "/"
        {{"/A/sub"}, "/B", "sub/1= sub/in/2="},
        {{"/A/sub/"}, "/B", "1= in/2="}, // is its own parent
        {{"/A/x"}, "/B/new/er/", "new/er/x="},
        // several: the last "/" before they differ
        {{"/A/x", "/A/sub/"}, "/B", "sub/1= sub/in/2= x="},
        {{"/A/sub/1", "/A/subway/3"}, "/B", "sub/1= subway/3="},
        {{"/A/sub/", "/A/sub/1"}, "/B", "1= in/2="},
        // ids that only share the first "/" keep their whole text; mounts are crossed
        {{"/A/in/", "/V/"}, "/B", "A/in/M/4= V/D/"},
        // a missing source is left out; a source that is a link is listed
        {{"/A/none", "/A/x", "no id"}, "/B", "A/x="},
        {{"/A/link"}, "/B", "link/4="},
    };
    for (const auto& [sources, destination, expected] : kRows) {
        Fill("A/x= A/xy= A/sub/1= A/sub/in/2= A/subway/3= A/in/M/ A/link>../M "
             "mounted_through_a_link/4= M>mounted_through_a_link B/ D/");
        if (sources.count("/A/link") != 0 && !OnDisk("A"))
            continue;
        EXPECT_TRUE(Copy(sources, destination)) << expected;
        EXPECT_EQ(Tree("B"), expected);
    }
}

TEST_P(CopyEx, RefusesVirtualDestinationsAndTheCommonParent)
{
    Write("A/x", "content");
    for (const char* virtualFolder : {"/", "/V", "/V/", ""})
        EXPECT_FALSE(Copy({"/V/D"}, virtualFolder)) << virtualFolder;
    EXPECT_TRUE(Failed.empty()) << "nothing is done, nothing is noted";
    EXPECT_STREQ(Thrown([this] { Copy({"/A/x"}, "/A"); }).what(),
                 "The destination folder is the parent folder of the sources.");
    Params.OverwriteDefault = true;
    EXPECT_TRUE(Copy({"/A/x"}, "/A/")) << "is compared as written";
    EXPECT_EQ(Content("A/x"), "content");
}

TEST_P(CopyEx, ListsFailuresAndNotSkippedResources)
{
    Fill("A/1=new A/2=new A/file=new A/folder/in=new A/bad:name=new A/link>folder "
         "B/1=old B/2=old B/file/is_a_folder=old B/folder=is_a_file");
    EXPECT_TRUE(Copy({"/A/1", "/A/2"}, "/B")) << "a skipped resource is no failure";
    EXPECT_EQ(Content("B/1"), "old");
    Params.OverwriteCallback = [](const std::string& id, void*) { return id == "/B/2"; };
    Params.OverwriteDefault = true; // the callback wins
    EXPECT_FALSE(Copy({"/A/"}, "/B"));
    TIds failed = {"/A/bad:name", "/A/file", "/A/folder", "/A/folder/in"};
    if (OnDisk("A"))
        failed.insert("/A/link");
    EXPECT_EQ(Failed, failed);
    EXPECT_EQ(Tree("B"), "1=old 2=new file/is_a_folder=old folder=is_a_file");
    Params.OverwriteCallback = nullptr;
    EXPECT_TRUE(Copy({"/A/1", "/A/2"}, "/B"));
    EXPECT_EQ(Content("B/1"), "new");
    EXPECT_FALSE(Copy({"/A/1"}, "/Z")) << "nothing is mounted there";
    Params.Failed = nullptr;
    EXPECT_FALSE(Manager.CopyResourceEx(Params));
}

TEST_P(CopyEx, SidecarsAreCopiedAlsoThoseThatTheCopyAdds)
{
    Fill("A/f=1 A/f.meta=m A/z/f=2 A/z/g=3");
    EXPECT_TRUE(Copy({"/A"}, "/B"));
    EXPECT_EQ(Tree("B"), "A/f=1 A/f.meta=m A/z/f=2 A/z/g=3");
    Params.OverwriteDefault = true;
    EXPECT_TRUE(Copy({"/A/"}, "/A/z")) << "one that is listed without a sidecar gets one";
    EXPECT_EQ(Tree("A/z"), "f=1 f.meta=m g=3 z/f=1 z/f.meta=m z/g=3");
}

TEST_P(CopyEx, ADeletedParentIsMadeAgain)
{
    Fill("A/f/1= A/f/2= B/f/2=");
    Params.CallbackContext = &Manager;
    Params.OverwriteCallback = [](const std::string&, void* context) {
        return static_cast<TResourceManager*>(context)->ClearFolder("/B", nullptr);
    };
    EXPECT_TRUE(Copy({"/A/f/1", "/A/f/2"}, "/B/f"));
    EXPECT_EQ(Tree("B"), "f/2=");
}

TEST_P(CopyEx, WhatAnotherWritesIntoANewFolderIsKept)
{
    Fill("A/f/1=new A/f/2=new");
    Params.CallbackContext = &Manager;
    Params.CopiedCallback = [](const std::string& id, void* context) {
        auto* manager = static_cast<TResourceManager*>(context);
        if (id == "/B/f/")
            manager->OpenResource("/B/f/2", kQvOpenCreate, kQvShareAll, 0)->Write("other", 5);
    };
    EXPECT_TRUE(Copy({"/A/f"}, "/B"));
    EXPECT_EQ(Tree("B"), "f/1=new f/2=other");
}

TEST_P(CopyEx, ProgressIsWeightedByBytes)
{
    Write("A/1", std::string(1000000, 'x'));
    Write("A/2", std::string(1000001, 'x'));
    Write("A/3", std::string(1999999, 'x'));
    TTestProgress progress;
    Params.Progress = &progress;
    EXPECT_TRUE(Copy({"/A/1", "/A/2", "/A/3"}, "/B"));
    EXPECT_EQ(progress.Messages, (std::vector<std::string>{"/A/2", "/A/3"}))
        << "1000000 bytes are still copied without a range of their own";
    EXPECT_TRUE(std::is_sorted(progress.Positions.begin(), progress.Positions.end()));
    EXPECT_EQ(std::count(progress.Positions.begin(), progress.Positions.end(), 0.25), 1);
    EXPECT_EQ(progress.Positions.back(), 1);
    EXPECT_FALSE(progress.Started());

    Write("A/1", "");
    EXPECT_TRUE(Copy({"/A/1"}, "/B"));
    EXPECT_EQ(progress.Positions.back(), 0) << "no division by no bytes";
}

TEST_P(CopyEx, AUserBreakEndsTheCopy)
{
    struct TProgress : TTestProgress
    {
        bool Active() const override { return Shown && Started(); }
        bool Shown = true;
    };
    // Shown or not; cancelled between two items, or during the large one.
    const std::tuple<std::string, bool, int, TIds> kRows[] = {
        {"B", true, 1, {}}, {"B", true, 3, {"/A/2"}}, {"A/B", false, 1, {"/A/2"}}};
    for (const auto& [folder, shown, breakAfter, failed] : kRows) {
        for (const std::string& name : {std::string("A/1"), std::string("A/3"), folder + "/2"})
            Write(name, "old");
        Write("A/2", std::string(20 << 20, 'x'));
        TProgress progress;
        progress.Shown = shown;
        progress.BreakAfter = breakAfter;
        Params.Progress = &progress;
        Params.OverwriteDefault = true;
        EXPECT_FALSE(Copy({"/A/1", "/A/2", "/A/3"}, '/' + folder));
        EXPECT_EQ(Failed, failed) << folder << breakAfter;
        EXPECT_EQ(Tree(folder), "1=old 2=old") << folder << breakAfter;
        EXPECT_FALSE(progress.Started());
    }
}
} // namespace
