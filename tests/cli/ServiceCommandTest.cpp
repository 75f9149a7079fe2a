// The commands around the tree: copy, label, check, backup, done, open, xini.
#include "cli/QvresTest.h"

using TServiceCommandTest = TQvresTest;

TEST_F(TServiceCommandTest, CopyKeepsTheLayoutAndNamesWhatFailed)
{
    for (const char* name : {"a/d/1", "a/d/e/2", "a/x"})
        m_temp.Write(name, "new\n");
    m_temp.Write("b/n/d/1", "old\n");
    m_temp.Write("b/f/d/e", "in the way\n");
    Expect({{"echo m=1 >a/d/1.meta; q copy /A/d /A/x /B/n/; cat b/n/d/1 b/n/d/e/2 b/n/x",
             "old\nnew\nnew\n"},
            {"q copy --overwrite /A/d /A/x /B/n; cat b/n/d/1 b/n/d/1.meta", "new\nm=1\n"},
            {"q copy /A/d /B/alone; q ls /B/alone", "/B/alone/1\n/B/alone/e/\n"},
            {"mkdir b/f/x; q copy /A/d /A/x /B/f",
             R"(1: "/A/d/e" could not be copied: "/B/f/d/e": File exists
: "/A/d/e/2" could not be copied: "/B/f/d/e": File exists
: "/A/x" could not be copied: "/B/f/x": Is a directory)"},
            {"cat b/f/d/1 b/f/d/e", "new\nin the way\n"}});
}

TEST_F(TServiceCommandTest, LabelsAreStoredAndChecked)
{
    const std::string weak = "size:     9\ntime:     2023-11-15T00:13:20+02:00\n";
    const std::string label = weak + "checksum: cbf43926\n";
    const std::string record = "{\"id\":\"/A/x\",\"size\":9,\"time\":\"2023-11-15T00:13:21+02:00\","
                               "\"checksum\":\"015f0201\"}\n";
    const std::string none = R"(1: "/A/x" has no stored label; "qvres label" stores one)";
    Expect(
        {{"printf 123456789 >a/x; touch -d @1700000000 a/x; q label --weak /A/x", weak},
         {"q label --stored /A/x", none},
         {"q check /A/x", none},
         {"q label /A/x; q check /A/x", label + "ok\n"},
         // Size and time stay: only the check reads the content.
         {"printf 987654321 >a/x; touch -d @1700000000 a/x; q label /A/x", label},
         {"q check /A/x", "changed\n1"},
         {"touch -d @1700000001 a/x; q label --stored /A/x", label},
         {"q --json label /A/x; q check /A/x", record + "ok\n"},
         // It cannot be stored in what is no X-Ini document, and is good all the same.
         {"echo text >a/x.meta; q --json label /A/x; cat a/x.meta",
          record + R"(0: the label of "/A/x" was not stored, because its metadata is damaged: )" +
              R"(line 1: it is no key (there is no "="), no section and no comment.text)" + "\n"},
         {"q check /A/x", R"(1: the metadata of "/A/x" is damaged: line 1: it is no key )"
                          R"((there is no "="), no section and no comment.)"}});
}

TEST_F(TServiceCommandTest, BackupsAreBoundedAndFailuresShow)
{
    Expect(
        {{"for day in 11 12 13 14; do touch -d 2023-01-$day a/x.txt; q backup /A/x.txt; done", ""},
         {"ls a a/backup", "a:\nbackup\n\na/backup:\nx.2023-01-12.00-00-00.txt\n"
                           "x.2023-01-13.00-00-00.txt\nx.2023-01-14.00-00-00.txt\n"},
         {"touch -d 2023-01-11 a/y; mkdir a/backup/y.2023-01-11.00-00-00; q backup /A/y",
          R"(1: "/A/y" could not be put aside: "/A/backup/y.2023-01-11.00-00-00": Is a directory)"},
         {"touch b/backup b/y; q backup /B/y", R"(1: "/B/backup" is a resource)"}});
}

TEST_F(TServiceCommandTest, DoneMarkersAreWrittenAndRead)
{
    Expect({{"q done /A/step; q done /A/step ok; cat a/step.done; q done /A/step", "none\nokok\n"},
            {"q done /A/step fail; q --json done /A/step", "\"fail\"\n"},
            {"mkdir a/x.done; q done /A/x",
             R"(1: the marker "/A/x.done" cannot be read: Is a directory)"}});
}

TEST_F(TServiceCommandTest, OpenGoesThroughTheUrlManager)
{
    Expect({{"echo content >'a/x y'; q open 'qvres:/A/x y'",
             "1: the VAR folder \"$T/home/.config/velmor/KORVADELAirlane7.VAR\" is not set up; "
             "run \"qvres setup FOLDER\" first"},
            {"qvres setup; qvres profile create P; q open 'qvres:/A/x y'", "content\n"},
            {"q open qvres:/A/x%20y",
             R"(1: "qvres:/A/x%20y" cannot be opened for reading: No such file or directory)"},
            {"q open other:/A/x", R"(1: Nothing here opens the address "other:/A/x".)"}});
}

TEST_F(TServiceCommandTest, XIniChangesOneValueAndNothingElse)
{
    m_temp.Write(
        "a/x",
        "; kept\r\n[a]\r\n  k =  old\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n[a]\n  k=2\n[/]\nend=");
    const std::string malformed = R"(1: "/A/bad" is not well formed: line 1: it is no key (there )"
                                  R"(is no "="), no section and no comment.)";
    Expect({{"chmod 640 a/x; q xini get /A/x a/k", "old\n"},
            {"q xini set /A/x a/k ' new '; q --json xini get /A/x a/k", "\" new \"\n"},
            {"q xini set /A/x b/c/k 1; q cat /A/x",
             "; kept\r\n[a]\r\n  k =  \" new \"\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n"
             "[a]\n  k=2\n[/]\nend=\n[b]\n  [c]\n    k=1\n  [/c]\n[/b]\n"},
            {"q xini get /A/x a/no", R"(1: "/A/x" has no value at "a/no")"},
            {"q xini get /A/x no/k", R"(1: "/A/x" has no section "no" of "no/k")"},
            {"q xini set /A/x a= 1", R"(1: "/A/x": "X-Ini document" cannot be written: )"
                                     R"("a=" cannot be the name of a key.)"},
            {"echo a >a/bad; q xini get /A/bad a", malformed},
            {"q xini set /A/bad a 1", malformed},
            {"(flock -x 9; q xini set /A/x a/k 2) 9<a/x",
             R"(1: "/A/x" cannot be written: Permission denied)"},
            {"cat a/bad; stat -c %a a/x; ls -A a", "a\n640\nbad\nx\n"}});
}
