// Usage, help, listings, queries and the id functions.
#include "cli/QvresTest.h"

using TListTest = TQvresTest;

TEST_F(TListTest, WrongUsageIsStatus2AndOneLine)
{
    const std::pair<const char*, std::string> calls[] = {
        {"qvres", "subcommand is required"},
        {"q nonsense", R"("nonsense" is neither a command nor an option \()"},
        {"q lss", R"("lss" is neither .*; did you mean "ls"\? \()"},
        {"q profile lsit", R"("lsit" is neither .*; did you mean "list"\? \("qvres profile )"},
        {"q help profile lsit", R"(did you mean "list"\?)"},
        {"qvres --mount /X ls", R"("/X" is not of the form ID=DIR)"},
        {"qvres --mount /=. ls", "a mount point needs a name"},
        {"qvres --mount /X= ls", R"("/X=" names no folder)"},
        {"qvres --mount //X=. ls", R"("//X" is not a valid resource id: it contains "//")"},
        {"q exists /A /B", "qvres exists --help"},
        {"q ls --kind device", "device not in"},
        {"q backup --keep -1 /A/y", R"(--keep: "-1" is not a whole number from 0 to 1000000)"},
        {"q xini set /A/x a//k 1", R"("a//k" is not of the form section/section/key)"},
        {"q serve --stop /A $T/a", "--stop: takes FOLDER only, no ID"},
        {"q serve --attr-timeout -1 b", R"("-1" is not a number of seconds from 0 to 86400)"},
        {"qvres --var '' ls", "\"\" names no folder"},
        {"qvres --var $T/var setup --common", "cannot be combined with --var"}};
    for (const auto& [call, reason] : calls) {
        const TAnswer answer = Answer(call);
        EXPECT_EQ(answer.Status, 2) << call;
        EXPECT_TRUE(
            std::regex_match(answer.Error, std::regex(".*" + reason + ".* explains the usage\\)")))
            << call << ": " << answer.Error;
    }
}

TEST_F(TListTest, EveryCommandExplainsItself)
{
    // One line for each command in the overview, then its own page.
    Expect(
        {{"for name in mounts mount unmount ls stat exists file cat put cp mv rm mkdir rmdir "
          "clear rename meta id copy label check backup restore done open xini setup profile which "
          "journal doctor serve help; do qvres --help | grep -q \"^  $name \" || echo $name is "
          "missing; "
          "qvres $name --help >help; grep -q \"^Usage: qvres $name\" help || cat help; "
          "grep -q -e --mount help || cat help; qvres help $name | cmp - help; done",
          ""}});
}

TEST_F(TListTest, ListsSortedWithMaskAndKind)
{
    Expect({{"mkdir a/sub; cd a; touch sub/deep.txt b.txt A.TXT c.dat .hidden c.dat.meta", ""},
            {"q ls", "/A/\n/B/\n"},
            {"q ls --mask '*.txt' /a/", "/a/A.TXT\n/a/b.txt\n"},
            {"q ls --kind folder /A", "/A/sub/\n"},
            {"q ls -R --kind resource --mask '*.txt' /A", "/A/A.TXT\n/A/b.txt\n/A/sub/deep.txt\n"},
            {"q ls -R /", "/A/\n/A/A.TXT\n/A/b.txt\n/A/c.dat\n/A/sub/\n/A/sub/deep.txt\n/B/\n"},
            {"q ls /A/b.txt; q ls /B", "/A/b.txt\n"},
            {"q exists /A/b.txt; q exists /A; q exists /A/no; q exists /a//b", "1\n2\n0\n0\n"},
            {"q file /A/b.txt", "$T/a/b.txt\n"},
            {"q ls /A/b.txt/", "", R"("/A/b.txt" is not a folder)"},
            {"q stat A", "", R"("A" is not a valid resource id: it does not begin with "/")"},
            {"q stat '/A/no\nline'", "",
             R"("/A/no line" is not a valid resource id: it contains the control character 0x0a)"},
            {"q stat /A/no", "", R"("/A/no" does not exist)"}});
    // A name with a byte below "/" is sorted between a folder and its content.
    Expect(
        {{"cd b; mkdir -p d/e 'd x/d' d.y/d D; touch d/1 d/e/2 'd x/3' 'd x/d/4' d-5 d.y/6 d0 D/7",
          ""},
         {"q ls -R /B | sed s:/$:: >l; wc -l <l; LC_ALL=C sort -c l", "15\n"},
         {"q ls -R --mask '*[0-9]' --kind resource /B >l; wc -l <l; LC_ALL=C sort -c l", "8\n"}});
}

TEST_F(TListTest, LongListingAndRecords)
{
    const std::string name = "x \xC3\xA4\xFF", time = "2023-11-15T00:13:20+02:00";
    const std::string folder = R"({"id":"/A/sub","kind":"folder","size":SIZE,"updated":")" + time;
    const std::string resource = "{\"id\":\"/A/x \xC3\xA4\xEF\xBF\xBD\","
                                 R"("idHex":"2f412f7820c3a4ff","kind":"resource")" +
                                 (R"(,"size":5,"updated":")" + time) + "\",\"created\":TIME}\n";
    Expect(
        {{"cd a; mkdir sub; printf 12345 >'" + name + "'; touch -d @1700000000 *", ""},
         {"q ls -l /A", "folder                - " + time + " /A/sub/\n" +
                            "resource              5 " + time + " /A/" + name + "\n"},
         {"q --json ls /A | mask", "[\n" + folder + "\",\"created\":TIME},\n" + resource + "]\n"},
         {"q stat --json '/A/" + name + "' | mask", resource},
         {"q --json label --weak '/A/" + name + "' | cut -d, -f2",
          "\"idHex\":\"2f412f7820c3a4ff\"\n"},
         {"qvres --json id parts '/" + name + "' | cut -d, -f2", "\"valueHex\":\"7820c3a4ff\"}]\n"},
         {"q ls --json /B", "[\n]\n"},
         {"q --json stat / | cut -d, -f3-", "\"size\":0,\"updated\":null,\"created\":null}\n"},
         {"q stat /", "id:      /\nkind:    folder\nsize:    0\nupdated: -\ncreated: -\n"}});
}

TEST_F(TListTest, ListsForPeopleAndForScripts)
{
    Expect(
        {{"cd a; touch .h a:b 'n\n'; echo m=1 >big.meta; truncate -s 1536 big; touch -d @1 a:b",
          ""},
         {"q --mount /A/m/n=b ls -a /A",
          "/A/.h\n/A/a:b\t(not a valid id)\n/A/big\n/A/m/\n/A/n?\t(not a valid id)\n"},
         {"q ls -lh --mask 'b*' /A | cut -c1-19", "resource    1.5 KiB\n"},
         {"q ls --sort size --kind resource /A | head -1; q ls --sort time /A | tail -1",
          "/A/big\n/A/a:b\t(not a valid id)\n"},
         {"q --mount /A/m/n=b ls /A/m; q --mount /A/m/n=b exists /a/m", "/A/m/n/\n2\n"},
         {"q --mount /A/m/n=b rmdir /A/m", "", R"("/A/m" only contains mount points)"},
         {"q ls -l -1 /B /A/big /A/big; q --mount /A/m/n=b ls -R / | grep m",
          "/A/big\n/A/big\n/A/m/\n/A/m/n/\n"},
         {"q ls -0 --mask n* /A | od -An -c | tr -s ' '", " / A / n \\n \\0\n"},
         {"q ls --json --mask 'a*' /A | cut -d, -f1,6",
          "[\n{\"id\":\"/A/a:b\",\"valid\":false}\n]\n"},
         {"q ls /A/no /A/big", "/A/big\n", R"("/A/no" does not exist)"},
         {"q --json ls /A/no", "[\n]\n",
          R"({"error":"\"/A/no\" does not exist","id":"/A/no","errno":2})"},
         {"q --json ls --kind", "",
          R"x({"error":"--kind: 1 required TEXT:{resource,folder} missing (\"qvres ls --help\" )x"
          R"x(explains the usage)","id":null,"errno":0})x",
          2}});
}

TEST_F(TListTest, IdsAsTextNeedNoTree)
{
    Expect({{"qvres id compact /A/../B/c; qvres id merge /A/B/ ../c", "/B/c\n/A/c\n"},
            {"qvres id relative /A/c /A/B/; qvres id mask '[ab]'", "../c\n/^[AB]$/\n"},
            {"qvres id parts '/A/b c'; qvres --json id parts /A/b", "A\nb c\n[\"A\",\"b\"]\n"},
            {"qvres id parts A", "",
             R"(Internal error: BreakIdIntoParts: not an absolute ResId: "A")"},
            {"qvres id valid '/*'; qvres id valid --wildcards '/*'", "false\ntrue\n"}});
}
