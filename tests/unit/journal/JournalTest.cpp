#include "JournalFixture.h"

#include <filesystem>
#include <functional>
#include <tuple>

#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/FileStream.h"
#include "support/ChildProcess.h"
#include "support/FolderTree.h"
#include "support/Thrown.h"

namespace
{
using TLines = std::vector<std::string>;

/// Texts of the log as written, each with its level: "text [5]".
TLines LogOf(const TLogCapture& log)
{
    TLines lines;
    for (const TLogCapture::TEntry& entry : log.Entries)
        lines.push_back(entry.Text + " [" + std::to_string(entry.Level) + "]");
    return lines;
}

const std::string kEmpty = Sealed(kJournalHead);
const std::string kTwoBlocks = Sealed(kJournalHead + "/A?a\r\n") + Sealed("/B?b\r\n");
const std::string kCannotHold = "(): Storage (%1%) cannot hold the id (%2%) [";
const std::string kNotRead = "TResStorage::DoLoadDir(): Storage (%1%) dir open failure [3]";

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
    EXPECT_EQ(whole.find_first_not_of("0123456789ABCDEF", 1), 9u);
    EXPECT_EQ(whole, Sealed(':' + whole.substr(1, 10) +
                            ";QV5Dir\r\n/A\xC3\xA4?a\xC3\xA4\r\n/DATA/?Data\r\n"));
}

TEST_F(TStorageTest, ReplaysLines)
{
    const struct
    {
        const char* Guards;
        std::string Block;
        TEntries Entries;
    } kRows[] = {
        {"last name wins", "/A?a\r\n/A?b\r\n", {{"/A", "b"}}},
        {"added, removed, added", "/A?a\r\n-A\r\n-A\r\n/A?c\r\n", {{"/A", "c"}}},
        {"split at the last ?", "/x?y?z\r\n", {{"/x?y", "z"}}},
        {"no ?", "/AB\r\n/C?c\r\n", {{"/C", "c"}}},
        {"trimmed, CR dropped, LF alone taken", "/A? a b\t \r\n-A \n/B?b\n", {{"/B", "b"}}},
        {"ids are not changed, in byte order",
         "/b?1\r\n/a?2\r\n/B?3\r\n/\xFF?4\r\n",
         {{"/B", "3"}, {"/a", "2"}, {"/b", "1"}, {"/\xFF", "4"}}},
        {"unknown lines and stamps", "!x\r\n\r\n:1\r\n;2\r\n /A?a\r\n/B?\r\n", {{"/B", ""}}},
    };
    for (const auto& row : kRows) {
        WriteJournal(Sealed(kJournalHead + row.Block));
        EXPECT_TRUE(Storage.DoLoadDir()) << row.Guards;
        EXPECT_EQ(Copied(Storage.Dir()), row.Entries) << row.Guards;
    }
}

TEST_F(TStorageTest, PiecesDoNotChangeTheResult)
{
    // Longer than any buffer: lines that cross the end of a piece, and one that fills several.
    std::string block = ";QV5Dir\r\n";
    for (int i = 10000; i < 40000; ++i)
        block += "/ID" + std::to_string(i) + "?name\r\n";
    block += "/LONG?" + std::string(600000, 'n') + "\r\n";
    WriteJournal(Sealed(":0123ABCD\r\n" + block) + Sealed("/ID10000?other\r\n"));
    ASSERT_TRUE(Storage.DoLoadDir());
    ASSERT_TRUE(Storage.SaveDir());
    block.replace(block.find("?name") + 1, 4, "other");
    const std::string saved = Journal();
    EXPECT_TRUE(saved == Sealed(saved.substr(0, 11) + block));
    EXPECT_EQ(ReadJournal(saved + "-A\r\n*0\r\n", nullptr).SealedBytes, saved.size());
    QvSleep(2);
    ASSERT_TRUE(Storage.SaveDir());
    EXPECT_NE(Journal().substr(0, 11), saved.substr(0, 11)) << "no two rewrites are alike";
}

