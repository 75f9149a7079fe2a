// What processes that share a storage do to each other.
#include "StorageFixture.h"

#include <csignal>
#include <memory>
#include <random>

#include <sys/resource.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "support/ChildProcess.h"

namespace
{
std::string Id(int process, int number)
{
    return "/P" + std::to_string(process) + "/R" + std::to_string(number);
}

/// Runs `body` with 0 to `count` - 1, each in a process of its own, all at once.
void RunTogether(int count, const std::function<bool(int)>& body)
{
    std::vector<std::unique_ptr<TChildProcess>> children;
    for (int i = 0; i < count; ++i)
        children.push_back(std::make_unique<TChildProcess>([&body, i] { return body(i) ? 0 : 1; }));
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(children[static_cast<std::size_t>(i)]->Wait(), 0) << "process " << i;
}

TEST_F(TStorageTest, EightProcessesAppendWhileANinthMerges)
{
    constexpr int kWriters = 8;
    constexpr int kRecords = 500;
    Configure("StDirLockTimeout=100000\nStDirChangeCount2Merge=64\n");
    ASSERT_TRUE(Storage.LoadDir());
    RunTogether(kWriters + 1, [this](int process) {
        bool done = true;
        for (int i = 0; process < kWriters && done && i < kRecords; ++i)
            done = Storage.AddResourceRecord(Id(process, i), false);
        const std::uint32_t start = QvGetTickCount();
        while (process == kWriters && done && Storage.Dir().size() < kWriters * kRecords) {
            done = Storage.MergeDir() && Storage.DoLoadDir() && QvGetTickCount() - start < 90000;
            QvSleep(20);
        }
        return done;
    });
    ASSERT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Storage.Dir().size(), kWriters * kRecords + 0u);
    for (int record = 0; record < kWriters * kRecords; ++record)
        ASSERT_EQ(Storage.Dir().count(Id(record / kRecords, record % kRecords)), 1u) << record;
}

TEST_F(TStorageTest, TwoHundredKilledAppendersLoseNothing)
{
    ASSERT_TRUE(Storage.LoadDir());
    std::mt19937 random(5);
    std::vector<std::string> acknowledged;
    int broken = 0;
    // More of them on a machine that is so busy that the kills come too soon to hit anything.
    const auto hits = [&] { return broken > 0 && !acknowledged.empty(); };
    for (int round = 0; round < 200 || (round < 4000 && !hits()); ++round) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        // Writes content, records it and tells so. Every other time it rewrites the journal first,
        // so that rewrites are broken off, too.
        TChildProcess appender([&] {
            for (int i = 0;; ++i) {
                WriteContent(Id(round, i));
                if ((i % 2 == 1 && !Storage.MergeDir()) ||
                    !Storage.AddResourceRecord(Id(round, i), false) ||
                    write(ends[1], &i, sizeof i) != sizeof i)
                    return 1;
            }
        });
        close(ends[1]);
        usleep(static_cast<useconds_t>(random() % 6000));
        appender.Kill();
        EXPECT_EQ(appender.Wait(), -SIGKILL);
        for (int i; read(ends[0], &i, sizeof i) == sizeof i;)
            acknowledged.push_back(Id(round, i));
        close(ends[0]);

        broken += Storage.DoLoadDir() ? 0 : 1;
        ASSERT_TRUE(Storage.LoadDir());
        for (const std::string& id : acknowledged)
            ASSERT_EQ(Storage.Dir().count(id), 1u) << id;
    }
    EXPECT_GT(broken, 0) << "no kill hit a change";
    EXPECT_GT(acknowledged.size(), 0u) << "no kill came after a change";
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
        RunTogether(4, [this](int) { return Storage.LoadDir() && Storage.Dir().size() == 300; });
    }
}

TEST_F(TStorageTest, AFullDiskBreaksTheJournalAndContentMendsIt)
{
    for (const char* name : {"a", "b", "c"})
        WriteContent(name);
    ASSERT_TRUE(Storage.LoadDir());
    const std::uint64_t size = Storage.DirSize();
    const auto withRoomFor = [](std::uint64_t bytes, const std::function<bool()>& body) {
        RunTogether(1, [&](int) {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {bytes, bytes};
            return setrlimit(RLIMIT_FSIZE, &limit) == 0 && body();
        });
    };
    // Results of writes are not tested.
    withRoomFor(size + 3, [this] { return Storage.AddResourceRecord("/b", false); });
    EXPECT_EQ(Journal().size(), size + 3);
    EXPECT_TRUE(Storage.DoLoadDir()) << "half a line is never read";
    EXPECT_EQ(Storage.Dir().size(), 3u);

    ASSERT_TRUE(Storage.AddResourceRecord("/c", false));
    EXPECT_FALSE(Storage.DoLoadDir()) << "the next block has the half line in it";
    ASSERT_TRUE(Storage.LoadDir());
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/A", "/a"}, {"/B", "/b"}, {"/C", "/c"}}));

    // No room to rebuild either.
    withRoomFor(size - 3, [this] { return Storage.SaveDir() && !Storage.LoadDir(); });
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_TRUE(Storage.LoadDir());
}
} // namespace
