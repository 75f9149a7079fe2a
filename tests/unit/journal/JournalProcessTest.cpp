// Processes that share a storage.
#include "JournalFixture.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

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

// Writers in C++ and in Python, one of which uses another path, and so another lock file; two
// processes that rewrite; one that deletes the lock file again and again.
TEST_F(TStorageTest, WritersLoseNothingWhateverHappensToTheirLock)
{
    constexpr int kRecords = 200;
    constexpr int kOthers = 50;
    constexpr int kPython = 8;
    Storage.Settings = {100000, 64, "PC"};
    ASSERT_TRUE(Storage.LoadDir());
    std::filesystem::create_directory_symlink("s", Temp / "other");
    TChildren background = Start(3, [this](int process) {
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
    const auto stop = [](const std::unique_ptr<TChildProcess>& child) {
        child->Kill();
        child->Wait();
    };
    // A rewrite on a slow machine hardly ever ends between two deletions of the lock file.
    stop(background.back());
    background.pop_back();
    EXPECT_TRUE(WaitUntil([this] { return Exists(Temp / "merged0"); })) << "nothing was rewritten";
    for (const auto& child : background)
        stop(child);
    ASSERT_TRUE(Storage.DoLoadDir());
    for (int process = 0; process <= kPython; ++process)
        for (int i = 0; i < (process == 0 || process == kPython ? kOthers : kRecords); ++i)
            ASSERT_EQ(Storage.Dir().count(Id(process, i)), 1u) << Id(process, i);
    // A reader in another language finds the same.
    std::string expected;
    for (const auto& [id, name] : Storage.Dir())
        expected.append(id).append("\t").append(name) += "\n";
    ASSERT_TRUE(python("read >'" + Temp / "read" + "'"));
    EXPECT_TRUE(ReadFile(Temp / "read") == expected);
    EXPECT_FALSE(Exists(Damaged()));
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
} // namespace