// A journal that cannot be read is neither empty nor broken. Each row: a link, its target, the
// error.
TEST_F(TStorageTest, ChangesNothingThatItCannotRead)
{
    const std::tuple<const char*, const char*, int> kRows[] = {
        {"$QvStorage.list", "/proc/self/mem", EIO}, // has no byte 0
        {"$QvStorage.list", "$QvStorage.list", ELOOP},
        {"$QvStorage.list", "volume-that-is-not-there", ENOENT},
        {"$QvStorage.list", ".", EISDIR},
        {"content", "$QvStorage.list", ENOTDIR},
        {"content", "volume-that-is-not-there", ENOENT},
        {"content", "content", ENOENT}}; // an endless link
    const std::string torn = Sealed(kJournalHead + "/A?a\r\n") + "/B?b\r\n";
    for (const auto& [name, target, error] : kRows) {
        const bool isContent = name == std::string("content");
        MakeTree(Storage.Folder, std::string(name) + ">" + target);
        isContent ? WriteJournal(torn) : WriteContent("x");
        TLogCapture log;
        EXPECT_FALSE(Storage.LoadDir()) << target;
        EXPECT_FALSE(Storage.MergeDir()) << target;
        EXPECT_EQ(Storage.Failure().Error(), error) << target;
        EXPECT_EQ(LogOf(log) == (TLines{kNotRead, kNotRead}), !isContent) << target;
        EXPECT_EQ(Storage.DirChanged(), !isContent);
        EXPECT_EQ(NamesIn(Storage.Folder), (TLines{"$QvStorage.list", "content"}));
        if (isContent) {
            EXPECT_NE(log.Entries.at(0).Shown.find(QvErrorText(error)), std::string::npos);
            EXPECT_FALSE(Storage.RecreateDir());
            EXPECT_TRUE(Storage.Dir().empty()) << "no half listing that could be saved";
            EXPECT_EQ(Journal(), torn);
        }
    }
}

TEST_F(TStorageTest, NoticesChangesByOthers)
{
    EXPECT_FALSE(Storage.LoadDirUpdate());
    TResStorage other = Another();
    ASSERT_TRUE(other.LoadDir());
    EXPECT_TRUE(Storage.DirChanged()) << "never read";
    ASSERT_TRUE(Storage.LoadDir());
    ASSERT_TRUE(Storage.AddResourceRecord("/a", false));
    EXPECT_FALSE(Storage.DirChanged()) << "own append";
    EXPECT_TRUE(other.DirChanged()) << "another's append";
    ASSERT_TRUE(other.AddResourceRecord("/b", false));
    EXPECT_TRUE(other.DirChanged()) << "its own append does not hide that of the other";
    ASSERT_TRUE(other.LoadDir());
    EXPECT_FALSE(other.DirChanged());
    std::filesystem::last_write_time(File(), {});
    EXPECT_TRUE(other.DirChanged()) << "same size, another time";
}

TEST_F(TStorageTest, RewritesAboveTheThreshold)
{
    Storage.Settings.ChangeCount2Merge = 2;
    WriteJournal(kTwoBlocks);
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Journal(), kTwoBlocks);
    Temp.Write("s/.$QvStorage.list.new", "left by a killed rewrite");
    WriteJournal(kTwoBlocks + Sealed("-A\r\n"));
    ASSERT_EQ(chmod(File().c_str(), 0640), 0);
    std::filesystem::rename(File(), Temp / "elsewhere");
    std::filesystem::create_symlink("../elsewhere", File());
    EXPECT_TRUE(Storage.DoLoadDir());
    EXPECT_EQ(Journal(), Sealed(Journal().substr(0, 20) + "/B?b\r\n"));
    EXPECT_EQ(Storage.DirSize(), Journal().size());
    EXPECT_EQ(Copied(Storage.Dir()), (TEntries{{"/B", "b"}}));
    EXPECT_TRUE(std::filesystem::is_symlink(File()));
    EXPECT_EQ(static_cast<int>(std::filesystem::status(Temp / "elsewhere").permissions()), 0640);
    EXPECT_FALSE(Storage.DirChanged());
}

