#include "StorageFixture.h"

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvConfig/Config.h"
#include "QvStd/Clock.h"
#include "QvStd/FileStream.h"
#include "QvStd/Log.h"
#include "support/ChildProcess.h"

namespace
{
using TLines = std::vector<std::string>;

/// Texts of the log as written, each with its level: "text [5]".
TLines LogOf(const TLogCapture& log)
{
    TLines lines;
    for (const TLogCapture::TEntry& entry : log.Entries) {
        EXPECT_EQ(entry.Kind, TQvLogKind::Info);
        lines.push_back(entry.Text + " [" + std::to_string(entry.Level) + "]");
    }
    return lines;
}

const std::string kEmpty = Sealed(kJournalHead);
const std::string kTwoBlocks = Sealed(kJournalHead + "/A?a\r\n") + Sealed("/B?b\r\n");
const std::string kCannotHold = "(): Storage (%1%) cannot hold the id (%2%) [5]";

TEST_F(TStorageTest, AppendsAndRewritesTheseBytes)
{
    WriteJournal(kEmpty);
    ASSERT_TRUE(Storage.LoadDir());
    ASSERT_TRUE(Storage.AddResourceRecord("/Data/b.txt", false));
    ASSERT_TRUE(Storage.AddResourceRecord("/Data", true));
    ASSERT_TRUE(Storage.DeleteResourceRecord("/Data/b.txt", false));
    ASSERT_TRUE(Storage.DeleteResourceRecord("/Old", true));
    ASSERT_TRUE(Storage.AddResourceRecord("/a\xC3\xA4", false));
    EXPECT_TRUE(Storage.Dir().empty()) << "the map changes only by loading";
    EXPECT_EQ(Journal(), kEmpty + Sealed("/DATA/B.TXT?b.txt\r\n") + Sealed("/DATA/?Data\r\n") +
                             Sealed("-DATA/B.TXT\r\n") + Sealed("-OLD/\r\n") +
                             Sealed("/A\xC3\xA4?a\xC3\xA4\r\n"));

    ASSERT_TRUE(Storage.MergeDir());
    const std::string whole = Journal();
    EXPECT_EQ(whole.front(), ':');
    EXPECT_EQ(whole.find_first_not_of("0123456789ABCDEF", 1), 9u);
    EXPECT_EQ(whole, Sealed(whole.substr(0, 11) + ";QV5Dir\r\n/A\xC3\xA4?a\xC3\xA4\r\n"
                                                  "/DATA/?Data\r\n"));
}

TEST_F(TStorageTest, ReplaysLines)
{
    const struct
    {
        const char* Guards;
        std::string Block;
        TJournalEntries Entries;
    } kRows[] = {
        {"last name wins", "/A?a\r\n/A?b\r\n", {{"/A", "b"}}},
        {"added, removed, added", "/A?a\r\n-A\r\n-A\r\n/A?c\r\n", {{"/A", "c"}}},
        {"split at the last ?", "/x?y?z\r\n", {{"/x?y", "z"}}},
        {"no ?", "/AB\r\n/C?c\r\n", {{"/C", "c"}}},
        {"trimmed, CR dropped, LF alone taken", "/A? a b\t \r\n-A \n/B?b\n", {{"/B", "b"}}},
        {"ids stay as they stand, in byte order",
         "/b?1\r\n/a?2\r\n/B?3\r\n/\xFF?4\r\n",
         {{"/B", "3"}, {"/a", "2"}, {"/b", "1"}, {"/\xFF", "4"}}},
        {"unknown lines and stamps", "!x\r\n\r\n:1\r\n;2\r\n /A?a\r\n/B?\r\n", {{"/B", ""}}},
    };
    for (const auto& row : kRows) {
        WriteJournal(Sealed(kJournalHead + row.Block));
        EXPECT_TRUE(Storage.DoLoadDir()) << row.Guards;
        EXPECT_EQ(Storage.Dir(), row.Entries) << row.Guards;
    }
}

TEST_F(TStorageTest, WorksInPiecesThatDoNotShow)
{
    // Longer than any buffer: lines that cross the end of a piece, and one that fills several.
    std::string block = ";QV5Dir\r\n";
    for (int i = 10000; i < 40000; ++i)
        block += "/ID" + std::to_string(i) + "?name\r\n";
    block += "/LONG?" + std::string(600000, 'n') + "\r\n";
    WriteJournal(Sealed(":0123ABCD\r\n" + block) + Sealed("/ID10000?other\r\n"));
    ASSERT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Storage.Dir().size(), 30001u);
    EXPECT_EQ(Storage.Dir().at("/LONG").size(), 600000u);
    EXPECT_EQ(Storage.Dir().at("/ID10000"), "other");

