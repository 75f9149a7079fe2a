#include <fstream>
#include <unistd.h>

#include "ManagerFixtures.h"
#include "QvStd/FileStream.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using Resources = TMountedTree;

TEST_F(Resources, OpenTellsWhatItCouldNotDo)
{
    const std::pair<const char*, std::vector<qvOpenMode>> kRows[] = {
        {"The resource \"%1%\" cannot be created.", {7, 11, 12}},
        {"The resource \"%1%\" cannot be opened for writing.", {8, 9}},
        {"The resource \"%1%\" cannot be opened for reading.", {10}},
        {"The resource \"%1%\" cannot be opened.", {0, 6, 13}},
    };
    for (const auto& [text, modes] : kRows)
        for (const qvOpenMode mode : modes)
            for (const char* id : {"/A/no/such", "/Z"}) {
                const TQvMessage error =
                    Thrown([&] { Manager.OpenResourceE(id, mode, kQvShareAll, 0); });
                EXPECT_EQ(error.text(), text) << id << " in mode " << mode;
                EXPECT_EQ(error.arguments(), std::vector<std::string>{id});
            }
    EXPECT_THROW(Manager.OpenResource("A", kQvOpenRead, kQvShareAll, 0), TQvMessage);
    Temp.Write("A/x", "1");
    EXPECT_TRUE(*Manager.OpenResourceE("/A/x", kQvOpenRead, kQvShareAll, 0));
}

TEST_F(Resources, ExistsNeverThrows)
{
    Temp.Write("A/x", "1");
    EXPECT_EQ(Manager.ResourceExists("/a/x"), kResResource);
    EXPECT_EQ(Manager.ResourceExists("/A///"), kResFolder);
    EXPECT_EQ(Manager.ResourceExists("/"), kResFolder);
    for (const char* id : {"", "A/B", "/A/*", "/A//x", "/A\\x", "/A/no"})
        EXPECT_EQ(Manager.ResourceExists(id), kResNothing) << id;
}

TEST_F(Resources, CopiedAndMovedBetweenNodes)
{
    Manager.MountFileNodeE("/Same", Temp / "A", false);
    ExpectTrees(Temp.Path(), Manager,
                {{"copy /A/x /B/y", true, "A/x=1 B/y.meta=m", "A/x=1 B/y=1"}, // a stale one goes
                 {"copymeta /A/x /B/y", false, "A/x=1 B/y=2 B/y.meta=m"},
                 {"copy /A/x /B/y", false, "A/ B/y=2"},
                 {"copy /A/x /B/y", false, "A/x=1 B/y/"},
                 {"copy /A/x /B/no/y", false, "A/x=1 B/"},
                 {"copy /A/x /Z", false, "A/x=1"}, // nothing is mounted there
                 {"move /A/x /B/no/y", false, "A/x=1 B/"},
                 {"move /B/x /A/x", false, "A/x>../B/x B/x=1"}, // the link would lead to nothing
                 {"copy /A/x /Same/x", true, "A/x=1 A/x.meta=m"},
                 {"copymeta /A/x /Same/x", true, "A/x=1 A/x.meta=m"},
                 {"move /A/x /Same/x", false, "A/x=1 A/x.meta=m"},
                 {"move /A/x /Same/x.meta", false, "A/x=1"}}); // its own sidecar

    // a hard link is another entry of one file: the source goes
    MakeTree(Temp.Path(), "A/h=linked B/");
    ASSERT_EQ(link((Temp / "A/h").c_str(), (Temp / "B/h").c_str()), 0);
    EXPECT_TRUE(Manager.RenMovResource("/A/h", "/B/h", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/ B/h=linked");
}

TEST_F(Resources, AMoveDeletesNothingThatWasWrittenMeanwhile)
{
    struct TWriter : TTestProgress
    {
        bool Poll() override
        {
            std::ofstream(File, std::ios::app) << "later";
            return false;
        }
        std::string File;
    } writer;
    for (const char* changed : {"A/x", "A/x.meta"}) {
        MakeTree(Temp.Path(), "A/x=1 B/");
        writer.File = Temp / changed;
        EXPECT_FALSE(Manager.RenMovResource("/A/x", "/B/x", &writer)) << changed;
        EXPECT_EQ(TResourceManager::LastFailure().text(), "/A/x: Device or resource busy");
        EXPECT_NE(Content(changed).find("later"), std::string::npos) << TreeOf(Temp.Path());
        EXPECT_EQ(Content("A/x").front(), '1');
    }
}

TEST_F(Resources, FailedMoveLeavesNoHalfTarget)
{
    Temp.Write("A/big", std::string(20 << 20, 'x'));
    Temp.Write("B/old", "old");
    TTestProgress progress;
    progress.BreakAfter = 1;
    EXPECT_FALSE(Manager.RenMovResource("/A/big", "/B/new", &progress));
    const TQvFileStream alone(TQvPath(Temp / "B/old"), kQvOpenWrite, 0);
    EXPECT_FALSE(Manager.CopyResource("/A/big", "/B/old", nullptr)) << "another has it open alone";
    EXPECT_EQ(TreeOf(Temp / "B"), "old=old");
    EXPECT_EQ(NamesIn(Temp / "A"), (std::vector<std::string>{"big"}));
}

TEST_F(Resources, DiskFileOfAResource)
{
    EXPECT_EQ(Manager.GetResourceFile("/A/x", false), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), "");
    EXPECT_EQ(Manager.GetResourceFile("/A/x", true), Temp / "A/x");
    EXPECT_EQ(Content("A/x"), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), Temp / "A/");
    EXPECT_EQ(Manager.GetResourceFile("/A", true), "");
    const auto lock = Manager.CreateLockFile("/A/x", 100, true, "me");
    EXPECT_TRUE(lock && *lock);
}
} // namespace
