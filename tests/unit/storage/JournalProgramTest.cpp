// The program behind "qvres journal".
#include "StorageFixture.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <sys/wait.h>

namespace
{
class TProgramTest : public TStorageTest
{
protected:
    struct TResult
    {
        int Status;
        std::string Output; ///< standard output, then standard error
        bool operator==(const TResult& other) const
        {
            return Status == other.Status && Output == other.Output;
        }
        friend std::ostream& operator<<(std::ostream& out, const TResult& result)
        {
            return out << result.Status << ": " << result.Output;
        }
    };

    /// Runs it on the storage, in the folder above it.
    TResult Run(const std::string& operation, const std::string& id = "",
                const std::string& before = "")
    {
        return Call(before, operation + " s/ " + (id.empty() ? "" : "'" + id + "'"));
    }
    TResult Call(const std::string& before, const std::string& arguments)
    {
        const std::string command = "cd '" + Temp.Path() + "'; " + before +
                                    " '" QVRES_JOURNAL "' " + arguments +
                                    " 2>error; s=$?; "
                                    "cat error; exit $s";
        TResult result = {-1, ""};
        FILE* const pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            result.Output.append(buffer, got);
        result.Status = WEXITSTATUS(pclose(pipe));
        return result;
    }
};

TEST_F(TProgramTest, ChangesAndPrints)
{
    WriteContent("a.txt");
    EXPECT_EQ(Run("load"), (TResult{0, "/A.TXT\t/a.txt\n"}));
    EXPECT_EQ(Run("add", "/Sub/b"), (TResult{0, ""}));
    EXPECT_EQ(Run("add", "/Sub/"), (TResult{0, ""}));
    EXPECT_EQ(Run("load"), (TResult{0, "/A.TXT\t/a.txt\n/SUB/\tSub\n/SUB/B\tb\n"}));
    EXPECT_EQ(Run("remove", "/sub/"), (TResult{0, ""}));
    EXPECT_EQ(Run("remove", "/sub/"), (TResult{1, "qvres: the journal has no record of /sub/\n"}));
    EXPECT_EQ(Run("--json load").Status, 0);
    EXPECT_EQ(Run("merge"), (TResult{0, ""}));
    EXPECT_EQ(Journal(), Sealed(Journal().substr(0, 20) + "/A.TXT?/a.txt\r\n/SUB/B?b\r\n"));
    EXPECT_EQ(Run("rebuild"), (TResult{0, ""}));
    EXPECT_EQ(Run("load"), (TResult{0, "/A.TXT\t/a.txt\n"}));
    EXPECT_EQ(NamesIn(Temp.Path()), (std::vector<std::string>{"error", "s", "s\\$QvStorage.lock"}))
        << "one lock for all spellings of the folder";
}

TEST_F(TProgramTest, VerifiesWithoutChanging)
{
    const std::string whole = Sealed(kJournalHead + "/A?a\r\n");
    const struct
    {
        std::string Journal;
        const char* Finding;
    } kRows[] = {
        {whole + Sealed("/B?b\r\n"), "whole"},
        {whole + "/B?b\r\n", "torn tail"},
        {whole + "/B?", "torn tail"},
        {whole + "/B?b\r\n*0\r\n" + Sealed("/C?c\r\n"), "damage at byte 37"},
        {"", "bad signature"},
        {whole.substr(1), "bad signature"},
    };
    EXPECT_EQ(Run("verify"), (TResult{1, "missing\n"}));
    EXPECT_EQ(NamesIn(Temp / "s"), std::vector<std::string>());
    for (const auto& row : kRows) {
        WriteJournal(row.Journal);
        const TResult expected = {row.Finding == std::string("whole") ? 0 : 1,
                                  row.Finding + std::string("\n")};
        EXPECT_EQ(Run("verify"), expected);
        EXPECT_EQ(Journal(), row.Journal) << row.Finding;
        EXPECT_EQ(NamesIn(Temp.Path()), (std::vector<std::string>{"error", "s"})) << "no lock left";
    }
}

TEST_F(TProgramTest, Fails)
{
    WriteContent("a");
    EXPECT_EQ(Run("add", "b"), (TResult{1, "qvres: TResStorage::AddResourceRecord(): Storage (" +
                                               (Temp / "s") + ") cannot hold the id (b)\n"}));
    EXPECT_EQ(Call("", "load nowhere"),
              (TResult{1, "qvres: no such folder: " + (Temp / "nowhere") + "\n"}));
    EXPECT_EQ(Run("load", "", "exec 1>/dev/full;").Status, 1);
    for (const char* arguments : {"", "load", "add s", "load s /A", "mend s"})
        EXPECT_EQ(Call("", arguments).Status, 2) << arguments;

    Configure("StDirLockTimeout=20\n");
    const auto lock = TStorageLocker::VCreate(Storage, true);
    EXPECT_EQ(Run("load"), (TResult{1, "qvres: TResStorage::LoadDir(): error locking storage (" +
                                           (Temp / "s") + ")\n"}));
}

TEST_F(TProgramTest, TellsThatTheDiskIsFull)
{
    std::string records = kJournalHead;
    while (records.size() < 1000)
        records += "/A" + std::to_string(records.size()) + "?a\r\n";
    records += "!" + std::string(1011 - records.size() - 3, 'x') + "\r\n";
    WriteJournal(Sealed(records));
    ASSERT_EQ(Journal().size(), 1022u);
    const TResult result = Run("add", "/B", "trap '' XFSZ; ulimit -f 2;");
    EXPECT_EQ(result.Status, 1);
    EXPECT_EQ(result.Output,
              "qvres: the journal was not written whole (torn tail): " + File() + "\n");
}
TEST_F(TProgramTest, SyncsBeforeItAnswers)
{
    if (std::system("strace -o /dev/null true 2>/dev/null") != 0)
        GTEST_SKIP() << "processes may not be traced here";
    WriteJournal(Sealed(kJournalHead));
    const std::string trace = "export ASAN_OPTIONS=detect_leaks=0;"
                              "strace -yo trace -e trace=write,pwrite64,fdatasync,close";
    for (const char* operation : {"add s /B", "merge s"}) {
        ASSERT_EQ(Call(trace, operation).Status, 0);
        std::string calls;
        std::istringstream lines(ReadFile(Temp / "trace"));
        for (std::string line; std::getline(lines, line);)
            if (line.find("s/$QvStorage.list>") != std::string::npos)
                calls += line.substr(0, line.find('(')) + " ";
        const std::string reading = "close ";
        EXPECT_EQ(calls, reading + "pwrite64 fdatasync close " + reading) << operation;
    }
}
} // namespace