    ASSERT_TRUE(Storage.SaveDir());
    block.replace(block.find("?name") + 1, 4, "other");
    const std::string saved = Journal();
    EXPECT_TRUE(saved == Sealed(saved.substr(0, 11) + block));
    EXPECT_EQ(ReadJournal(saved + "-A\r\n*0\r\n", nullptr).SealedBytes, saved.size());

    QvSleep(2);
    ASSERT_TRUE(Storage.SaveDir());
    EXPECT_NE(Journal().substr(0, 11), saved.substr(0, 11)) << "no two rewrites are alike";
}

TEST_F(TStorageTest, AFailedReadIsNoEndOfTheJournal)
{
    std::string journal = kTwoBlocks;
    const auto fails = [&](char* buffer, std::size_t count) {
        const std::size_t got = journal.copy(buffer, count);
        journal.erase(0, got);
        return got != 0 ? got : TQvStream::invalid_value;
    };
    EXPECT_EQ(ReadJournal(fails, nullptr).State, TJournalState::Unreadable);

    ASSERT_EQ(symlink("/proc/self/mem", File().c_str()), 0); // opens, but has no byte 0
    TLogCapture log;
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_EQ(LogOf(log), TLines{"TResStorage::DoLoadDir(): Storage (%1%) dir open failure [3]"});
}

TEST_F(TStorageTest, TellsWhetherOthersTouchedTheJournal)
{
    EXPECT_FALSE(Storage.LoadDirUpdate());
    ASSERT_TRUE(Storage.LoadDir());
    TResStorage other = Another();
    EXPECT_TRUE(other.DirChanged()) << "never read";
    ASSERT_TRUE(other.LoadDir());
    EXPECT_FALSE(other.DirChanged());
    ASSERT_TRUE(Storage.AddResourceRecord("/a", false));
    EXPECT_FALSE(Storage.DirChanged()) << "own append";
    EXPECT_TRUE(other.DirChanged()) << "another's append";
    EXPECT_EQ(Storage.DirSize(), Journal().size());
    const timespec times[] = {{0, UTIME_OMIT}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, File().c_str(), times, 0), 0);
    EXPECT_TRUE(Storage.DirChanged()) << "same size, another time";
}

TEST_F(TStorageTest, RewritesAboveTheThreshold)
{
    Configure("StDirChangeCount2Merge=2\n");
    WriteJournal(kTwoBlocks);
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Journal(), kTwoBlocks);
    WriteJournal(kTwoBlocks + Sealed("-A\r\n"));
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Journal(), Sealed(Journal().substr(0, 20) + "/B?b\r\n"));
    EXPECT_EQ(Storage.DirSize(), Journal().size());
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/B", "b"}}));
}

TEST_F(TStorageTest, RebuildsFromTheContentFolder)
{
    for (const char* name : {"a.txt", "Sub/b.txt", "Sub/c.MeTa", ".META", "meta", "back\\Slash",
                             "evil?name", "evil\nfolder/x"})
        WriteContent(name);
    Temp.MakeFolder("s/content/Empty");
    Temp.MakeFolder("elsewhere/inner");
    std::filesystem::create_symlink("../../elsewhere", Temp / "s/content/Link");
    ASSERT_TRUE(Storage.AddResourceRecord("/lost", false)) << "as the first line of a journal";
    TLogCapture log;
    ASSERT_TRUE(Storage.LoadDir());
    const TJournalEntries expected = {{"/A.TXT", "/a.txt"},        {"/BACK/SLASH", "Slash"},
                                      {"/EMPTY/", "/Empty"},       {"/LINK/", "/Link"},
                                      {"/META", "/meta"},          {"/SUB/", "/Sub"},
                                      {"/SUB/B.TXT", "/Sub/b.txt"}};
    EXPECT_EQ(Storage.Dir(), expected);
    EXPECT_EQ(LogOf(log), TLines(3, "TResStorage::RecreateDir" + kCannotHold));
    EXPECT_STREQ(log.Entries.back().Shown.c_str(),
                 "TResStorage::RecreateDir(): Storage (S) cannot hold the id (/evil?name)");
}

