#include "QvStd/LockFile.h"

#include <fstream>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "QvStd/Clock.h"
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
    /// Processes tell each other where they are through files.
    void Tell(const std::string& word) const { m_folder.Write(word, ""); }
    bool Await(const std::string& word) const
    {
        return WaitUntil([&] { return Exists(m_folder / word); });
    }

    TTempFolder m_folder;
    std::string m_path = m_folder / "file.lock";
};

TEST_F(LockFileTest, OnlySharedHoldersCoexist)
{
    for (const bool first : {kShared, kExclusive}) {
        for (const bool second : {kShared, kExclusive}) {
            const TQvLockFile holder(m_path, first, "a", 0);
            ASSERT_TRUE(holder);
            const TQvLockFile other(m_path, second, "b", 0);
            EXPECT_EQ(bool(other), !first && !second) << first << second;
            EXPECT_EQ(other.getError(), other ? 0 : -11);
        }
    }
}

TEST_F(LockFileTest, KilledHoldersLockIsGone)
{
    TChildProcess child([&] {
        const TQvLockFile lock(m_path, kExclusive, "child", 0);
        Tell("locked");
        return Await("never") ? 0 : 1;
    });
    ASSERT_TRUE(Await("locked"));
    EXPECT_FALSE(TQvLockFile(m_path, kExclusive, "parent", 0));
    child.Kill();
    EXPECT_EQ(child.Wait(), -9);
    EXPECT_TRUE(TQvLockFile(m_path, kExclusive, "parent", 0));
}

