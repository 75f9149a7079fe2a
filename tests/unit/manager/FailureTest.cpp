// What operations answer, and what LastFailure has, with links and with two ids of one file.
#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>

#include "ManagerFixtures.h"
#include "QvStd/FileStream.h"
#include "QvStd/Files.h"
#include "support/ChildProcess.h"
#include "support/Thrown.h"

namespace
{
class Failures : public TMountedTree
{
protected:
    /// A command, what it answers, and the failure that it leaves.
    struct TRow
    {
        const char* Command;
        bool Result;
        int Error;
        const char* Id;
    };
    void Expect(const std::vector<TRow>& rows)
    {
        for (const TRow& row : rows) {
            EXPECT_EQ(DoCommand(Manager, row.Command), row.Result) << row.Command;
            EXPECT_EQ(TResourceManager::LastFailure().Error, row.Error) << row.Command;
            EXPECT_EQ(TResourceManager::LastFailure().Id, row.Id) << row.Command;
        }
    }
};

TEST_F(Failures, NothingIsDoneThroughALinkToAFolder)
{
    MakeTree(Temp.Path(), "A/f/x= A/x= A/link>../out A/gone>none out/kept= out/own/ D/ B/ M/");
    const std::string before = TreeOf(Temp.Path());
    Manager.MountFileNodeE("/L", Temp / "A/link", false);
    Manager.MountFileNodeE("/Own", Temp / "out/own", false);
    Expect({{"clear /A/link", false, ENOTDIR, "/A/link"},
            {"delete /A/link", false, EISDIR, "/A/link"},
            {"delete /A/gone", false, ENOENT, "/A/gone"}, // leads to nothing
            {"move /A/link /A/y", false, EISDIR, "/A/link"},
            {"move /A/x /A/link", false, EISDIR, "/A/link"},
            {"move /A/f /A/g", false, EISDIR, "/A/f"},
            {"move /L /A/y", false, EISDIR, "/L"},
            {"move /A/x /L", false, EISDIR, "/L"},
            {"remove /A/link", false, EBUSY, "/A/link"}, // the folder of another mount
            {"remove /L/own", false, EBUSY, "/L/own"}}); // by another way
    EXPECT_THROW(Manager.RenameFolderE("/L/own", "y"), TQvMessage);
    EXPECT_EQ(TreeOf(Temp.Path()), before);
    EXPECT_THROW(Manager.RenameFolderE("/A/f/..", "y"), TQvMessage);
    Manager.UnmountNodeE("/L", false);
    EXPECT_TRUE(Manager.DeleteFolder("/A/link", true, nullptr)) << "only the link goes";
    EXPECT_EQ(ReadFile(Temp / "out/kept"), "");
}

TEST_F(Failures, LinksToFilesStayAndOneFileIsNotLost)
{
    Manager.MountFileNodeE("/Same", Temp / "A", false);
    ExpectTrees({{"copy /A/x /B/l", true, "A/x=1 B/l>y B/y=2", "A/x=1 B/l>y B/y=1"},
                 {"copy /A/x /B/l", true, "A/x=1 B/l>y", "A/x=1 B/l>y B/y=1"},
                 {"move /A/x /A/l", true, "A/x=1 A/x.meta=m A/l>../B/y B/y=2 B/y.meta=n",
                  "A/l>../B/y A/l.meta=m B/y=1 B/y.meta=n"},
                 // onto a link to its own sidecar
                 {"copy /A/x /A/l", false, "A/l>x.meta A/x=1 A/x.meta=m"},
                 {"move /A/x /Same/l", false, "A/l>x.meta A/x=1 A/x.meta=m"}});
    MakeTree(Temp.Path(), "A/h=linked A/h.meta=m B/");
    ASSERT_EQ(link((Temp / "A/h").c_str(), (Temp / "A/i").c_str()), 0);
    EXPECT_TRUE(Manager.CopyResource("/A/h", "/A/i", nullptr)) << "nothing to do";
    EXPECT_TRUE(Manager.RenMovResource("/A/h", "/A/i", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/i=linked A/i.meta=m B/");
    // Names that differ in letter case only are two entries here, and no change of the spelling.
    ASSERT_EQ(link((Temp / "A/i").c_str(), (Temp / "A/I").c_str()), 0);
    EXPECT_TRUE(Manager.RenMovResource("/A/i", "/A/I", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/I=linked A/I.meta=m B/");
    MakeTree(Temp.Path(), "A/q=1 A/Q=2 A/p/q=3 A/P/q=4 A/k>K A/K=5");
    const std::string before = TreeOf(Temp.Path());
    for (const auto& [source, target] : {std::pair("/A/q", "/A/Q"), {"/A/p/q", "/A/P/q"}}) {
        const TQvFileStream alone(TQvPath(Temp / target), kQvOpenWrite, 0);
        EXPECT_FALSE(Manager.RenMovResource(source, target, nullptr)) << target;
    }
    EXPECT_FALSE(Manager.RenMovResource("/A/k", "/A/K", nullptr)) << "it would lead to itself";
    EXPECT_EQ(TreeOf(Temp.Path()), before);

    const std::string longName = "/B/" + std::string(252, 'n');
    Temp.Write(longName, "old");
    MakeTree(Temp / "A", "x=1 x.meta=m");
    EXPECT_FALSE(Manager.CopyResource("/A/x", longName, nullptr));
    EXPECT_EQ(TResourceManager::LastFailure().Error, ENAMETOOLONG);
    EXPECT_EQ(Content(longName), "old") << "refused before the content is touched";
}

TEST_F(Failures, WhatABindMountShowsTwiceIsNotLost)
{
    MakeTree(Temp.Path(), "A/f/x=1 A/f/x.meta=m A/g/ A/y=2 A/z= B/");
    EXPECT_TRUE(PassesInChild([this] {
        const auto bind = [this](const char* from, const char* to) {
            return mount((Temp / from).c_str(), (Temp / to).c_str(), nullptr, MS_BIND, nullptr);
        };
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return; // only an administrator can do that
        ASSERT_EQ(bind("A/f", "A/g") + bind("A/f", "B") + bind("A/f/x", "A/z"), 0);
        Expect({{"move /A/f/x /A/g/x", false, EINVAL, "/A/g/x"},
                {"move /A/f/x /B/x", false, EINVAL, "/B/x"},
                {"move /A/f/x /A/z", false, EINVAL, "/A/z"},
                {"move /B/x /A/z", false, EINVAL, "/A/z"},
                {"copy /A/f/x /A/g/x", true, 0, ""},
                {"copy /A/f/x /B/x", true, 0, ""},
                {"copy /A/z /B/x", true, 0, ""},
                {"move /A/y /A/z", false, EBUSY, "/A/y"},
                {"copy /A/y /A/z", true, 0, ""}, // cannot be replaced, but written
                {"delete /A/z", false, EBUSY, "/A/z"}});
        EXPECT_EQ(TreeOf(Temp / "A/f"), "x=2 x.meta=m");
    }));
}

TEST_F(Failures, AResourceBeingMovedKeepsItsSidecar)
{
    MakeTree(Temp.Path(), "A/x=1 A/x.meta=m");
    const TQvFileStream mover(TQvPath(Temp / "A/x.meta"), kQvOpenRead, kQvShareAll);
    ASSERT_EQ(rename((Temp / "A/x").c_str(), (Temp / "A/y").c_str()), 0);
    EXPECT_FALSE(*Manager.OpenResource("/A/x", kQvOpenRead, kQvShareAll, 0));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/x.meta=m A/y=1");
    EXPECT_FALSE(*Manager.CreateLockFile("/A", 0, true, "me"));
    MakeTree(Temp.Path(), "A/f/ A/f.meta=kept");
    EXPECT_FALSE(*Manager.CreateLockFile("/A/f", 0, true, "me"));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/f/ A/f.meta=kept");
}

TEST_F(Failures, FoldersDeeperThanAPathAreRemovedAndTheirCopyFails)
{
    int folder = open((Temp / "A").c_str(), O_RDONLY);
    const std::string name(20, 'd');
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0777), 0);
        const int parent = std::exchange(folder, openat(folder, name.c_str(), O_RDONLY));
        close(parent);
    }
    close(folder);
    EXPECT_TRUE(PassesInChild([this] {
        const rlimit limit = {64, 64}; // fewer descriptors than levels
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        std::set<std::string> failed;
        TResourceManager::TCopyResourceExParams params;
        params.Sources = {"/A/"};
        params.DestFolder = "/B";
        params.Failed = &failed;
        EXPECT_FALSE(Manager.CopyResourceEx(params));
        EXPECT_EQ(TResourceManager::LastFailure().Error, ENAMETOOLONG);
        ASSERT_EQ(failed.size(), 1u);
        EXPECT_GT(failed.begin()->size(), 3000u);
        EXPECT_TRUE(QvRemoveDirectoryEx(Temp / "A", true, false, nullptr));
    }));
    EXPECT_FALSE(Exists(Temp / "A"));
}
} // namespace