TEST_F(TStorageTest, LeavesTheJournalWhenTheContentCannotBeRead)
{
    Temp.Write("s/content", "a file");
    const std::string torn = Sealed(kJournalHead + "/A?a\r\n") + "/B?b\r\n";
    WriteJournal(torn);
    EXPECT_FALSE(Storage.LoadDir());
    TLogCapture log;
    EXPECT_FALSE(Storage.RecreateDir());
    EXPECT_NE(log.Entries.at(0).Shown.find("Not a directory"), std::string::npos);
    EXPECT_TRUE(Storage.Dir().empty()) << "no half listing that could be saved";
    EXPECT_TRUE(Storage.MergeDir()) << "does not tell what its parts answered";
    std::filesystem::remove(Temp / "s/content");
    std::filesystem::create_symlink("volume-that-is-not-there", Temp / "s/content");
    EXPECT_FALSE(Storage.RecreateDir());
    std::filesystem::remove(Temp / "s/content");
    std::filesystem::create_symlink("content", Temp / "s/content");
    EXPECT_FALSE(Storage.RecreateDir());
    EXPECT_NE(log.Entries.back().Shown.find("Too many levels"), std::string::npos);
    EXPECT_EQ(Journal(), torn);
}

TEST_F(TStorageTest, RefusesIdsThatAJournalCannotGiveBack)
{
    ASSERT_TRUE(Storage.LoadDir());
    const std::string before = Journal();
    for (const char* id : {"", "a", "a/b", "/a?b", "/a\nb", "/a\x1F", "/ a"}) {
        TLogCapture log;
        EXPECT_FALSE(Storage.AddResourceRecord(id, false)) << id;
        EXPECT_FALSE(Storage.DeleteResourceRecord(id, true)) << id;
        EXPECT_EQ(LogOf(log), (TLines{"TResStorage::AddResourceRecord" + kCannotHold,
                                      "TResStorage::DeleteResourceRecord" + kCannotHold}));
    }
    EXPECT_FALSE(Storage.AddResourceRecord("/a ", true));
    EXPECT_FALSE(Storage.DeleteResourceRecord("/a ", false));
    EXPECT_EQ(Journal(), before);
    EXPECT_TRUE(Storage.DeleteResourceRecord("/a ", true)) << "a rebuild may have recorded it";
    EXPECT_EQ(Journal(), before + Sealed("-A /\r\n"));
}

TEST_F(TStorageTest, LockLiesBesideTheFolder)
{
    ASSERT_TRUE(Storage.AddResourceRecord("/a", false));
    EXPECT_EQ(NamesIn(Temp.Path()), (TLines{"s", "s\\$QvStorage.lock"}));
    EXPECT_EQ(NamesIn(Temp / "s"), TLines{"$QvStorage.list"});
    const std::string note = ReadFile(Lock());
    EXPECT_NE(note.find("owner=" + pQvConfigData->getComputerName() + " "), std::string::npos);
    EXPECT_EQ(Storage.XIniFile().toSysStr(), Temp / "s/$QvStorage.x-ini");

    Deinit_QvServices();
    EXPECT_THROW(Storage.LoadDir(), std::runtime_error);
    Init_QvServices();
}

struct TOperation
{
    std::string Name;
    std::function<bool(TResStorage&, const TResStorage::TLocker&)> Run;
    std::string NotOpened; ///< empty: it opens no file itself
    bool Reads = false;

    std::string Prefix() const { return "TResStorage::" + Name + "(): "; }
};

const std::string kNotWritten = "error writing storage (%1%) [5]";
const std::string kNotLocked = "error locking storage (%1%) [5]";
const TOperation kOperations[] = {
    {"LoadDir", &TResStorage::LoadDir, "", true},
    {"DoLoadDir", &TResStorage::DoLoadDir, "Storage (%1%) dir open failure [3]", true},
    {"RecreateDir", &TResStorage::RecreateDir, ""},
    {"SaveDir", &TResStorage::SaveDir, kNotWritten},
    {"AddResourceRecord",
     [](auto& storage, auto& lock) { return storage.AddResourceRecord("/a", false, lock); },
     kNotWritten},
    {"DeleteResourceRecord",
     [](auto& storage, auto& lock) { return storage.DeleteResourceRecord("/a", false, lock); },
     kNotWritten},
    {"MergeDir", &TResStorage::MergeDir, ""},
};

