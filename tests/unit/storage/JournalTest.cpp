#include "StorageFixture.h"

#include <functional>
#include <stdexcept>
#include <thread>

#include "QvConfig/Config.h"
#include "QvStd/Clock.h"
#include "QvStd/FileStream.h"

namespace
{
using TLines = std::vector<std::string>;

TEST_F(TStorageTest, AppendsAndRewritesTheseBytes)
{
    WriteJournal(Sealed(kJournalHead));
    ASSERT_TRUE(Storage.LoadDir());
    ASSERT_TRUE(Storage.AddResourceRecord("/Data/b.txt", false));
    ASSERT_TRUE(Storage.AddResourceRecord("/Data", true));
    ASSERT_TRUE(Storage.DeleteResourceRecord("/Data/b.txt", false));
    ASSERT_TRUE(Storage.DeleteResourceRecord("/Old", true));
    ASSERT_TRUE(Storage.AddResourceRecord("/a\xC3\xA4", false));
    EXPECT_TRUE(Storage.Dir().empty()) << "the map changes only by loading";
    const std::string head = Sealed(kJournalHead);
    EXPECT_EQ(Journal(), head + Sealed("/DATA/B.TXT?b.txt\r\n") + Sealed("/DATA/?Data\r\n") +
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
        {"nothing", "", {}},
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
    EXPECT_TRUE(Journal() == Sealed(Journal().substr(0, 11) + block));
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
}

TEST_F(TStorageTest, RewritesAboveTheThreshold)
{
    Configure("StDirChangeCount2Merge=2\n");
    const std::string two = Sealed(kJournalHead + "/A?a\r\n") + Sealed("/B?b\r\n");
    WriteJournal(two);
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Journal(), two);
    WriteJournal(two + Sealed("-A\r\n"));
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(AfterStamp().substr(0, 16), ";QV5Dir\r\n/B?b\r\n*");
    EXPECT_EQ(Storage.DirSize(), Journal().size());
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/B", "b"}}));
}

TEST_F(TStorageTest, RebuildsFromTheContentFolder)
{
    for (const char* name : {"a.txt", "Sub/b.txt", "Sub/c.MeTa", ".META", "meta", "back\\Slash",
                             "evil?name", "evil\nfolder/x"})
        WriteContent(name);
    Temp.MakeFolder("s/content/Empty");
    TLogCapture log;
    ASSERT_TRUE(Storage.LoadDir());
    const TJournalEntries expected = {{"/A.TXT", "/a.txt"},  {"/BACK/SLASH", "Slash"},
                                      {"/EMPTY/", "/Empty"}, {"/META", "/meta"},
                                      {"/SUB/", "/Sub"},     {"/SUB/B.TXT", "/Sub/b.txt"}};
    EXPECT_EQ(Storage.Dir(), expected);
    EXPECT_EQ(LogOf(log),
              TLines(3, "TResStorage::RecreateDir(): Storage (%1%) cannot hold the id (%2%) [5]"));
    EXPECT_STREQ(log.Entries.back().Shown.c_str(),
                 "TResStorage::RecreateDir(): Storage (S) cannot hold the id (/evil?name)");
}

TEST_F(TStorageTest, LeavesTheJournalWhenTheContentCannotBeRead)
{
    Temp.Write("s/content", "a file");
    const std::string torn = Sealed(kJournalHead + "/A?a\r\n") + "/B?b\r\n";
    WriteJournal(torn);
    EXPECT_FALSE(Storage.LoadDir());
    EXPECT_FALSE(Storage.RecreateDir());
    EXPECT_TRUE(Storage.MergeDir()) << "does not tell what its parts answered";
    EXPECT_EQ(Journal(), torn);
}

TEST_F(TStorageTest, RefusesIdsThatAJournalCannotGiveBack)
{
    ASSERT_TRUE(Storage.LoadDir());
    const std::string before = Journal();
    for (const char* id : {"", "a", "a/b", "/a?b", "/a\nb", "/a\x1F", "/a "}) {
        TLogCapture log;
        EXPECT_FALSE(Storage.AddResourceRecord(id, false)) << id;
        EXPECT_FALSE(Storage.DeleteResourceRecord(id, true)) << id;
        EXPECT_EQ(LogOf(log),
                  (TLines{"TResStorage::AddResourceRecord(): Storage (%1%) cannot hold the id "
                          "(%2%) [5]",
                          "TResStorage::DeleteResourceRecord(): Storage (%1%) cannot hold the id "
                          "(%2%) [5]"}));
    }
    EXPECT_EQ(Journal(), before);
}

TEST_F(TStorageTest, LockLiesBesideTheFolder)
{
    ASSERT_TRUE(Storage.AddResourceRecord("/a", false));
    EXPECT_EQ(NamesIn(Temp.Path()), (TLines{"s", "s\\$QvStorage.lock"}));
    EXPECT_EQ(NamesIn(Temp / "s"), TLines{"$QvStorage.list"});
    EXPECT_EQ(Storage.XIniFile().toSysStr(), Temp / "s/$QvStorage.x-ini");

    Deinit_QvServices();
    try {
        Storage.LoadDir();
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "@QvConfigData is not initialized");
    }
    Init_QvServices();
}

struct TOperation
{
    const char* Name;
    std::function<bool(TResStorage&, const TResStorage::TLocker&)> Run;
    const char* NotOpened; ///< nullptr: it opens no file itself
};

