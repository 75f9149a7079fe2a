// "qvres journal" on the storage folder "s"; "j" is that command, "$J" its journal.
#include <memory>
#include <thread>

#include "QvStd/Clock.h"
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
        ASSERT_EQ(Answer("qvres --var var setup"), "");
        m_temp.Write("var/Config/ResourceManager.x-ini", lines);
    }
};

TEST_F(TJournalCommandTest, ChangesAndPrints)
{
    Expect({{"j verify s/; j add s/ /Sub/b; j add s /Sub/; j load s", // the first change stays, too
             "missing\n1/SUB/\tSub\n/SUB/B\tb\n"},
            {"j remove s/ /sub/; j remove s/ /sub/", "1: the journal has no record of /sub/"},
            {"j add s /x; q --json journal load s; q --json journal verify s",
             R"([{"id":"/SUB/B","name":"b"},{"id":"/X","name":"x"}])"
             "\n{\"records\":2,\"state\":\"whole\"}\n"},
            {R"(j merge s; tail -c +12 "$J" | head -n -1)", ";QV5Dir\r\n/SUB/B?b\r\n/X?x\r\n"},
            {"touch s/content/a.txt; j rebuild s; j load s", "/A.TXT\t/a.txt\n"},
            {"ln -s home/.. link; cd a; j load ../link/s//.; cd ..; ls | grep ^s",
             "/A.TXT\t/a.txt\ns\ns\\$QvStorage.lock\n"}, // one lock for all spellings ...
            {"mkdir -p b/deep; ln -s b/deep deep; j load deep/../../s", "/A.TXT\t/a.txt\n"},
            {"ln -s s other; j load a/../other; ls | grep ^o", // ... but that of a link
             "/A.TXT\t/a.txt\nother\nother\\$QvStorage.lock\nout\n"}});
}

TEST_F(TJournalCommandTest, VerifiesWithoutChanging)
{
    const std::string verify = R"(cp "$J" kept; j verify s; cmp "$J" kept)";
    Expect({{R"(j add s /A; rm s?*lock; cp "$J" whole;)" + verify, "whole\n"},
            {R"(printf '/B?b\r\n' >>"$J";)" + verify, "torn tail\n1"},
            {R"(printf '*0\r\n' >>"$J";)" + verify, "damage at byte 48\n1"},
            {R"(cp whole "$J"; printf '/B?' >>"$J";)" + verify, "torn tail\n1"},
            {R"(: >"$J";)" + verify, "bad signature\n1"},
            {"ls | grep lock", ""},
            // The note of the last holder stays, too.
            {"j add s /A; cp s?*lock kept; : >\"$J\"; j verify s; cmp s?*lock kept",
             "bad signature\n1"}});
    Configure("StDirLockTimeout=20\n");
    auto writer = std::make_unique<TQvLockFile>(m_temp / "s\\$QvStorage.lock", true, "somebody", 0);
    for (const std::string operation : {"verify s", "load s", "add s /A", "merge s"})
        Expect({{"qvres --var var journal " + operation,
                 "1: cannot lock $T/s\\$QvStorage.lock: Resource temporarily unavailable"}});
    // A journal that is only just being written is not called torn.
    std::thread writing([&] {
        QvSleep(100);
        EXPECT_EQ(std::system(R"(cp "$T/whole" "$T/s/\$QvStorage.list")"), 0);
        writer.reset();
    });
    Expect({{"j verify s", "whole\n"}});
    writing.join();
}

TEST_F(TJournalCommandTest, TellsWhyTheJournalDoesNotOpen)
{
    Configure("StDirLockTimeout=20\n");
    Expect({{"j add s /A; qvres --var var journal load s", "/A\tA\n"}});
    const std::string notRead =
        ": cannot open or read $T/s/$QvStorage.list (another program may keep it for itself)";
    const std::string eio =
        R"(export ASAN_OPTIONS=detect_leaks=0; cp "$J" kept; strace -o trace -P "$T/$J" )"
        "-e inject=pread64:error=EIO:when=1 $QVRES journal ";
    // A rebuild would lose the record, which has no content.
    for (const std::string call : {"load s", "add s /B", "remove s /A", "merge s"}) {
        {
            const TQvFileStream busy(TQvPath(m_temp / "s/$QvStorage.list"), kQvOpenReadWrite, 0);
            Expect({{"qvres --var var journal " + call, "1" + notRead}});
        }
        Expect({{eio + call + R"( 2>&1; cmp "$J" kept)", "qvres" + notRead + "\n"}});
    }
    Expect({{R"(rm "$J"; ln -s '$QvStorage.list' "$J"; j load s)",
             "1: cannot open $T/s/$QvStorage.list: Too many levels of symbolic links"}});
}

TEST_F(TJournalCommandTest, CutsHalfALineOffBeforeItAppends)
{
    Expect({{R"(j add s /A; printf '/B?' >>"$J"; j add s /C; j load s)", "/A\tA\n/C\tC\n"}});
}