TEST_F(TStorageTest, RebuildsFromTheContentFolderAndKeepsWhatItReplaces)
{
    for (const char* name : {"a.txt", "Sub/b.txt", "Sub/c.MeTa", ".META", "meta", "back\\Slash",
                             "evil?name", "evil\nfolder/x"})
        WriteContent(name);
    Temp.MakeFolder("s/content/Empty");
    Temp.MakeFolder("elsewhere/inner");
    std::filesystem::create_symlink("../../elsewhere", Temp / "s/content/Link");
    const TEntries expected = {{"/A.TXT", "/a.txt"},        {"/BACK/SLASH", "Slash"},
                               {"/EMPTY/", "/Empty"},       {"/LINK/", "/Link"},
                               {"/META", "/meta"},          {"/SUB/", "/Sub"},
                               {"/SUB/B.TXT", "/Sub/b.txt"}};
    const std::string torn =
        Sealed(kJournalHead + "/1?1\r\n/2?2\r\n") + Sealed("-1\r\n") + "/3?3\r\n";
    WriteJournal(torn);
    TLogCapture log;
    ASSERT_TRUE(Storage.LoadDir());
    EXPECT_EQ(Copied(Storage.Dir()), expected);
    ASSERT_EQ(log.Entries.size(), 4u);
    EXPECT_EQ(LogOf(log).front(), "TResStorage::RecreateDir" + kCannotHold + "6]");
    EXPECT_EQ(log.Entries[3].Kind, TQvLogKind::Warning);
    EXPECT_EQ(
        log.Entries[3].Shown,
        "TResStorage::LoadDir(): Storage (S) was broken (torn tail) and rebuilt from its "
        "content: 1 records were sealed in 58 bytes, 7 are there now; the old journal is kept "
        "as " +
            Damaged());
    WriteJournal("");
    ASSERT_TRUE(Storage.LoadDir());
    EXPECT_EQ(ReadFile(Damaged()), torn) << "an empty journal is not worth keeping";
}

TEST_F(TStorageTest, RefusesIdsThatAJournalCannotRepresent)
{
    ASSERT_TRUE(Storage.LoadDir());
    const std::string before = Journal();
    const auto refuses = [this](const std::string& id, bool isFolder) {
        TLogCapture log;
        EXPECT_FALSE(Storage.AddResourceRecord(id, isFolder)) << id;
        EXPECT_FALSE(Storage.DeleteResourceRecord(id, !isFolder)) << id;
        EXPECT_EQ(LogOf(log), (TLines{"TResStorage::AddResourceRecord" + kCannotHold + "5]",
                                      "TResStorage::DeleteResourceRecord" + kCannotHold + "5]"}));
    };
    for (const char* id : {"", "a", "/a?b", "/a\nb", "/a\x1F", "/ a", "/", "/a/"})
        refuses(id, false);
    refuses("/a ", true);
    EXPECT_TRUE(Storage.DeleteResourceRecord("/a ", true)) << "a rebuild may have recorded it";
    EXPECT_EQ(Journal(), before + Sealed("-A /\r\n"));
}

TEST_F(TStorageTest, LockingNeedsAnOwner)
{
    Storage.Settings.Owner.reset();
    EXPECT_EQ(ThrownText([this] { Storage.LoadDir(); }), "@QvConfigData is not initialized");
}

struct TOperation
{
    std::string Name;
    std::function<bool(TResStorage&, const TResStorage::TLocker&)> Run;
    std::string NotOpened; ///< empty: it opens no file itself
    bool Reads = false;

    std::string Prefix() const { return "TResStorage::" + Name + "(): "; }
};

bool AddRecord(TResStorage& storage, const TResStorage::TLocker& lock)
{
    return storage.AddResourceRecord("/a", false, lock);
}
bool DeleteRecord(TResStorage& storage, const TResStorage::TLocker& lock)
{
    return storage.DeleteResourceRecord("/a", false, lock);
}

const std::string kNotWritten = "error writing storage (%1%) [5]";
const std::string kNotLocked = "error locking storage (%1%) [5]";
const TOperation kOperations[] = {
    {"LoadDir", &TResStorage::LoadDir, "", true},
    {"DoLoadDir", &TResStorage::DoLoadDir, "Storage (%1%) dir open failure [3]", true},
    {"RecreateDir", &TResStorage::RecreateDir, ""},
    {"SaveDir", &TResStorage::SaveDir, kNotWritten},
    {"AddResourceRecord", AddRecord, kNotWritten},
    {"DeleteResourceRecord", DeleteRecord, kNotWritten},
    {"CutTornTail", &TResStorage::CutTornTail, kNotWritten},
    {"MergeDir", &TResStorage::MergeDir, ""},
};

