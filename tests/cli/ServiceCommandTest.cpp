// The commands around the tree: copy, label, check, backup, done, open, xini.
#include "cli/QvresTest.h"

using TServiceCommandTest = TQvresTest;

TEST_F(TServiceCommandTest, CopyKeepsTheLayoutAndNamesWhatFailed)
{
    for (const char* name : {"a/d/1", "a/d/e/2", "a/x"})
        m_temp.Write(name, "new\n");
    m_temp.Write("b/n/d/1", "old\n");
    m_temp.Write("b/f/d/e", "in the way\n");
    const std::string itself = R"(the folder "/A/d" cannot be copied into itself)";
    const std::string record = R"({"resources":1,"folders":1,"bytes":4,"skipped":0,"hidden":0,)"
                               R"("invalid":0,"failed":0,"wouldCopy":[{"id":"/B/new/d/"},)"
                               R"({"id":"/B/new/d/1"}]})";
    Expect(
        {{"echo m=1 >a/d/1.meta; q copy /A/d /A/x /B/n/; cd b/n; grep '' d/1 d/e/2 x",
          "copied 2 resources (8 bytes) and 1 folder, skipped 1 existing\n"
          "d/1:old\nd/e/2:new\nx:new\n"},
         {"q --quiet copy --overwrite /A/d /A/x /B/n; grep '' b/n/d/1*",
          "b/n/d/1:new\nb/n/d/1.meta:m=1\n"},
         {"q copy /A/d/ /B/alone; q --quiet copy /A/d /B/alone; q ls -R /B/alone | tr '\n' ' '",
          "copied 2 resources (8 bytes) and 2 folders\n/B/alone/1 /B/alone/d/ /B/alone/d/1 "
          "/B/alone/d/e/ /B/alone/d/e/2 /B/alone/e/ /B/alone/e/2 "},
         {"mkdir b/f/x; q copy /A/d /A/x /B/f",
          "copied 1 resource (4 bytes) and 0 folders, 3 failed\n",
          R"("/A/d/e" could not be copied: "/B/f/d/e": File exists
"/A/d/e/2" could not be copied: "/B/f/d/e": File exists
"/A/x" could not be copied: "/B/f/x": Is a directory)"},
         {"q copy --dry-run /A/x /B/n",
          "would copy 0 resources (0 bytes) and 0 folders, skipped 1 existing\n"},
         {"q copy --progress=json /A/d/1 /B/p 2>&1 >dead | sed 's/ds\":[^,]*/ds\":S/'",
          R"({"progress":1.0,"message":"Copying to /B/p","seconds":S,"left":0.0,"bytes":4,"total":4})"
          "\n"},
         {"rm -r a/d/e; q --json copy --dry-run /A/d /B/new; ls b", record + "\nalone\nf\nn\np\n"},
         {"cd a; mkdir -p d/.h/.i 'd/a:b'; touch d/.j 'd/a:b/k'; q copy /A/d /B/odd",
          "copied 1 resource (4 bytes) and 1 folder, left out 2 hidden names, left out 1 name not "
          "valid as id\n",
          R"("/A/d/a:b" was left out, because it is not a valid id: it contains ":")"},
         {"grep '' b/f/d/1 b/f/d/e", "b/f/d/1:new\nb/f/d/e:in the way\n"},
         // By its id, and by another mount of a folder in it.
         {"q copy /A/d/ /a/D/new; q --mount /C=a/d copy /A/d /C/new; ls a/d | grep new", "",
          itself + "\n" + itself}});
}

TEST_F(TServiceCommandTest, LabelsAreStoredAndChecked)
{
    const std::string weak = "size:     9\ntime:     2023-11-15T00:13:20+02:00\n";
    const std::string line = "line 1: expected name=value, [section] or a comment.";
    const std::string label = weak + "checksum: cbf43926\n";
    const std::string record =
        R"({"id":"/A/x","size":9,"time":"2023-11-15T00:13:21+02:00","checksum":"015f0201"})";
    Expect(
        {{"printf 123456789 >a/x; touch -d @1700000000 a/x; q label --weak /A/x", weak},
         {"q label --stored /A/x", "", R"("/A/x" has no stored label; "qvres label" stores one)"},
         {"q label /A/x; q check /A/x", label + "ok\n"},
         // Size and time stay: only the check reads the content.
         {"printf 987654321 >a/x; touch -d @1700000000 a/x; q label /A/x", label},
         {"q check /A/x", "changed\n", "", 1},
         {"touch -d @1700000001 a/x; q label --stored /A/x", label},
         {"q --json label /A/x; q check /A/x", record + "\nok\n"},
         // It cannot be stored in what is no X-Ini document, and is good all the same.
         {"echo text >a/x.meta; q label /A/x >dead; cat a/x.meta", "text\n",
          R"(the label of "/A/x" was not stored, because its metadata is damaged: )" + line, 0},
         {"q check /A/x", "", R"(the metadata of "/A/x" is damaged: )" + line}});
}

