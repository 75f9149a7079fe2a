// Usage, help, listings, queries and the id functions.
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "cli/QvresProcess.h"

using TListTest = TQvresTest;
using nlohmann::json;

TEST_F(TListTest, WrongUsageIsStatus2AndOneLine)
{
    const std::vector<TArgs> calls = {{"nonsense"},
                                      {"--mount", "/X"},
                                      {"--mount", "/=."},
                                      {"--mount", "=."},
                                      {"--mount", "/X="},
                                      {"--mount", "//X=.", "ls"},
                                      {"cp", "/A/a"},
                                      {"exists", "/A", "/B"},
                                      {"ls", "--kind", "device"},
                                      {"id", "compress", "/A"}};
    for (const TArgs& call : calls)
        Bad(call, 2);
    EXPECT_EQ(RunPlain({}).Status, 2);
    EXPECT_NE(Bad({"--mount", "/=.", "ls"}, 2).find("a mount point needs a name"),
              std::string::npos);
}

TEST_F(TListTest, EveryCommandExplainsItself)
{
    const std::string overview = RunPlain({"--help"}).Out;
    for (const char* name : {"mounts", "mount",  "unmount", "ls",   "stat",  "exists", "file",
                             "cat",    "put",    "cp",      "mv",   "rm",    "mkdir",  "rmdir",
                             "clear",  "rename", "meta",    "id",   "copy",  "label",  "check",
                             "backup", "done",   "open",    "xini", "setup", "profile"}) {
        EXPECT_NE(overview.find(std::string("\n  ") + name + " "), std::string::npos) << name;
        const TResult help = RunPlain({name, "--help"});
        EXPECT_EQ(help.Status, 0);
        EXPECT_NE(help.Out.find(std::string("Usage: qvres ") + name), std::string::npos)
            << help.Out;
        EXPECT_NE(help.Out.find("--mount"), std::string::npos);
    }
}

TEST_F(TListTest, ListsSortedWithMaskAndKind)
{
    m_temp.Write("a/sub/deep.txt", "1");
    m_temp.Write("a/b.txt", "22");
    m_temp.Write("a/A.TXT", "333");
    m_temp.Write("a/c.dat", "");
    m_temp.Write("a/.hidden", "");
    m_temp.Write("a/c.dat.meta", "");
    const std::vector<std::pair<TArgs, std::string>> cases = {
        {{"ls"}, "/A/\n/B/\n"},
        {{"ls", "/A/"}, "/A/A.TXT\n/A/b.txt\n/A/c.dat\n/A/sub/\n"},
        {{"ls", "--mask", "*.txt", "/a"}, "/a/A.TXT\n/a/b.txt\n"},
        {{"ls", "--kind", "folder", "/A"}, "/A/sub/\n"},
        {{"ls", "-R", "--kind", "resource", "--mask", "*.txt", "/A"},
         "/A/A.TXT\n/A/b.txt\n/A/sub/deep.txt\n"},
        {{"ls", "-R", "/"}, "/A/\n/A/A.TXT\n/A/b.txt\n/A/c.dat\n/A/sub/\n/A/sub/deep.txt\n/B/\n"},
        {{"ls", "/A/b.txt"}, "/A/b.txt\n"},
        {{"ls", "/B"}, ""}};
    for (const auto& [args, expected] : cases)
        EXPECT_EQ(Good(args), expected) << args.back();
}

TEST_F(TListTest, LongListingAndRecords)
{
    setenv("TZ", "UTC-2", 1);
    const std::string path = m_temp.Write("a/x \xC3\xA4\xFF.txt", "12345");
    const timespec times[] = {{1700000000, 0}, {1700000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    m_temp.MakeFolder("a/sub");
    EXPECT_TRUE(std::regex_match(
        Good({"ls", "-l", "/A"}),
        std::regex("folder +- \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\+02:00 /A/sub/\n"
                   "resource +5 2023-11-15T00:13:20\\+02:00 /A/x .*\\.txt\n")));

    const json list = json::parse(Good({"--json", "ls", "/A"}));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["id"], "/A/sub");
    EXPECT_EQ(list[0]["kind"], "folder");
    EXPECT_EQ(list[1]["size"], 5);
    EXPECT_EQ(list[1]["updated"], "2023-11-15T00:13:20+02:00");
    EXPECT_EQ(json::parse(Good({"ls", "--json", "/B"})), json::array());
    EXPECT_EQ(json::parse(Good({"--json", "stat", "/"}))["updated"], nullptr);
    EXPECT_EQ(json::parse(Good({"--json", "stat", "/A/x \xC3\xA4\xFF.txt"})), list[1]);
    EXPECT_NE(Good({"stat", "/A/sub"}).find("kind:    folder\n"), std::string::npos);
}

TEST_F(TListTest, QueriesAnswerOrNameTheId)
{
    m_temp.Write("a/x", "");
    EXPECT_EQ(Good({"exists", "/A/x"}) + Good({"exists", "/A"}) + Good({"exists", "/A/no"}) +
                  Good({"exists", "/a//b"}),
              "1\n2\n0\n0\n");
    EXPECT_EQ(Good({"file", "/A/x"}), m_temp / "a/x\n");
    const std::vector<std::pair<TArgs, std::string>> failures = {
        {{"ls", "/A/no"}, "\"/A/no\" does not exist"},
        {{"ls", "/C"}, "\"/C\" does not exist"},
        {{"ls", "/A/x/"}, "\"/A/x\" is not a folder"},
        {{"ls", "/a//b"}, "\"/a//b\" is not a valid resource id"},
        {{"ls", ""}, "\"\" is not a valid resource id"},
        {{"stat", "A"}, "\"A\" is not a valid resource id"},
        {{"stat", "/A/no\nline"}, "\"/A/no line\" is not a valid resource id"},
        {{"stat", "/A/no"}, "\"/A/no\" does not exist"},
        {{"file", "/A"}, "\"/A\" is a folder"}};
    for (const auto& [args, message] : failures)
        EXPECT_EQ(Bad(args), message);
}

TEST_F(TListTest, IdsAsTextNeedNoTree)
{
    const std::vector<std::pair<TArgs, std::string>> cases = {
        {{"compact", "/A/../B/c"}, "/B/c\n"},
        {{"merge", "/A/B/", "../c"}, "/A/c\n"},
        {{"relative", "/A/c", "/A/B/"}, "../c\n"},
        {{"parts", "/A/b c"}, "A\nb c\n"},
        {{"valid", "/A"}, "true\n"},
        {{"valid", "/*"}, "false\n"},
        {{"valid", "--wildcards", "/*"}, "true\n"},
        {{"mask", "[ab]"}, "/^[AB]$/\n"}};
    for (const auto& [args, expected] : cases) {
        TArgs all{"id"};
        all.insert(all.end(), args.begin(), args.end());
        const TResult result = RunPlain(all);
        EXPECT_EQ(result.Out, expected) << args.front() << result.Err;
        EXPECT_EQ(result.Status, 0);
    }
    EXPECT_EQ(RunPlain({"--json", "id", "parts", "/A/b"}).Out, "[\"A\",\"b\"]\n");
    EXPECT_EQ(RunPlain({"id", "parts", "A"}).Status, 1);
}