TEST_F(TStorageTest, LogsThatItIsLockedOrBusyAndGivesUp)
{
    WriteJournal(kTwoBlocks);
    Storage.Settings.LockTimeout = 20;
    auto lock = TStorageLocker::VCreate(Storage, true);
    for (const TOperation& operation : kOperations) {
        TLogCapture log;
        EXPECT_FALSE(operation.Run(Storage, {})) << operation.Name;
        EXPECT_EQ(Storage.Failure().Error(), EAGAIN);
        EXPECT_EQ(LogOf(log), TLines{operation.Prefix() + kNotLocked});
        EXPECT_EQ(log.Entries.at(0).Shown, operation.Prefix() + "error locking storage (S)");
    }
    lock.reset();
    Storage.Settings.LockTimeout = 150;
    const TQvFileStream busy(TQvPath(File()), kQvOpenReadWrite, 0);
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
    EXPECT_EQ(Journal(), kTwoBlocks);
}

TEST_F(TStorageTest, WorksUnderAGivenLock)
{
    Storage.Settings = {20, 1, "PC"};
    for (const TOperation& operation : kOperations) {
        auto holder = TStorageLocker::VCreate(Storage, true);
        auto refused = TStorageLocker::VCreate(Storage, false);
        holder.reset();
        EXPECT_EQ(operation.Run(Storage, refused), !operation.Reads)
            << operation.Name << ": only a writer tries once more";
        refused.reset();
        // Few blocks for the readers: loading more would rewrite, under the same lock.
        WriteJournal(operation.Reads ? kEmpty : kTwoBlocks);
        const auto shared = TStorageLocker::VCreate(Storage, false);
        for (int i = 0; i < 2; ++i) { // again, with the lock that the operation has left
            EXPECT_TRUE(operation.Run(Storage, shared)) << operation.Name;
            EXPECT_EQ(shared->IsExclusive(), !operation.Reads) << operation.Name;
        }
    }
}

TEST_F(TStorageTest, WritesNothingUnderALockThatOthersShareOrThatWasReplaced)
{
    Storage.Settings = {20, 1, "PC"};
    WriteJournal(kTwoBlocks);
    auto reader = TStorageLocker::VCreate(Storage, false);
    const auto shared = TStorageLocker::VCreate(Storage, false);
    for (const bool isReplaced : {false, true}) {
        for (const TOperation& operation : kOperations) {
            TLogCapture log;
            EXPECT_EQ(operation.Run(Storage, shared), operation.Reads) << operation.Name;
            const std::string refused =
                operation.Reads ? "TResStorage::SaveDir(): " : operation.Prefix();
            EXPECT_EQ(LogOf(log), TLines{refused + kNotLocked});
            const int error = isReplaced ? ESTALE : EAGAIN;
            EXPECT_EQ(Storage.Failure().Error(), operation.Reads ? 0 : error) << operation.Name;
            EXPECT_TRUE(*shared) << operation.Name;
            EXPECT_FALSE(shared->IsExclusive()) << operation.Name;
        }
        reader.reset();
        unlink(Lock().c_str());
    }
    EXPECT_EQ(Journal(), kTwoBlocks);
    // An exclusive lock that was replaced later: an append is repeated under a new one.
    const auto exclusive = TStorageLocker::VCreate(Storage, true);
    unlink(Lock().c_str());
    EXPECT_FALSE(Storage.SaveDir(exclusive));
    EXPECT_EQ(Storage.Failure().Error(), ESTALE);
    EXPECT_EQ(Journal(), kTwoBlocks);
    EXPECT_TRUE(Storage.AddResourceRecord("/c", false, exclusive));
    EXPECT_TRUE(exclusive->IsAtPath());
    EXPECT_TRUE(exclusive->IsExclusive());
    EXPECT_EQ(Journal(), kTwoBlocks + Sealed("/C?c\r\n") + Sealed("/C?c\r\n"));
}

TEST_F(TStorageTest, DoesNotWaitWherePermissionsAreMissing)
{
    WriteJournal(kTwoBlocks);
    ASSERT_EQ(chmod(Temp.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod(File().c_str(), 0444), 0);
    EXPECT_TRUE(PassesInChild([this] {
        ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0) << "root may do everything";
        TLogCapture log;
        EXPECT_FALSE(Storage.AddResourceRecord("/a", false));
        EXPECT_EQ(LogOf(log), TLines{"TResStorage::AddResourceRecord(): " + kNotWritten});
    }));
}
} // namespace