TEST_F(LockFileTest, UpgradeLetsNoWriterSlipIn)
{
    TChildProcess child([&] {
        auto lock = std::make_unique<TQvLockFile>(m_path, kShared, "child", kLong);
        Tell("shared");
        // New readers are refused from the moment on in which the parent waits.
        if (!WaitUntil([&] { return !TQvLockFile(m_path, kShared, "new reader", 0); }))
            return 1;
        lock.reset();
        return TQvLockFile(m_path, kExclusive, "writer", 0) ? 2 : 0;
    });
    ASSERT_TRUE(Await("shared"));
    TQvLockFile lock(m_path, kShared, "parent", kLong);
    ASSERT_TRUE(lock);
    EXPECT_TRUE(lock.Relock(true));
    EXPECT_TRUE(lock.IsExclusive());
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(LockFileTest, SecondUpgradeIsRefusedAtOnceAndKeepsItsHold)
{
    TChildProcess child([&] {
        TQvLockFile lock(m_path, kShared, "child", kLong);
        Tell("shared");
        return Await("upgrade") && lock.Relock(true) ? 0 : 1;
    });
    ASSERT_TRUE(Await("shared"));
    auto lock = std::make_unique<TQvLockFile>(m_path, kShared, "parent", kLong);
    ASSERT_TRUE(*lock);
    Tell("upgrade");
    // A waiting upgrade keeps new readers out: readers that overlap would starve it.
    ASSERT_TRUE(WaitUntil([&] { return !TQvLockFile(m_path, kShared, "new reader", 0); }));

    const std::uint32_t start = QvGetTickCount();
    EXPECT_FALSE(lock->Relock(true));
    EXPECT_LT(QvGetTickCount() - start, kLong / 2);
    EXPECT_EQ(lock->getError(), -11);
    EXPECT_TRUE(*lock);
    EXPECT_FALSE(lock->IsExclusive());
    EXPECT_FALSE(TQvLockFile(m_path, kExclusive, "writer", 0));
    lock.reset();
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(LockFileTest, RelockThatFailsKeepsWhatWasHeld)
{
    auto holder = std::make_unique<TQvLockFile>(m_path, kExclusive, "a", 60);
    const std::uint32_t start = QvGetTickCount();
    TQvLockFile other(m_path, kShared, "b", 60);
    const std::uint32_t waited = QvGetTickCount() - start;
    EXPECT_FALSE(other);
    EXPECT_GE(waited, 59u);
    EXPECT_LT(waited, 5000u);

    ASSERT_TRUE(holder->Relock(false));
    EXPECT_TRUE(other.Relock(false)) << "gained anew";
    EXPECT_FALSE(holder->Relock(true));
    EXPECT_TRUE(*holder);
    EXPECT_TRUE(TQvLockFile(m_path, kShared, "new reader", 0)) << "the refused upgrade is over";
    EXPECT_FALSE(other.Relock(true));
    holder.reset();
    EXPECT_TRUE(other.Relock(true));
    EXPECT_EQ(other.getError(), 0);
}

TEST_F(LockFileTest, NoteNamesTheHolder)
{
    const std::string longName(500, 'x');
    for (const std::string& owner : {longName, std::string("PC-1\nforged"), std::string("PC")}) {
        const TQvLockFile lock(m_path, kShared, owner, 0);
        ASSERT_TRUE(lock);
    }
    const std::string note = ReadFile(m_path);
    const std::string begin = "lock held by owner=PC pid=" + std::to_string(getpid()) + " time=20";
    EXPECT_EQ(note.substr(0, begin.size()), begin);
    EXPECT_EQ(note.find('\n'), note.size() - 1) << "the longer notes left no tail: " << note;
}

TEST_F(LockFileTest, ForeignContentIsLockedButNeverWritten)
{
    const std::string contents[] = {"x", "lock held b", "Lock held by owner=me",
                                    "lock held by " + std::string(1000, 'x')};
    for (const std::string& content : contents) {
        const std::string path = m_folder.Write("resource", content);
        TQvLockFile lock(path, kShared, "somebody with a long name", 0);
        EXPECT_TRUE(lock.Relock(true));
        EXPECT_FALSE(TQvLockFile(path, kShared, "b", 0));
        EXPECT_EQ(ReadFile(path), content);
    }
}

TEST_F(LockFileTest, OnlyRegularFilesAreLocked)
{
    ASSERT_EQ(mkfifo((m_folder / "fifo").c_str(), 0600), 0);
    const struct
    {
        std::string Path;
        int Error;
    } cases[] = {{m_folder.Path(), -EISDIR},
                 {m_folder / "fifo", -EINVAL},
                 {m_folder / "missing/file", -ENOENT}};
    for (const auto& [path, error] : cases) {
        for (const bool kind : {kShared, kExclusive}) {
            const TQvLockFile lock(path, kind, "a", kLong);
            EXPECT_FALSE(lock) << path;
            EXPECT_EQ(lock.getError(), error) << path;
        }
    }
}

TEST_F(LockFileTest, ReadOnlyFileTakesSharedLocks)
{
    m_folder.Write("file.lock", "");
    ASSERT_EQ(chmod(m_path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0755), 0);
    TChildProcess child([&] {
        // Root may write everything.
        if (geteuid() == 0 && seteuid(65534) != 0)
            return 1;
        if (TQvLockFile(m_path, kExclusive, "a", 0).getError() != -EACCES)
            return 2;
        TQvLockFile lock(m_path, kShared, "a", 0);
        if (!lock || TQvLockFile(m_path, kExclusive, "b", 0))
            return 3;
        return !lock.Relock(true) && lock.getError() == -EACCES && lock ? 0 : 4;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(LockFileTest, ProcessesCountTogether)
{
    constexpr int kProcesses = 4;
    constexpr int kTimes = 150;
    const std::string counter = m_folder.Write("counter", "0");
    const auto count = [&] {
        for (int i = 0; i < kTimes; ++i) {
            const TQvLockFile lock(m_path, kExclusive, "counter", kLong);
            if (!lock)
                return 1;
            const int value = std::stoi(ReadFile(counter));
            std::ofstream(counter) << value + 1;
        }
        return 0;
    };
    std::unique_ptr<TChildProcess> children[kProcesses];
    for (auto& child : children)
        child = std::make_unique<TChildProcess>(count);
    for (auto& child : children)
        EXPECT_EQ(child->Wait(), 0);
    EXPECT_EQ(ReadFile(counter), std::to_string(kProcesses * kTimes));
}
} // namespace
