// The program behind "qvres journal".
#include "StorageFixture.h"

#include <cstdio>
#include <cstdlib>
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
    EXPECT_EQ(Run("load s/"), "0 /A.TXT\t/a.txt\n");
    EXPECT_EQ(Run("add s/ /Sub/b"), "0 ");
    EXPECT_EQ(Run("add s /Sub/"), "0 ");
    EXPECT_EQ(Run("load s/"), "0 /A.TXT\t/a.txt\n/SUB/\tSub\n/SUB/B\tb\n");
    EXPECT_EQ(Run("remove s/ /sub/"), "0 ");
    EXPECT_EQ(Run("remove s/ /sub/"), "1 qvres: the journal has no record of /sub/\n");
    EXPECT_EQ(Run("--json load s/").substr(0, 2), "0 ");
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
}

TEST_F(TProgramTest, Fails)
{
    WriteContent("a");
    const std::string failed = "1 qvres: ", folder = "(" + (Temp / "s") + ")";
    EXPECT_EQ(Run("add s b"), failed + "TResStorage::AddResourceRecord(): Storage " + folder +
                                  " cannot hold the id (b)\n");
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
    WriteJournal(Sealed(kJournalHead + "!" + std::string(988, 'x') + "\r\n"));
    ASSERT_EQ(Journal().size(), 1022u);
    EXPECT_EQ(Run("add s /B", "trap '' XFSZ; ulimit -f 2;"),
              "1 qvres: the journal was not written whole (torn tail): " + File() + "\n");
}

TEST_F(TProgramTest, SyncsBeforeItAnswers)
{
    if (std::system("strace -o /dev/null true 2>/dev/null") != 0)
        GTEST_SKIP() << "processes may not be traced here";
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
        EXPECT_EQ(calls, "close pwrite64 fdatasync close close ") << operation << " between reads";
    }
}
} // namespace
