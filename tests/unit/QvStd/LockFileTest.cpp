#include "QvStd/LockFile.h"

#include <gtest/gtest.h>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/FileLock.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace
{
constexpr bool kShared = false;
constexpr bool kExclusive = true;
constexpr unsigned long kLong = 20000;

class LockFileTest : public testing::Test
{
protected:
    /// Processes report their progress to each other through files.
    void Report(const std::string& word) const { m_folder.Write(word, ""); }
    bool Await(const std::string& word) const
    {
        return WaitUntil([&] { return Exists(m_folder / word); });
    }
    /// Whether another opener could lock the file now.
    bool IsFree(bool kind) const { return bool(TQvLockFile(m_path, kind, "other", 0)); }

    TTempFolder m_folder;
    std::string m_path = m_folder / "file.lock";
};

TEST_F(LockFileTest, AWaiterLeavesTheQueueAndASuspendedOneDelaysOthersOnlyBriefly)
{
    TChildProcess reader([&] {
        const bool written = Await("written");
        const TQvLockFile lock(m_path, kShared, "child", kLong);
        Report("reads");
        return written && lock && Await("done") ? 0 : 1;
    });
    auto writer = std::make_unique<TQvLockFile>(m_path, kExclusive, "parent", 0);
    Report("written");
    const int descriptor = open(m_path.c_str(), O_RDWR | O_CLOEXEC);
    // The byte that the head of the queue locks.
    const auto turn = [descriptor](int command) {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = 2;
        lock.l_len = 1;
        return fcntl(descriptor, command, &lock) == 0 && lock.l_type != F_UNLCK;
    };
    ASSERT_TRUE(WaitUntil([&] { return turn(F_OFD_GETLK); }));
    writer.reset();
    ASSERT_TRUE(Await("reads"));
    EXPECT_TRUE(IsFree(kShared));
    Report("done");
    EXPECT_EQ(reader.Wait(), 0);

    ASSERT_TRUE(turn(F_OFD_SETLK)); // as a suspended waiter
    for (const bool kind : {kShared, kExclusive}) {
        EXPECT_FALSE(IsFree(kind)) << "new requests yield to it";
        EXPECT_TRUE(TQvLockFile(m_path, kind, "patient", 100));
    }
    close(descriptor);
}

TEST_F(LockFileTest, AnUpgradeExcludesWritersAndASecondOneIsRefusedAtOnce)
{
    TChildProcess child([&] {
        TQvLockFile lock(m_path, kShared, "child", kLong);
        Report("shared");
        return Await("upgrade") && lock.Relock(true) && lock.IsExclusive() && Await("end") ? 0 : 1;
    });
    ASSERT_TRUE(Await("shared"));
    auto lock = std::make_unique<TQvLockFile>(m_path, kShared, "parent", kLong);
    Report("upgrade");
    ASSERT_TRUE(WaitUntil([&] { return !IsFree(kShared); })) << "readers would starve it";
    const std::uint32_t start = QvGetTickCount();
    EXPECT_FALSE(lock->Relock(true));
    EXPECT_LT(QvGetTickCount() - start, kLong / 2);
    EXPECT_EQ(lock->getError(), -EDEADLK);
    EXPECT_TRUE(*lock) << "it keeps its shared lock";
    EXPECT_FALSE(lock->IsExclusive());
    lock.reset();
    EXPECT_FALSE(IsFree(kExclusive));
    Report("end");
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(LockFileTest, NoteNamesTheHolderAndForeignContentIsNeverWritten)
{
    const std::string free = "lock free" + std::string(246, ' ') + "\n";
    for (const std::string& owner : {std::string(500, 'x'), std::string("a\nb")}) {
        auto lock = std::make_unique<TQvLockFile>(m_path, kShared, owner, 0);
        const TQvLockFile other(m_path, kShared, owner, 0);
        const std::string note = ReadFile(m_path);
        EXPECT_EQ(note.find('\n'), 255u) << "of one length, so that none leaves a tail: " << note;
        EXPECT_TRUE(PassesInChild([&] { lock.reset(); })) << "a copy of the lock";
        lock.reset();
        EXPECT_EQ(ReadFile(m_path), note) << "still locked";
    }
    EXPECT_EQ(ReadFile(m_path), free);
    ASSERT_TRUE(TQvLockFile(m_path, kExclusive, "", 0));
    EXPECT_EQ(ReadFile(m_path), free) << "no owner to name";

    for (const std::string& foreign :
         {std::string(), std::string("lock held by owner=me\n"), free + "more\n",
          "lock held by owner=PC pid=1 time=20" + std::string(1000, 'x') + "\n"}) {
        m_folder.Write("file.lock", foreign);
        TQvLockFile lock(m_path, kShared, "an owner with a long name", 0);
        EXPECT_EQ(TQvLockFile(m_path, kExclusive, "b", 0).getHolder(), "");
        EXPECT_TRUE(lock.Relock(true));
        EXPECT_EQ(ReadFile(m_path), foreign);
    }
}

TEST_F(LockFileTest, AWaiterTakesTheFileAtThePath)
{
    TChildProcess waiter([&] {
        const bool isHeld = Await("held");
        const TQvLockFile lock(m_path, kExclusive, "b", kLong);
        return isHeld && lock.IsAtPath() ? 0 : 1;
    });
    auto holder = std::make_unique<TQvLockFile>(m_path, kShared, "a", 0);
    Report("held");
    ASSERT_TRUE(WaitUntil([&] { return !IsFree(kShared); })) << "the child waits for the old file";
    ASSERT_EQ(unlink(m_path.c_str()), 0);
    EXPECT_TRUE(TQvLockFile(m_path, kExclusive, "c", 0)) << "the new file is not locked";
    holder.reset();
    EXPECT_EQ(waiter.Wait(), 0);
}

TEST_F(LockFileTest, ReadersWithoutWritePermissionQueue)
{
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(m_folder.Write("file.lock", "").c_str(), 0644), 0);
    TChildProcess writer([&] {
        for (int i = 0; TQvLockFile(m_path, kExclusive, "writer", kLong); ++i) {
            const TQvLockFile lock(m_path, kExclusive, "writer", kLong);
            usleep(2000); // nearly always locked
            if (i == 1)
                Report("running");
        }
        return 1;
    });
    ASSERT_TRUE(Await("running"));
    EXPECT_TRUE(PassesInChild([&] {
        ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0) << "root may write everything";
        int gained = 0; // hardly ever without a place in the queue
        for (const std::uint32_t start = QvGetTickCount(); QvGetTickCount() - start < 500; ++gained)
            ASSERT_TRUE(TQvLockFile(m_path, kShared, "reader", kLong));
        EXPECT_GT(gained, 50);
    }));
}