TEST_F(TStorageTest, LogsThatItIsLocked)
{
    Configure("StDirLockTimeout=20\n");
    WriteJournal(kTwoBlocks);
    const auto lock = TStorageLocker::VCreate(Storage, true);
    for (const TOperation& operation : kOperations) {
        TLogCapture log;
        TResStorage other = Another();
        EXPECT_FALSE(operation.Run(other, {})) << operation.Name;
        EXPECT_EQ(LogOf(log), TLines{operation.Prefix() + kNotLocked});
        EXPECT_EQ(log.Entries.at(0).Shown, operation.Prefix() + "error locking storage (S)");
    }
    EXPECT_EQ(Journal(), kTwoBlocks);
}

TEST_F(TStorageTest, LogsThatTheJournalIsBusyAndGivesUp)
{
    Configure("StDirLockTimeout=150\n");
    WriteJournal(kEmpty);
    const TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
    ASSERT_TRUE(static_cast<bool>(busy));
    for (const TOperation& operation : kOperations) {
        if (operation.NotOpened.empty())
            continue;
        TLogCapture log;
        const std::uint32_t start = QvGetTickCount();
        EXPECT_FALSE(operation.Run(Storage, {})) << operation.Name;
        EXPECT_GE(QvGetTickCount() - start, 150u) << operation.Name;
        EXPECT_EQ(LogOf(log), (TLines{operation.Prefix() + "Storage (%1%) dir busy, retrying [3]",
                                      operation.Prefix() + operation.NotOpened}));
    }
}

TEST_F(TStorageTest, WaitsForABusyJournal)
{
    for (const TOperation& operation : kOperations) {
        WriteJournal(Sealed(kJournalHead + std::string(300, ';') + "\r\n"));
        TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
        std::thread release([&busy] {
            QvSleep(50);
            busy.Close();
        });
        EXPECT_TRUE(operation.Run(Storage, {})) << operation.Name;
        release.join();
        // Above all after a rewrite: its retry does not truncate, so it has to cut the old end.
        EXPECT_TRUE(Storage.DoLoadDir()) << operation.Name;
        EXPECT_EQ(ReadJournal(Journal(), nullptr).UnreadBytes, 0u) << operation.Name;
    }
}

TEST_F(TStorageTest, RebuildsAJournalThatWasBusyForTooLong)
{
    Configure("StDirLockTimeout=20\n");
    WriteJournal(kTwoBlocks);
    TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
    QvSetLogSink([&busy](TQvLogKind, const TQvMessage& message, int) {
        if (message.text().find("SaveDir") != std::string::npos)
            busy.Close();
    });
    EXPECT_TRUE(Storage.LoadDir());
    QvSetLogSink(nullptr);
    EXPECT_TRUE(Storage.Dir().empty()) << "why loading failed makes no difference";
}

TEST_F(TStorageTest, DoesNotRetryOtherErrors)
{
    Temp.MakeFolder("s/$QvStorage.list");
    TLogCapture log;
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_FALSE(Storage.AddResourceRecord("/a", false));
    EXPECT_FALSE(Storage.SaveDir());
    EXPECT_EQ(LogOf(log), (TLines{"TResStorage::AddResourceRecord(): " + kNotWritten,
                                  "TResStorage::SaveDir(): " + kNotWritten}));
}

TEST_F(TStorageTest, WorksUnderAGivenLock)
{
    Configure("StDirLockTimeout=20\nStDirChangeCount2Merge=1\n");
    for (const TOperation& operation : kOperations) {
        auto holder = TStorageLocker::VCreate(Storage, true);
        auto refused = TStorageLocker::VCreate(Storage, false);
        holder.reset();
        EXPECT_EQ(operation.Run(Storage, refused), !operation.Reads)
            << operation.Name << ": only who writes asks once more";
        refused.reset();
        // A rewrite that loading wants goes under the same lock, so few blocks for the readers.
        WriteJournal(operation.Reads ? kEmpty : kTwoBlocks);
        const auto shared = TStorageLocker::VCreate(Storage, false);
        for (const char* held : {" under a shared lock", " under what it made of it"}) {
            EXPECT_TRUE(operation.Run(Storage, shared)) << operation.Name << held;
            EXPECT_EQ(shared->IsExclusive(), !operation.Reads) << operation.Name << held;
        }
    }
}

