// What processes that share a storage do to each other.
#include "JournalFixture.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>

#include <unistd.h>

#include "QvStd/Clock.h"
#include "support/ChildProcess.h"

namespace
{
std::string Id(int process, int number)
{
    return "/P" + std::to_string(process) + "/R" + std::to_string(number);
}

using TChildren = std::vector<std::unique_ptr<TChildProcess>>;

/// Starts `body` with 0 to `count` - 1, each in a process of its own.
TChildren Start(int count, const std::function<bool(int)>& body)
{
    TChildren children;
    for (int i = 0; i < count; ++i)
        children.push_back(std::make_unique<TChildProcess>([&body, i] { return body(i) ? 0 : 1; }));
    return children;
}

void ExpectDone(const TChildren& children)
{
    for (const auto& child : children)
        EXPECT_EQ(child->Wait(), 0);
}

// Writers in C++ and in Python, of which one reaches the storage by another path, and so by another
// lock file; two processes that rewrite it; one that deletes the lock file again and again.
TEST_F(TStorageTest, WritersLoseNothingWhateverHappensToTheirLock)
{
    constexpr int kRecords = 200;
    constexpr int kOthers = 50;
    constexpr int kPython = 8;
    Storage.Settings = {100000, 64, "PC"};
    ASSERT_TRUE(Storage.LoadDir());
    std::filesystem::create_directory_symlink("s", Temp / "other");
    const TChildren background = Start(3, [this](int process) {
        if (process == 1)
            Storage.Folder = Temp / "other";
        // A rewrite that meets another one, or a replaced lock, is refused.
        for (int done = 0;; QvSleep(3))
            if (process == 2)
                unlink(Lock().c_str());
            else if ((done += Storage.MergeDir() ? 1 : 0) == 10)
                Temp.Write("merged" + std::to_string(process), "");
        return true;
    });
    const auto python = [this](const std::string& arguments) {
        return std::system(
                   ("python3 " JOURNAL_PEER " '" + Storage.Folder + "' " + arguments).c_str()) == 0;
    };
    ExpectDone(Start(kPython + 1, [&](int process) {
        if (process == kPython)
            return python("append " + std::to_string(kOthers));
        const bool isOther = process == 0;
        if (isOther)
            Storage.Folder = Temp / "other";
        bool done = true;
        for (int i = 0; done && i < (isOther ? kOthers : kRecords); ++i)
            done = Storage.AddResourceRecord(Id(process, i), false);
        return done;
    }));
    ASSERT_FALSE(HasFailure()) << "an append was refused";
    EXPECT_TRUE(WaitUntil([this] { return Exists(Temp / "merged0"); })) << "nothing was rewritten";
    for (const auto& child : background) {
        child->Kill();
        child->Wait();
    }
    ASSERT_TRUE(Storage.DoLoadDir());
    for (int process = 0; process <= kPython; ++process)
        for (int i = 0; i < (process == 0 || process == kPython ? kOthers : kRecords); ++i)
            ASSERT_EQ(Storage.Dir().count(Id(process, i)), 1u) << Id(process, i);
    // A reader in another language finds the same.
    std::string expected;
    for (const auto& [id, name] : Storage.Dir())
        expected += id + "\t" + name + "\n";
    ASSERT_TRUE(python("read >'" + Temp / "read" + "'"));
    EXPECT_TRUE(ReadFile(Temp / "read") == expected);
    EXPECT_FALSE(Exists(Damaged()));
}

TEST_F(TStorageTest, AKilledWriterBreaksAndLosesNothing)
{
    ASSERT_TRUE(Storage.LoadDir());
    std::mt19937 random(5);
    std::vector<std::string> acknowledged;
    // More rounds on a machine that is so busy that the kills come too soon to hit anything.
    for (int round = 0; round < 200 || (round < 4000 && acknowledged.empty()); ++round) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        TChildProcess appender([&] {
            for (int i = 0;; ++i)
                if ((i % 2 == 1 && !Storage.MergeDir()) ||
                    !Storage.AddResourceRecord(Id(round, i), false) ||
                    write(ends[1], &i, sizeof i) != sizeof i)
                    return 1;
        });
        close(ends[1]);
        usleep(static_cast<useconds_t>(random() % 6000));
        appender.Kill();
        EXPECT_EQ(appender.Wait(), -SIGKILL);
        for (int i; read(ends[0], &i, sizeof i) == sizeof i;)
            acknowledged.push_back(Id(round, i));
        close(ends[0]);
        ASSERT_TRUE(Storage.DoLoadDir());
        for (const std::string& id : acknowledged)
            ASSERT_EQ(Storage.Dir().count(id), 1u) << id;
    }
    EXPECT_GT(acknowledged.size(), 0u) << "no kill came after a change";
}

