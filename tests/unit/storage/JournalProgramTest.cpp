// The program behind "qvres journal".
#include "StorageFixture.h"

#include <cstdio>
#include <sstream>

#include <sys/wait.h>

namespace
{
using TNames = std::vector<std::string>;

class TProgramTest : public TStorageTest
{
protected:
    /// Runs it in the folder above the storage "s"; "status output", with standard error at last.
    std::string Run(const std::string& arguments, const std::string& before = "")
    {
        const std::string command = "cd '" + Temp.Path() + "'; " + before +
                                    " '" QVRES_JOURNAL "' " + arguments +
                                    " 2>error; s=$?; cat error; exit $s";
        std::string output;
        FILE* const pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            output.append(buffer, got);
        return std::to_string(WEXITSTATUS(pclose(pipe))) + " " + output;
    }
};

TEST_F(TProgramTest, ChangesAndPrints)
{
    WriteContent("a.txt");
    EXPECT_EQ(Run("add s/ /Sub/b"), "0 ");
    EXPECT_EQ(Run("load s/"), "0 /A.TXT\t/a.txt\n/SUB/B\tb\n") << "as a first change, too";
    EXPECT_EQ(Run("add s /Sub/"), "0 ");
    EXPECT_EQ(Run("load s/"), "0 /A.TXT\t/a.txt\n/SUB/\tSub\n/SUB/B\tb\n");
    EXPECT_EQ(Run("remove s/ /sub/"), "0 ");
    EXPECT_EQ(Run("remove s/ /sub/"), "1 qvres: the journal has no record of /sub/\n");
    EXPECT_EQ(Run("--json load s/"), "0 [{\"id\":\"/A.TXT\",\"name\":\"/a.txt\"},"
                                     "{\"id\":\"/SUB/B\",\"name\":\"b\"}]\n");
    EXPECT_EQ(Run("--json verify s/"), "0 {\"records\":2,\"state\":\"whole\"}\n");
    EXPECT_EQ(Run("merge s/"), "0 ");
    EXPECT_EQ(Journal(), Sealed(Journal().substr(0, 20) + "/A.TXT?/a.txt\r\n/SUB/B?b\r\n"));
    EXPECT_EQ(Run("rebuild s/"), "0 ");
    EXPECT_EQ(Run("load s/"), "0 /A.TXT\t/a.txt\n");
    EXPECT_EQ(NamesIn(Temp.Path()), (TNames{"error", "s", "s\\$QvStorage.lock"}))
        << "one lock for all spellings of the folder";
}

TEST_F(TProgramTest, VerifiesWithoutChanging)
{
    const std::string whole = Sealed(kJournalHead + "/A?a\r\n");
    const std::pair<std::string, const char*> kRows[] = {
        {whole + Sealed("/B?b\r\n"), "0 whole\n"},
        {whole + "/B?b\r\n", "1 torn tail\n"},
        {whole + "/B?", "1 torn tail\n"},
        {whole + "/B?b\r\n*0\r\n" + Sealed("/C?c\r\n"), "1 damage at byte 37\n"},
        {"", "1 bad signature\n"},
    };
    EXPECT_EQ(Run("verify s/"), "1 missing\n");
    EXPECT_EQ(NamesIn(Temp / "s"), TNames());
    for (const auto& [journal, answer] : kRows) {
        WriteJournal(journal);
        EXPECT_EQ(Run("verify s/"), answer);
        EXPECT_EQ(Journal(), journal) << answer;
        EXPECT_EQ(NamesIn(Temp.Path()), (TNames{"error", "s"})) << "no lock left";
    }
    const std::string lock =
        Temp.Write("s\\$QvStorage.lock", "lock held by owner=me pid=1 time=2026-01-01T00:00:00Z\n");
    const std::string note = ReadFile(lock);
    EXPECT_EQ(Run("verify s"), "1 bad signature\n");
    EXPECT_EQ(ReadFile(lock), note);
    const TQvLockFile writer(lock, true, "somebody", 0);
    Configure("StDirLockTimeout=20\n");
    EXPECT_EQ(Run("verify s"),
              "1 qvres: cannot lock " + lock + ": Resource temporarily unavailable\n");
}

TEST_F(TProgramTest, CutsHalfALineOffBeforeItAppends)
{
    const std::string whole = Sealed(kJournalHead + "/A?a\r\n");
    for (const char* half : {"/B?", "*0"}) {
        WriteJournal(whole + half);
        EXPECT_EQ(Run("add s /C"), "0 ");
        EXPECT_EQ(Run("load s"), "0 /A\ta\n/C\tC\n") << "records without content, too";
    }
}

TEST_F(TProgramTest, TellsWhatItLeavesOut)
{
    for (const char* name : {"a", "b?", "c?"})
        WriteContent(name);
    const std::string storage = "(" + (Temp / "s") + ")";
    const std::string left = "qvres: TResStorage::RecreateDir(): Storage " + storage;
    EXPECT_EQ(Run("rebuild s"),
              "0 " + left + " cannot hold the id (/b?)\n" + left + " cannot hold the id (/c?)\n");
    Var.Write("Config/ResourceManager.x-ini", "StDirLockTimeout\n");
    const std::string answer = Run("load s");
    EXPECT_EQ(answer.find("0 /A\t/a\nqvres: \"" + Var.Path() + "/Config/ResourceManager.x-ini\""),
              0u)
        << answer;
}

TEST_F(TProgramTest, Fails)
{
    WriteContent("a");
    const std::string failed = "1 qvres: ", folder = "(" + (Temp / "s") + ")";
    EXPECT_EQ(Run("add s /b?"), failed + "TResStorage::AddResourceRecord(): Storage " + folder +
                                    " cannot hold the id (/b?)\n");
    for (const char* id : {"b", "/", "//", "/b//", "/b|"})
        EXPECT_EQ(Run("add s '" + std::string(id) + "'"),
                  failed + "no valid id of a resource or folder: " + id + "\n");
    EXPECT_EQ(Run("load nowhere"), failed + "no such folder: " + (Temp / "nowhere") + "\n");
    EXPECT_EQ(Run("load s", "exec 1>/dev/full;").substr(0, 2), "1 ");
    for (const char* arguments : {"", "load", "add s", "load s /A", "mend s"})
        EXPECT_EQ(Run(arguments).substr(0, 2), "2 ") << arguments;

    Configure("StDirLockTimeout=20\n");
    const auto lock = TStorageLocker::VCreate(Storage, true);
    EXPECT_EQ(Run("load s"),
              failed + "TResStorage::LoadDir(): error locking storage " + folder + "\n");
}

TEST_F(TProgramTest, TellsThatTheDiskIsFull)
{
    // Room for two bytes behind the journal.
    const std::string journal = Sealed(kJournalHead + "!" + std::string(988, 'x') + "\r\n");
    ASSERT_EQ(journal.size(), 1022u);
    WriteJournal(journal);
    const std::string full = "trap '' XFSZ; ulimit -f 2;";
    EXPECT_EQ(Run("add s /B", full), "1 qvres: the change of /B could not be written to " + File() +
                                         ", which is as it was\n");
    EXPECT_EQ(Journal(), journal);
    // No room for a single byte, nor for what a load writes anew.
    const std::string named = Sealed(kJournalHead + "/A?" + std::string(989, 'x') + "\r\n");
    WriteJournal(named);
    EXPECT_EQ(Run("remove s /a", full), "1 qvres: the change of /a could not be written to " +
                                            File() + ", which is as it was\n");
    EXPECT_EQ(Journal(), named);
    Configure("StDirChangeCount2Merge=0\n");
    EXPECT_EQ(Run("load s", "trap '' XFSZ; ulimit -f 1;"),
              "1 qvres: the journal was not written whole (torn tail): " + File() + "\n");
    WriteJournal(named);
    EXPECT_EQ(Run("merge s", "trap '' XFSZ; ulimit -f 1;"),
              "1 qvres: the journal was not written whole (torn tail): " + File() + "\n");
}

TEST_F(TProgramTest, SyncsBeforeItAnswers)
{
    WriteJournal(Sealed(kJournalHead));
    const std::string trace = "export ASAN_OPTIONS=detect_leaks=0;"
                              "strace -yo trace -e trace=write,pwrite64,fdatasync,close";
    for (const char* operation : {"add s /B", "merge s"}) {
        ASSERT_EQ(Run(operation, trace), "0 ");
        std::string calls;
        std::istringstream lines(ReadFile(Temp / "trace"));
        for (std::string line; std::getline(lines, line);)
            if (line.find("s/$QvStorage.list>") != std::string::npos)
                calls += line.substr(0, line.find('(')) + " ";
        // The one that follows belongs to the look at what was written.
        EXPECT_EQ(calls.substr(calls.find('p')), "pwrite64 fdatasync close close ") << operation;
    }
}
} // namespace