TEST_F(TJournalCommandTest, TellsWhatItLeavesOut)
{
    const std::string left = ": TResStorage::RecreateDir(): Storage ($T/s) cannot hold the id ";
    Expect(
        {{"cd s/content; touch a b? c?; j rebuild $T/s", "0" + left + "(/b?)\n" + left + "(/c?)"}});
    Configure("StDirLockTimeout\n");
    Expect({{"qvres --var var journal load s",
             "/A\t/a\n0: \"$T/var/Config/ResourceManager.x-ini\" is not well formed: line 1: it is "
             "no key (there is no \"=\"), no section and no comment."}});
}

TEST_F(TJournalCommandTest, Fails)
{
    for (const std::string id : {"", "b", "/", "//", "/b//", "/b|"})
        Expect({{"j add s '" + id + "'", "1: no valid id of a resource or folder: " + id}});
    Expect({{"j add s /b?",
             "1: TResStorage::AddResourceRecord(): Storage ($T/s) cannot hold the id (/b?)"},
            {"j load nowhere", "1: no such folder: $T/nowhere"},
            {"j load ''", R"(1: no such folder: "")"},
            {"j load /", R"(1: "/" cannot be a storage folder)"},
            {R"(mkdir 'a\b'; j load 'a\b')",
             R"(1: a storage folder's path cannot hold a backslash: $T/a\b)"},
            {"j add s /x; j load s >/dev/full",
             "1: cannot write to the standard output: No space left on device"}});
    for (const char* arguments : {"", "load", "add s", "load s /A", "mend s"})
        EXPECT_EQ(Answer(std::string("j ") + arguments).substr(0, 3), "2: ") << arguments;
}

TEST_F(TJournalCommandTest, TellsThatTheDiskIsFull)
{
    // Room for two more bytes, for none, and for less than a merge or a load writes anew.
    const std::string full = "trap '' XFSZ; ulimit -f 2; ", fuller = "trap '' XFSZ; ulimit -f 1; ";
    const std::string asItWas = " could not be written to $T/s/$QvStorage.list, which is as it was";
    const std::string torn =
        "1: the journal was not written whole (torn tail): $T/s/$QvStorage.list";
    const std::string zeros(487, '0');
    Expect({{"j add s /a" + zeros + R"(; wc -c <"$J"; cp "$J" kept)", "1022\n"},
            {full + R"(j add s /B; cmp "$J" kept)", "1: the change of /B" + asItWas},
            {"j rebuild s; j add s /aa" + zeros + R"(; wc -c <"$J"; cp "$J" kept)", "1024\n"},
            {full + "j remove s /AA" + zeros + R"(; cmp "$J" kept)",
             "1: the change of /AA" + zeros + asItWas},
            {fuller + "j merge s", torn}});
    Configure("StDirChangeCount2Merge=0\n");
    Expect({{R"(cp kept "$J";)" + fuller + "qvres --var var journal load s", torn}});
}

/// Traced calls of the journal program, in "trace".
const std::string kTrace = "export ASAN_OPTIONS=detect_leaks=0; strace -yo trace -e "
                           "pwrite64,fdatasync,ftruncate,close ";

TEST_F(TJournalCommandTest, SyncsBeforeItAnswers)
{
    const std::string calls =
        R"(; grep -F 's/$QvStorage.list>' trace | sed -n '/^pwrite/,$s/(.*//p')";
    Expect({{"j add s /A", ""}});
    // The last one closes the file after the look at what was written.
    for (const char* call : {"$QVRES journal add s /B", "$QVRES journal merge s"})
        Expect({{kTrace + call + calls, "pwrite64\nfdatasync\nclose\nclose\n"}});
    const auto failing = [](const std::string& call) {
        return kTrace + "-e inject=" + call + " 2>&1; echo $?";
    };
    const std::string notWritten =
        "qvres: TResStorage::SaveDir(): error writing storage ($T/s)\n1\n";
    const std::string noSync = "fdatasync:error=EIO $QVRES ";
    Expect({{failing(noSync + "journal add s /C"),
             "qvres: the change of /C could not be written to $T/s/$QvStorage.list\n1\n"},
            {failing(noSync + "journal merge s"), notWritten},
            {R"(rm "$J"; )" + failing(noSync + "journal load s"), notWritten},
            {R"(printf / >>"$J"; )" + failing("ftruncate:error=EIO $QVRES journal add s /A"),
             "qvres: cannot cut half a line off $T/s/$QvStorage.list\n1\n"}});
    Configure("StDirChangeCount2Merge=0\n");
    Expect({{failing(noSync + "--var var journal load s"), notWritten}});
}

TEST_F(TJournalCommandTest, ABreakLeavesNoHalfJournal)
{
    Configure("StDirChangeCount2Merge=0\n");
    const std::string broken = kTrace + R"(-P "$T/$J" -e inject=ftruncate:signal=)";
    const std::string then = R"( s >dead 2>&1; test $? -gt 128; echo $?; j verify s; wc -l <"$J")";
    Expect({{"cd s/content; touch A B; j rebuild ..; cd ../..", ""}});
    for (const char* call : {"INT $QVRES journal merge", "TERM $QVRES journal rebuild",
                             "HUP $QVRES --var var journal load"})
        Expect({{broken + call + then, "0\nwhole\n5\n"}});
    // Before the program that does the work has taken over, too.
    Expect({{"strace -o trace -e inject=readlink:signal=INT $QVRES journal add s /C >dead 2>&1; "
             R"(test $? != 0; echo $?; grep -c C? "$J")",
             "0\n0\n"}});
}