TEST_F(TServiceCommandTest, BackupsAreBoundedAndFailuresShow)
{
    const std::string isThere = R"("/A/x.txt" exists; "qvres backup" moves it away first, and )"
                                "--overwrite replaces it";
    const std::string copies = R"("qvres cp" copies the target of the link)";
    Expect(
        {{"for day in 11 12 13 14; do echo $day >a/x.txt; touch -d 2023-01-$day a/x.txt; "
          "q backup /A/x.txt; done | tail -1; ls a",
          "/A/backup/x.2023-01-14.00-00-00.txt\nbackup\n"},
         {"q backup --list /A/x.txt",
          "/A/backup/x.2023-01-12.00-00-00.txt\n/A/backup/x.2023-01-13.00-00-00.txt\n"
          "/A/backup/x.2023-01-14.00-00-00.txt\n"},
         {"q restore /A/x.txt; cat a/x.txt", "/A/backup/x.2023-01-14.00-00-00.txt\n14\n"},
         {"q restore /A/x.txt", "", isThere},
         {"q restore --overwrite /A/x.txt x.2023-01-12.00-00-00.txt >dead; cat a/x.txt", "12\n"},
         // The target is missing at the first check and exists after the copy.
         {"rm a/x.txt; ln -s gone a/x.txt; q restore /A/x.txt; ls a", "backup\nx.txt\n", isThere},
         {"touch a/t; ln -s t a/l; q backup /A/l", "",
          R"("/A/l" is a symbolic link, and moving it would not keep the content; )" + copies},
         {"q mv /A/l /A/backup/l; q mv /A/l /A/k; ls a", "backup\nk\nt\nx.txt\n",
          R"("/A/l" is a symbolic link to "t", which would point to another file from "/A/backup/l"; )" +
              copies},
         {"q restore /A/no", "", R"("/A/no" has no backups)"},
         {"touch -d 2023-01-11 a/y; mkdir a/backup/y.2023-01-11.00-00-00; q backup /A/y", "",
          R"("/A/y" could not be moved into the backups: "/A/backup/y.2023-01-11.00-00-00": Is a directory)"},
         {"touch b/backup b/y; q backup /B/y", "", R"("/B/backup" is a resource)"}});
}

TEST_F(TServiceCommandTest, WhichShowsTheMountAndTheFilesOfAnId)
{
    const std::string mount = R"({"id":"/A","folder":"$T/a","file":"$T/a/x","kind":"resource"})";
    Expect(
        {{"mkdir a/d; touch a/d/x a/x; echo m=1 >a/x.meta; q --mount /A/D=b which /A/d/x",
          "id:      /A/d/x\nkind:    nothing\nmount:   /A/D\t$T/b\nfile:    $T/b/x\n"
          "shadows: /A\t$T/a/d/x\t(resource)\n"},
         {"q --json which /A/x", R"({"id":"/A/x","kind":"resource","mount":)" + mount +
                                     R"(,"shadows":[],"sidecar":"$T/a/x.meta",)"
                                     "\"label\":\"none\",\"backups\":[]}\n"},
         {"q label /A/x >dead; touch -d @1 a/x; q which /A/x | tail -1; q which /",
          "label:   differs\nid:      /\nkind:    folder\nmount:   -\n"},
         {"q backup /A/x; q which /A/x | tail -1",
          "/A/backup/x.1970-01-01.02-00-01\nbackup:  /A/backup/x.1970-01-01.02-00-01\n"},
         // What a command prints with --json is one document.
         {"touch a/y; q label /A/y >dead; for call in mounts 'stat /A' 'exists /A/y' 'file /A/y' "
          "'check /A/y' 'backup --list /A/x' 'copy /A/y /B' 'backup /A/y' 'restore /A/y'; "
          "do q --json $call | python3 -m json.tool >dead || echo $call; done"}});
}