TEST_F(TStorageTest, WritesNothingUnderALockThatOthersShare)
{
    Configure("StDirLockTimeout=20\nStDirChangeCount2Merge=1\n");
    WriteJournal(kTwoBlocks);
    const auto reader = TStorageLocker::VCreate(Storage, false);
    const auto shared = TStorageLocker::VCreate(Storage, false);
    for (const TOperation& operation : kOperations) {
        TLogCapture log;
        EXPECT_EQ(operation.Run(Storage, shared), operation.Reads) << operation.Name;
        const std::string refused =
            operation.Reads ? "TResStorage::SaveDir(): " : operation.Prefix();
        EXPECT_EQ(LogOf(log), TLines{refused + kNotLocked});
        EXPECT_TRUE(*shared) << operation.Name << ": the shared hold stays";
    }
    EXPECT_EQ(Journal(), kTwoBlocks);
}

TEST_F(TStorageTest, WaitsForNobodyUnderAGivenLockThatOthersShare)
{
    const auto other = TStorageLocker::VCreate(Storage, false);
    Configure("StDirLockTimeout=200\nStDirChangeCount2Merge=1\n");
    WriteJournal(kTwoBlocks);
    auto given = TStorageLocker::VCreate(Storage, false);
    std::thread upgrade([&other] { EXPECT_TRUE(other->Relock(true)); });
    ASSERT_TRUE(WaitUntil([this] { return !TQvLockFile(Lock(), false, "", 0); }));
    EXPECT_TRUE(Storage.DoLoadDir(given));
    EXPECT_EQ(given->getError(), -EAGAIN)
        << "a request that waits would be refused as a second one";
    WriteJournal("torn");
    TLogCapture log;
    EXPECT_FALSE(Storage.LoadDir(given));
    EXPECT_EQ(LogOf(log), TLines{"TResStorage::RecreateDir(): " + kNotLocked});
    given.reset();
    upgrade.join();
}

TEST_F(TStorageTest, RepairsWhatTheOneItSteppedAsideForDidNot)
{
    WriteContent("a");
    WriteJournal(kTwoBlocks + "/C?c\r\n");
    TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
    std::thread loader([this] { EXPECT_TRUE(Storage.LoadDir()); });
    ASSERT_TRUE(WaitUntil([this] { return !TQvLockFile(Lock(), true, "", 0); }));
    {
        const auto other = TStorageLocker::VCreate(Another(), false);
        std::thread release([this, &busy] {
            EXPECT_TRUE(WaitUntil([this] { return !TQvLockFile(Lock(), false, "", 0); }));
            busy.Close();
        });
        EXPECT_TRUE(other->Relock(true)) << "the loader, which shared it, stepped aside";
        release.join();
    } // ends without a repair
    loader.join();
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/A", "/a"}}));
}

TEST_F(TStorageTest, WaitsForNoJournalThatPermissionsKeepAway)
{
    Configure("StDirChangeCount2Merge=1\n");
    WriteJournal(kTwoBlocks);
    ASSERT_EQ(chmod(File().c_str(), 0444), 0);
    for (const char* folder : {"", "s", "s/content"})
        ASSERT_EQ(chmod(Temp.MakeFolder(folder).c_str(), 0777), 0);
    EXPECT_TRUE(PassesInChild([this] {
        ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0) << "root may do everything";
        TLogCapture log;
        EXPECT_TRUE(Storage.DoLoadDir()) << "not shortened";
        EXPECT_EQ(LogOf(log), TLines{"TResStorage::SaveDir(): " + kNotWritten});
    }));
    ASSERT_EQ(chmod((Temp / "s").c_str(), 0), 0);
    EXPECT_TRUE(PassesInChild([this] {
        ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0);
        TLogCapture log;
        EXPECT_FALSE(Storage.DoLoadDir());
        EXPECT_FALSE(Storage.RecreateDir());
        ASSERT_EQ(log.Entries.size(), 1u) << "a journal that is not seen is missing";
        EXPECT_NE(log.Entries[0].Shown.find("Permission denied"), std::string::npos);
    }));
    ASSERT_EQ(chmod((Temp / "s").c_str(), 0700), 0);
}
} // namespace
