// "qvres journal" on the storage folder "s"; "j" is that command, "$J" its journal.
#include "QvStd/FileStream.h"
#include "QvStd/LockFile.h"
#include "cli/QvresTest.h"

class TJournalCommandTest : public TQvresTest
{
protected:
    TJournalCommandTest() { m_temp.MakeFolder("s/content"); }

    /// The settings of the storage, as lines of "ResourceManager.x-ini".
    void Configure(const std::string& lines) const
    {
        Expect({{"qvres --var var setup"}});
        m_temp.Write("var/Config/ResourceManager.x-ini", lines);
    }
};

TEST_F(TJournalCommandTest, ChangesAndPrints)
{
    Expect({{"j verify s/; j add s/ /Sub/b; j add s /Sub/; j load s", // the first change stays, too
             "missing\n/SUB/\tSub\n/SUB/B\tb\n", "", 1},
            {"j remove s/ /sub/; j remove s/ /sub/", "", R"(the journal has no record of "/sub/")"},
            {"j add s /x; q --json journal load s; q --json journal verify s",
             R"([{"id":"/SUB/B","name":"b"},{"id":"/X","name":"x"}])"
             "\n{\"records\":2,\"state\":\"whole\"}\n"},
            {R"(j merge s; tail -c +12 "$J" | head -n -1)", ";QV5Dir\r\n/SUB/B?b\r\n/X?x\r\n"},
            {"touch s/content/a.txt; j rebuild s; j load s", "/A.TXT\t/a.txt\n"},
            {"ln -s home/.. link; cd a; j load ../link/s//.; cd ..; ls | grep ^s",
             "/A.TXT\t/a.txt\ns\ns\\$QvStorage.lock\n"}, // one lock for all spellings ...
            {"mkdir -p b/deep; ln -s b/deep deep; j load deep/../../s", "/A.TXT\t/a.txt\n"},
            {"ln -s s other; j load a/../other; ls | grep ^o", // ... but that of a link
             "/A.TXT\t/a.txt\nother\nother\\$QvStorage.lock\n"}});
}

TEST_F(TJournalCommandTest, VerifiesWithoutChanging)
{
    const std::string verify = R"(cp "$J" kept; j verify s; cmp "$J" kept)";
    Expect({{R"(j add s /A; rm s?*lock; cp "$J" whole;)" + verify, "whole\n"},
            {R"(printf '/B?b\r\n' >>"$J";)" + verify, "torn tail\n", "", 1},
            {R"(printf '*0\r\n' >>"$J";)" + verify, "damage at byte 48\n", "", 1},
            {R"(: >"$J";)" + verify, "bad signature\n", "", 1},
            {"ls | grep lock", ""},
            // The note stays, too.
            {"j load s >dead; cp s?*lock kept; : >\"$J\"; j verify s; cmp s?*lock kept",
             "bad signature\n",
             "TResStorage::LoadDir(): Storage ($T/s) was broken (bad signature) and rebuilt from "
             "its content: 0 records were sealed in 0 bytes, 0 are there now"}});
    Configure("StDirLockTimeout=20\n");
    const TQvLockFile lock(m_temp / "s\\$QvStorage.lock", true, "somebody", 0);
    for (const std::string operation : {"verify s", "load s", "add s /A", "merge s"})
        Expect({{"qvres --var var journal " + operation + " 2>&1 | sed 's/process .*/process/'",
                 "qvres: cannot lock $T/s\\$QvStorage.lock: it is locked by somebody (process\n",
                 "", 1}});
}

TEST_F(TJournalCommandTest, RepairsNothingThatItCouldNotRead)
{
    Configure("StDirLockTimeout=20\n");
    Expect({{"j add s /A; qvres --var var journal load s", "/A\tA\n"}});
    const auto fails = [this](const std::string& call, const std::string& why) {
        Expect({{R"(cp "$J" kept; )" + call + R"( journal load s 2>&1; cmp "$J" kept; ls s)",
                 "qvres: $T/s/$QvStorage.list: " + why + "\n$QvStorage.list\ncontent\n"}});
    };
    {
        const TQvFileStream busy(TQvPath(m_temp / "s/$QvStorage.list"), kQvOpenReadWrite, 0);
        fails("$QVRES --var var", "another process has locked it");
    }
    const std::string trace = "ASAN_OPTIONS=detect_leaks=0 strace -o trace -e trace=fsync,openat,"
                              R"(pread64 -P "$T/$J" -P "$T/s" -e inject=)";
    fails(trace + "pread64:error=ESTALE:when=1 $QVRES", "Stale file handle");
    fails(trace + "openat:error=ENFILE:when=1 $QVRES", "Too many open files in system");
    // The first break is remembered until the work is done.
    Expect({{trace + "fsync:signal=INT:when=1 $QVRES journal merge s; echo $?; j verify s",
             "0\nwhole\n"}});
}

TEST_F(TJournalCommandTest, CutsATornTailAndReportsBadSettings)
{
    Expect({{R"(j add s /A; printf '/B?' >>"$J"; j add s /C; j load s)", "/A\tA\n/C\tC\n"},
            {R"(printf '/B?b\r\n*1' >>"$J"; j load s; j verify s)", "/A\tA\n/C\tC\nwhole\n"},
            {R"(printf '/B?b\r\n' >>"$J"; j merge s; j load s; ls s)",
             "/A\tA\n/C\tC\n$QvStorage.list\ncontent\n"}});
    Configure("StDirLockTimeout\n");
    Expect({{"qvres --var var journal load s", "/A\tA\n/C\tC\n",
             "\"$T/var/Config/ResourceManager.x-ini\" is not well formed: line 1: "
             "expected name=value, [section] or a comment.",
             0}});
}

TEST_F(TJournalCommandTest, Fails)
{
    Expect({{"j add s ''", "", R"("" is not a valid resource id: it is empty)"},
            {"j add s '/b|'", "", R"("/b|" is not a valid resource id: it contains "|")"},
            {"j add s /", "", R"(a journal has no record of "/" itself)"},
            {"j add s /b?", "", R"(a journal cannot contain the id "/b?")"},
            {"j load nowhere", "", "no such folder: $T/nowhere"},
            {"j load /", "", R"("/" cannot be a storage folder)"},
            {"j verify a; ls a; j rebuild a; j verify a", "whole\n",
             "$T/a is no storage: it contains neither $QvStorage.list nor content"},
            {R"(mkdir 'a\b'; j load 'a\b')", "",
             R"(a storage folder's path must not contain a backslash: $T/a\b)"},
            {R"(rm "$J"; ln -s '$QvStorage.list' "$J"; j load s)", "",
             "$T/s/$QvStorage.list: Too many levels of symbolic links"}});
    for (const char* arguments : {"", "load", "add s", "load s /A", "mend s"})
        EXPECT_EQ(Answer(std::string("j ") + arguments).Status, 2) << arguments;
}