TEST_F(TStorageTest, ANewJournalIsSyncedWithItsFolder)
{
    if (Storage.Folder = Temp / "traced"; std::getenv("QV_TRACED") != nullptr) {
        Storage.Folder = std::getenv("QV_TRACED");
        ASSERT_TRUE(Storage.AddResourceRecord("/a", false));
        return;
    }
    Temp.MakeFolder("traced");
    const std::string trace = Temp / "trace";
    const std::string call =
        "ASAN_OPTIONS=detect_leaks=0 QV_TRACED=" + Storage.Folder + " strace -yo " + trace +
        " -e trace=write,fdatasync,fsync /proc/" + std::to_string(getpid()) +
        "/exe --gtest_filter=*ANewJournalIsSynced* >/dev/null && grep -F traced " + trace +
        " | sed 's/(.*//' >" + trace + ".calls";
    ASSERT_EQ(std::system(call.c_str()), 0);
    EXPECT_EQ(ReadFile(trace + ".calls"), "write\nfdatasync\nfsync\n");
}

TEST_F(TStorageTest, SeveralRepairABrokenJournalAtOnce)
{
    for (int i = 0; i < 300; ++i)
        WriteContent("file" + std::to_string(i));
    // Long enough to read that all of them hold the lock when they find out.
    std::string broken = kJournalHead;
    for (int i = 0; i < 50000; ++i)
        broken += "/RECORD" + std::to_string(i) + "?record\r\n";
    for (int round = 0; round < 5; ++round) {
        WriteJournal(broken);
        ExpectDone(
            Start(4, [this](int) { return Storage.LoadDir() && Storage.Dir().size() == 300; }));
    }
}

TEST_F(TStorageTest, AFullDiskLeavesTheJournalAsItWas)
{
    ASSERT_TRUE(Storage.LoadDir() && Storage.AddResourceRecord("/a", false));
    const std::string whole = Journal();
    const auto add = [this] { return Storage.AddResourceRecord("/b", false); };
    const auto merge = [this] { return Storage.MergeDir(); };
    const auto load = [this] { return Storage.LoadDir(); };
    const std::tuple<const char*, std::function<bool()>, std::size_t, std::string> kRows[] = {
        {"AddResourceRecord", add, whole.size() + 3, ""},
        {"SaveDir", merge, 20, ""},
        {"SaveDir", load, 3, "/B?b\r\n"}};
    for (const auto& [name, operation, room, tail] : kRows) {
        WriteJournal(whole + tail);
        EXPECT_TRUE(PassesInChild([&, name = name, &operation = operation, room = room] {
            TLogCapture log;
            LimitFileSize(room);
            EXPECT_FALSE(operation());
            EXPECT_EQ(log.Entries.at(0).Shown,
                      "TResStorage::" + std::string(name) + "(): error writing storage (S)");
            EXPECT_EQ(Storage.Failure().Error(), EFBIG);
        })) << name;
        EXPECT_EQ(Journal(), whole + tail);
        EXPECT_EQ(NamesIn(Temp / "s").size(), 2u);
    }
}
} // namespace