const TOperation kOperations[] = {
    {"LoadDir", [](auto& storage, auto& lock) { return storage.LoadDir(lock); }, nullptr},
    {"DoLoadDir", [](auto& storage, auto& lock) { return storage.DoLoadDir(lock); },
     "Storage (%1%) dir open failure [3]"},
    {"RecreateDir", [](auto& storage, auto& lock) { return storage.RecreateDir(lock); }, nullptr},
    {"SaveDir", [](auto& storage, auto& lock) { return storage.SaveDir(lock); },
     "error writing storage (%1%) [5]"},
    {"AddResourceRecord",
     [](auto& storage, auto& lock) { return storage.AddResourceRecord("/a", false, lock); },
     "error writing storage (%1%) [5]"},
    {"DeleteResourceRecord",
     [](auto& storage, auto& lock) { return storage.DeleteResourceRecord("/a", false, lock); },
     "error writing storage (%1%) [5]"},
    {"MergeDir", [](auto& storage, auto& lock) { return storage.MergeDir(lock); }, nullptr},
};

TEST_F(TStorageTest, LogsThatItIsLocked)
{
    Configure("StDirLockTimeout=20\n");
    ASSERT_TRUE(Storage.LoadDir());
    const std::string before = Journal();
    const auto lock = TStorageLocker::VCreate(Storage, true);
    for (const TOperation& operation : kOperations) {
        TLogCapture log;
        TResStorage other = Another();
        EXPECT_FALSE(operation.Run(other, {})) << operation.Name;
        EXPECT_EQ(LogOf(log), TLines{"TResStorage::" + std::string(operation.Name) +
                                     "(): error locking storage (%1%) [5]"});
        EXPECT_EQ(log.Entries.at(0).Shown.substr(log.Entries.at(0).Shown.size() - 3), "(S)");
    }
    EXPECT_EQ(Journal(), before);
}

TEST_F(TStorageTest, LogsThatTheJournalIsBusyAndGivesUp)
{
    Configure("StDirLockTimeout=150\n");
    WriteJournal(Sealed(kJournalHead));
    const TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
    ASSERT_TRUE(static_cast<bool>(busy));
    for (const TOperation& operation : kOperations) {
        if (operation.NotOpened == nullptr)
            continue;
        TLogCapture log;
        const std::uint32_t start = QvGetTickCount();
        EXPECT_FALSE(operation.Run(Storage, {})) << operation.Name;
        EXPECT_GE(QvGetTickCount() - start, 150u) << operation.Name;
        const std::string prefix = "TResStorage::" + std::string(operation.Name) + "(): ";
        EXPECT_EQ(LogOf(log), (TLines{prefix + "Storage (%1%) dir busy, retrying [3]",
                                      prefix + operation.NotOpened}));
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

TEST_F(TStorageTest, DoesNotRetryOtherErrors)
{
    Temp.MakeFolder("s/$QvStorage.list");
    TLogCapture log;
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_FALSE(Storage.AddResourceRecord("/a", false));
    EXPECT_FALSE(Storage.SaveDir());
    EXPECT_EQ(LogOf(log),
              (TLines{"TResStorage::AddResourceRecord(): error writing storage (%1%) [5]",
                      "TResStorage::SaveDir(): error writing storage (%1%) [5]"}));
}

TEST_F(TStorageTest, WorksUnderAGivenLock)
{
    Configure("StDirLockTimeout=20\nStDirChangeCount2Merge=1\n");
    const std::string two = Sealed(kJournalHead + "/A?a\r\n") + Sealed("/B?b\r\n");
    for (const TOperation& operation : kOperations) {
        const std::string name = operation.Name;
        const bool reads = name == "LoadDir" || name == "DoLoadDir";
        // A rewrite that loading wants goes under the same lock, so few blocks for the readers.
        WriteJournal(reads ? Sealed(kJournalHead) : two);
        const auto shared = TStorageLocker::VCreate(Storage, false);
        EXPECT_TRUE(operation.Run(Storage, shared)) << name;
        EXPECT_EQ(shared->IsExclusive(), !reads) << name;
        EXPECT_TRUE(operation.Run(Storage, shared)) << name << " under an exclusive lock";
        EXPECT_EQ(shared->IsExclusive(), !reads) << name;
    }
}

TEST_F(TStorageTest, WritesNothingUnderALockThatOthersShare)
{
    Configure("StDirLockTimeout=20\nStDirChangeCount2Merge=1\n");
    const std::string two = Sealed(kJournalHead + "/A?a\r\n") + Sealed("/B?b\r\n");
    WriteJournal(two);
    const auto reader = TStorageLocker::VCreate(Storage, false);
    const auto shared = TStorageLocker::VCreate(Storage, false);
    for (const TOperation& operation : kOperations) {
        const std::string name = operation.Name;
        const bool reads = name == "LoadDir" || name == "DoLoadDir";
        TLogCapture log;
        EXPECT_EQ(operation.Run(Storage, shared), reads) << name;
        const std::string refused = reads ? "SaveDir" : name;
        EXPECT_EQ(LogOf(log),
                  TLines{"TResStorage::" + refused + "(): error locking storage (%1%) [5]"});
        EXPECT_TRUE(*shared) << name << ": the shared hold stays";
    }
    EXPECT_EQ(Journal(), two);
}
} // namespace