TEST_F(LockFileTest, OnlyRegularFilesAreLockedAndReadOnlyOnesShared)
{
    ASSERT_EQ(mkfifo((m_folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(TQvLockFile(m_folder / "fifo", kExclusive, "a", kLong).getError(), -EINVAL);
    EXPECT_EQ(TQvFileLock(m_folder.Path(), 0).getError(), -EISDIR);
    EXPECT_EQ(TQvFileLock(m_folder / "fifo", 0).getError(), -EINVAL);
    EXPECT_EQ(TQvFileLock(m_path, 0).getError(), -ENOENT) << "nothing is created";
    ASSERT_EQ(chmod(m_folder.Write("file.lock", "").c_str(), 0444), 0);
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0555), 0);
    EXPECT_TRUE(PassesInChild([&] {
        ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0) << "root may write everything";
        TQvLockFile lock(m_path, kShared, "a", 0);
        EXPECT_FALSE(lock.Relock(true));
        EXPECT_EQ(lock.getError(), -EACCES);
        EXPECT_TRUE(lock);
        EXPECT_EQ(TQvLockFile(m_folder / "new", kShared, "a", 0).getError(), -EACCES);
    }));
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0755), 0);
}

TEST_F(LockFileTest, TheMessageNamesTheHolderOrTheReason)
{
    const TQvLockFile lock(m_path, kExclusive, "PC", 0);
    const TQvFileLock refused(m_path, 0);
    EXPECT_EQ(refused.getError(), -EAGAIN) << "both kinds exclude each other";
    const std::string note = ReadFile(m_path);
    const std::string process = std::to_string(getpid());
    const std::string time = note.substr(note.find("time=") + 5, 20);
    const std::string holder = "PC (process " + process + ", since " + time + ")";
    EXPECT_EQ(TQvLockFile(m_path, kExclusive, "b", 0).getHolder(), holder);
    EXPECT_EQ(QvLockMessage(m_path, refused.getError()).what(),
              "\"" + m_path + "\" is locked by another process: " + holder + ".");
    EXPECT_STREQ(QvLockMessage("x", -EAGAIN).what(), "\"x\" is locked by another process.");
    EXPECT_STREQ(QvLockMessage("x", -EROFS).what(),
                 "\"x\" cannot be locked: Read-only file system.");
}
} // namespace