TEST_F(TServiceCommandTest, DoctorFindsAndRepairs)
{
    const std::string gone =
        "/c: its folder \"$T/c\" is gone; \"qvres unmount /c\" removes it from the tree\n";
    Expect(
        {{"cd a; mkdir d .h; touch x y z x.done d.done .x.0123456789abcdef.tmp d/t.done; "
          "echo x=1 | tee x.meta d.meta >.h/no.meta; printf ok | tee s.done >d.done; "
          "q label /A/y >../dead; touch -d @1 y .z.0123456789abcdef.tmp; echo bad | tee o.meta "
          "z.meta.damaged >z.meta; ln -s gone l; echo x=1 | tee a:b.meta >l.meta",
          ""},
         {"q doctor /A/z | sed s/line.*comment//",
          "/A/.z.0123456789abcdef.tmp: temporary file, left over since 1970-01-01T02:00:01+02:00\n"
          "/A/z.meta: metadata that is not well formed: .\n",
          "", 1},
         {"q doctor --mend / | sed /z/d\\;s/:.line.*comment.//",
          "/A/a:b.meta: metadata without its resource, whose name is not a valid id: it contains "
          "\":\"; it is kept\n"
          "/A/d.meta: named like the metadata of a folder, which has none; it is kept\n"
          "/A/o.meta: metadata without its resource, and not well formed; renamed to "
          "\".meta.damaged\"\n"
          "/A/s.done: marker without its resource or folder; removed\n"
          "/A/y: its label belongs to an earlier content; computed again\n"
          "/A/.h/no.meta: metadata without its resource; removed\n",
          "", 1},
         {"cd a; rm a:b.meta d.meta; q doctor /; ls -A . .h d; q check /A/y",
          ".:\n.h\n.x.0123456789abcdef.tmp\nd\nd.done\nl\nl.meta\no.meta.damaged\nx\nx.done\n"
          "x.meta\ny\ny.meta\nz\nz.meta.damaged\nz.meta.damaged.2\n\n.h:\n\nd:\nt.done\nok\n"},
         {"mkdir c; qvres setup c; rmdir c; touch c; qvres doctor --repair /; rm c", "/c\n" + gone,
          "", 1},
         {"qvres --json doctor / >x; cut -d, -f1,3- x",
          "{\"id\":\"/c\",\"repaired\":false,\"errno\":0}\n", "", 1},
         {"qvres ls /c", "", R"(the folder "$T/c" of the mount point "/c" does not exist)"}});
}

TEST_F(TServiceCommandTest, DoneMarkersAreWrittenAndRead)
{
    Expect({{"q done /A/step; q done /A/step ok; grep -H '' a/step.done", "none\na/step.done:ok\n"},
            {"q done /A/step fail; q --json done /A/step", "\"fail\"\n"},
            {"mkdir a/x.done; q done /A/x", "",
             R"(the marker "/A/x.done" cannot be read: Is a directory)"}});
}

TEST_F(TServiceCommandTest, OpenGoesThroughTheUrlManager)
{
    Expect({{"echo content >'a/x y'; q open 'qvres:/A/x y'", "content\n"},
            {"qvres setup; qvres profile create P; q open 'qvres:/A/x y'", "content\n"},
            {"q open qvres:/A/x%20y", "",
             R"("qvres:/A/x%20y" cannot be opened for reading: No such file or directory)"},
            {"q open other:/A/x", "", R"(There is no handler for the scheme of "other:/A/x".)"}});
}

TEST_F(TServiceCommandTest, XIniChangesOneValueAndNothingElse)
{
    m_temp.Write(
        "a/x",
        "; kept\r\n[a]\r\n  k =  old\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n[a]\n  k=2\n[/]\nend=");
    const std::string malformed =
        R"("/A/bad" is not well formed: line 1: expected name=value, [section] or a comment.)";
    Expect({{"chmod 640 a/x; q xini get /A/x a/k", "old\n"},
            {"q xini set /A/x a/k ' new '; q --json xini get /A/x a/k", "\" new \"\n"},
            {"q xini set /A/x b/c/k 1; q cat /A/x",
             "; kept\r\n[a]\r\n  k =  \" new \"\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n"
             "[a]\n  k=2\n[/]\nend=\n[b]\n  [c]\n    k=1\n  [/c]\n[/b]\n"},
            {"q xini list /A/x a; q --json xini list /A/x b",
             "a/k=\" new \"\n[{\"path\":\"b/c/k\",\"value\":\"1\"}]\n"},
            {"q xini unset /A/x b/c/k; q xini unset /A/x b/c/k; tail -4 a/x",
             "[b]\n  [c]\n  [/c]\n[/b]\n", R"("/A/x" has no value at "b/c/k")"},
            {"q xini set /A/new s/k 1; cat a/new; rm a/new", "[s]\n  k=1\n[/s]\n"},
            {"q xini set /A/new k= 1", "",
             R"("/A/new": "X-Ini document" cannot be written: "k=" cannot be the name of a key.)"},
            {"q xini get /A/x no/k", "", R"("/A/x" has no section "no" of "no/k")"},
            {"echo a >a/bad; q xini get /A/bad a", "", malformed},
            {"q xini set /A/bad a 1", "", malformed},
            {"(flock -x 9; q xini set /A/x a/k 2) 9<a/x", "",
             R"("/A/x" cannot be written: Permission denied)"},
            {"cd a; grep -H '' bad; stat -c '%n %a' x; ls -A", "bad:a\nx 640\nbad\nx\n"}});
}
