#include <cerrno>
#include <chrono>
#include <unistd.h>
#include <utility>

#include "ManagerFixtures.h"
#include "QvStd/FileStream.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using Resources = TAnyMountedTree;
QV_WITH_ANY_NODES(Resources);

TEST_P(Resources, OpenNamesWhatFailed)
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
    Write("A/x", "1");
    EXPECT_TRUE(*Manager.OpenResourceE("/A/x", kQvOpenRead, kQvShareAll, 0));
}

TEST_P(Resources, ExistsNeverThrows)
{
    Write("A/x", "1");
    EXPECT_EQ(Manager.ResourceExists("/a/x"), kResResource);
    EXPECT_EQ(Manager.ResourceExists("/A///"), kResFolder);
    EXPECT_EQ(Manager.ResourceExists("/"), kResFolder);
    for (const char* id : {"", "A/B", "/A/*", "/A//x", "/A\\x", "/A/no"})
        EXPECT_EQ(Manager.ResourceExists(id), kResNothing) << id;
}

TEST_P(Resources, CopiedAndMovedBetweenNodes)
{
    Mount("/Same", "A");
    ExpectTrees({{"copy /A/x /B/y", true, "A/x=1 B/y.meta=m", "A/x=1 B/y=1"}, // a stale one goes
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
                 {"move /A/x /Same/x.meta", false, "A/x=1"}, // its own sidecar
                 // inside one node; "/B/y" stands for both kinds of target
                 {"copy /A/x /A/x", true, "A/x=1 A/x.meta=m"},
                 {"copy /A/x /A/x.meta", false, "A/x=1 A/x.meta=m"},
                 {"copy /A/x.meta /A/x", false, "A/x=1 A/x.meta=m"},
                 {"copymeta /A/x /A/y", false, "A/x=1 A/x.meta=m"}, // not to what is missing
                 {"copymeta /A/x /A/y", false, "A/x=1 A/y=2 A/y.meta=m"},
                 {"move /A/x /A/y", false, "A/y=2"},
                 {"move /A/x /A/x.meta", false, "A/x=1 A/x.meta=m"},
                 {"move /A/x.meta /A/x", false, "A/x=1 A/x.meta=m"},
                 {"move /A/x /A/y", false, "A/x>y A/y=2"}, // the link would lead to itself
                 {"move /A/x /B/y", true, "A/x=1 A/x.meta=m B/y=2", "A/ B/y=1 B/y.meta=m"},
                 {"move /A/x /A/y", false, "A/x=1 A/x.meta=m A/y.meta/"},
                 {"copy /A/x /B/y", false, "A/x=1 A/x.meta=m B/y=2 B/y.meta/"},
                 {"move /A/x /A/y", true, "A/x=1 A/x.meta/", "A/x.meta/ A/y=1"},
                 {"delete /A/x", false, "A/x.meta=m"},
                 {"delete /A/x", true, "A/x=1 A/x.meta/", "A/x.meta/"}}); // no sidecar
    Fill("A/x=1");
    EXPECT_FALSE(Manager.CopyResourceMeta("/A/x", "/B/none"));
    EXPECT_EQ(TResourceManager::LastFailure().Id, "/B/none");
    if (!IsAllOnDisk())
        return;
    // a hard link is another entry of one file: the source goes
    MakeTree(Temp.Path(), "A/h=linked B/");
    ASSERT_EQ(link((Temp / "A/h").c_str(), (Temp / "B/h").c_str()), 0);
    EXPECT_TRUE(Manager.RenMovResource("/A/h", "/B/h", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "A/ B/h=linked");
}

TEST_P(Resources, TheUpdateTimeIsCopied)
{
    const auto yesterday = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
    std::filesystem::last_write_time(Temp.Write("A/x", "1"), yesterday);
    Load();
    TQvResAttrib source, copy;
    EXPECT_TRUE(Manager.CopyResource("/A/x", "/B/x", nullptr));
    EXPECT_TRUE(Manager.GetResourceAttr("/A/x", &source));
    EXPECT_TRUE(Manager.GetResourceAttr("/B/x", &copy));
    EXPECT_EQ(copy.UpdateTime, source.UpdateTime);
}

TEST_P(Resources, AMoveDeletesNothingThatWasWrittenMeanwhile)
{
    struct TWriter : TTestProgress
    {
        bool Poll() override
        {
            if (std::exchange(IsDone, true))
                return false;
            const auto stream =
                OfSidecar ? Manager->OpenResourceMeta("/A/x", kQvOpenWriteOrCreate, kQvShareAll)
                          : Manager->OpenResource("/A/x", kQvOpenWriteOrCreate, kQvShareAll, 0);
            stream->setPosition(stream->getSize());
            stream->Write("later", 5);
            return false;
        }
        TResourceManager* Manager = nullptr;
        bool OfSidecar = false;
        bool IsDone = false;
    };
    for (const bool ofSidecar : {false, true}) {
        Fill("A/x=1 B/");
        TWriter writer;
        writer.Manager = &Manager;
        writer.OfSidecar = ofSidecar;
        EXPECT_FALSE(Manager.RenMovResource("/A/x", "/B/x", &writer)) << ofSidecar;
        EXPECT_EQ(TResourceManager::LastFailure().text(), "/A/x: Device or resource busy");
        EXPECT_EQ(Tree("A"), ofSidecar ? "x=1 x.meta=later" : "x=1later");
    }
}

TEST_P(Resources, ASidecarThatFailsIsReportedAndTheSourceKept)
{
    if (!OnDisk("B"))
        return; // memory has no share modes
    Fill("A/x=1 A/x.meta=m B/y.meta=");
    const TQvFileStream alone(TQvPath(Temp / "B/y.meta"), kQvOpenWrite, 0);
    for (const char* command : {"copy /A/x /B/y", "move /A/x /B/y"}) {
        EXPECT_EQ(DoCommand(Manager, command), command[0] == 'c');
        EXPECT_EQ(TResourceManager::LastFailure().text(), "/B/y: Permission denied") << command;
        EXPECT_TRUE(TResourceManager::LastFailure().OfMetadata);
        EXPECT_EQ(Tree(), "A/x=1 A/x.meta=m B/y=1 B/y.meta=") << command;
    }
    EXPECT_TRUE(Manager.DeleteResource("/B/y"));
    EXPECT_EQ(TResourceManager::LastFailure().text(), "") << "a success clears it";
    if (!OnDisk("A"))
        return;
    const TQvFileStream near(TQvPath(Temp.Write("A/y.meta", "")), kQvOpenWrite, 0);
    EXPECT_FALSE(Manager.CopyResource("/A/x", "/A/y", nullptr)) << "inside one node";
}

TEST_P(Resources, FailedMoveLeavesNoHalfTarget)
{
    Write("A/big", std::string(20 << 20, 'x'));
    Write("B/old", "old");
    TTestProgress progress;
    progress.BreakAfter = 1;
    EXPECT_FALSE(Manager.RenMovResource("/A/big", "/B/new", &progress));
    EXPECT_EQ(TResourceManager::LastFailure().text(), "/A/big: Operation canceled");
    EXPECT_EQ(Tree("B"), "old=old");
    EXPECT_EQ(NamesIn(Temp / "A"), (std::vector<std::string>{"big"}));
    EXPECT_TRUE(OnDisk("A") || Manager.CopyResource("/A/big", "/A/big", &progress))
        << "nothing is read";
    if (!OnDisk("B"))
        return; // memory has no share modes
    const TQvFileStream alone(TQvPath(Temp / "B/old"), kQvOpenWrite, 0);
    Write("A/small", "1");
    for (const char* source : {"/A/big", "/A/small"})
        EXPECT_FALSE(Manager.CopyResource(source, "/B/old", nullptr)) << "another has it open";
    EXPECT_EQ(Tree("B"), "old=old");
}

TEST_P(Resources, OnlyDiskNodesHaveFilesAndLocks)
{
    EXPECT_EQ(Manager.GetResourceFile("/A/x", false), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), "");
    const std::string file = OnDisk("A") ? Temp / "A/x" : "";
    EXPECT_EQ(Manager.GetResourceFile("/A/x", true), file);
    EXPECT_EQ(Content("A/x"), "");
    EXPECT_EQ(Manager.GetResourceFileFolder("/A/x"), QvExtractResPath(file));
    EXPECT_EQ(Manager.GetResourceFile("/A", true), "");
    const auto lock = Manager.CreateLockFile("/A/x", 100, true, "me");
    EXPECT_EQ(static_cast<bool>(*lock), OnDisk("A"));
    EXPECT_EQ(TResourceManager::LastFailure().Error, OnDisk("A") ? 0 : ENOTSUP);
}
} // namespace
