// What processes that share a storage do to each other.
#include "StorageFixture.h"

#include <csignal>
#include <memory>
#include <random>

#include <sys/resource.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/Files.h"
#include "support/ChildProcess.h"

namespace
{
std::string Id(int process, int number)
{
    return "/P" + std::to_string(process) + "/R" + std::to_string(number);
}

TEST_F(TStorageTest, EightProcessesAppendWhileANinthMerges)
{
    constexpr int kWriters = 8;
    constexpr int kRecords = 500;
    Configure("StDirLockTimeout=100000\nStDirChangeCount2Merge=64\n");
    ASSERT_TRUE(Storage.LoadDir());
    std::vector<std::unique_ptr<TChildProcess>> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.push_back(std::make_unique<TChildProcess>([this, writer] {
            for (int i = 0; i < kRecords; ++i)
                if (!Storage.AddResourceRecord(Id(writer, i), false))
                    return 1;
            return 0;
        }));
    TChildProcess ninth([this] {
        const std::uint32_t start = QvGetTickCount();
        do {
            if (!Storage.MergeDir() || !Storage.DoLoadDir() || QvGetTickCount() - start > 90000)
                return 1;
            QvSleep(20);
        } while (Storage.Dir().count("/LAST") == 0);
        return 0;
    });
    for (const auto& writer : writers)
        EXPECT_EQ(writer->Wait(), 0);
    ASSERT_TRUE(Storage.AddResourceRecord("/last", false));
    EXPECT_EQ(ninth.Wait(), 0);

    ASSERT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Storage.Dir().size(), kWriters * kRecords + 1u);
    for (int writer = 0; writer < kWriters; ++writer)
        for (int i = 0; i < kRecords; ++i)
            ASSERT_EQ(Storage.Dir().count(Id(writer, i)), 1u) << Id(writer, i);
}

/// A child that writes content, records it and tells so through a pipe, until it is killed. Now and
/// then it rewrites the journal, so that rewrites are broken off, too.
class TAppender
{
public:
    TAppender(const TResStorage& storage, int round)
    {
        if (pipe(m_pipe) != 0)
            throw std::runtime_error("pipe");
        m_child = std::make_unique<TChildProcess>([this, storage, round] {
            TResStorage own = storage;
            for (int i = 0;; ++i) {
                QvForceDirectories(own.Folder + "/content/P" + std::to_string(round));
                const TQvFileStream content(TQvPath(own.Folder + "/content" + Id(round, i)),
                                            kQvOpenCreate, kQvShareAll);
                const bool done = i % 2 == 1
                                      ? own.MergeDir() && own.AddResourceRecord(Id(round, i), false)
                                      : own.AddResourceRecord(Id(round, i), false);
                if (!done || write(m_pipe[1], &i, sizeof i) != sizeof i)
                    return 1;
            }
        });
        close(m_pipe[1]);
    }
    ~TAppender() { close(m_pipe[0]); }

    /// Kills it; the number of records that it was told are safe.
    int Kill()
    {
        m_child->Kill();
        EXPECT_EQ(m_child->Wait(), -SIGKILL);
        int last = -1;
        while (read(m_pipe[0], &last, sizeof last) == sizeof last) {
        }
        return last + 1;
    }

private:
    int m_pipe[2];
    std::unique_ptr<TChildProcess> m_child;
};

TEST_F(TStorageTest, TwoHundredKilledAppendersLoseNothing)
{
    ASSERT_TRUE(Storage.LoadDir());
    std::mt19937 random(5);
    std::vector<int> acknowledged;
    int broken = 0;
    for (int round = 0; round < 200; ++round) {
        TAppender appender(Storage, round);
        usleep(static_cast<useconds_t>(random() % 6000));
        acknowledged.push_back(appender.Kill());
        broken += Storage.DoLoadDir() ? 0 : 1;
        ASSERT_TRUE(Storage.LoadDir());
        for (int done = 0; done <= round; ++done)
            for (int i = 0; i < acknowledged[static_cast<std::size_t>(done)]; ++i)
                ASSERT_EQ(Storage.Dir().count(Id(done, i)), 1u) << Id(done, i);
    }
    RecordProperty("broken", broken);
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
        std::vector<std::unique_ptr<TChildProcess>> loaders;
        for (int i = 0; i < 4; ++i)
            loaders.push_back(std::make_unique<TChildProcess>(
                [this] { return Storage.LoadDir() && Storage.Dir().size() == 300 ? 0 : 1; }));
        for (const auto& loader : loaders)
            EXPECT_EQ(loader->Wait(), 0) << "round " << round;
    }
}

TEST_F(TStorageTest, AFullDiskBreaksTheJournalAndContentMendsIt)
{
    for (const char* name : {"a", "b", "c"})
        WriteContent(name);
    ASSERT_TRUE(Storage.LoadDir());
    const std::uint64_t size = Storage.DirSize();
    const auto withRoomFor = [](std::uint64_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {bytes, bytes};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    TChildProcess full([&] {
        withRoomFor(size + 3);
        return Storage.AddResourceRecord("/b", false) ? 0 : 1;
    });
    EXPECT_EQ(full.Wait(), 0) << "results of writes are not tested";
    EXPECT_EQ(Journal().size(), size + 3);
    EXPECT_TRUE(Storage.DoLoadDir()) << "half a line is never read";
    EXPECT_EQ(Storage.Dir().size(), 3u);

    ASSERT_TRUE(Storage.AddResourceRecord("/c", false));
    EXPECT_FALSE(Storage.DoLoadDir()) << "the next block has the half line in it";
    ASSERT_TRUE(Storage.LoadDir());
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/A", "/a"}, {"/B", "/b"}, {"/C", "/c"}}));

    TChildProcess rewriting([&] {
        withRoomFor(size - 3);
        return Storage.SaveDir() && !Storage.LoadDir() ? 0 : 1;
    });
    EXPECT_EQ(rewriting.Wait(), 0) << "no room to rebuild either";
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_TRUE(Storage.LoadDir());
}
} // namespace
