// Commands that read and change resources and folders.
#include <unistd.h>

#include "cli/QvresTest.h"

using TContentTest = TQvresTest;

TEST_F(TContentTest, PutAndCatCarryBytes)
{
    const std::string longName(255, 'n');
    m_temp.Write("big", Pattern(3 * 256 * 1024 + 17));
    Expect({{"q put /A/x <big; q cat /A/x /A/x >twice; cat big big | cmp - twice", ""},
            {"echo file >file; q put /A/x file; q cat /A/x", "file\n"},
            {"echo input | q put /A/x -; q cat /A/x", "input\n"},
            {"q put /A/x; q cat /A/x", ""},
            {"q put /A/" + longName + "; ls -A a", longName + "\nx\n"}});
}

TEST_F(TContentTest, OutputThatCannotBeWrittenIsAFailure)
{
    m_temp.Write("a/x", "content");
    m_temp.Write("a/big", std::string(1 << 20, 'x'));
    const std::string noSpace = "standard output cannot be written: No space left on device";
    Expect({{"q cat /A/big >/dev/full", "", noSpace},
            {"q cat /A/x >/dev/full", "", noSpace},
            {"q cat /A/x >&-", "", "standard output cannot be written: Bad file descriptor"},
            // A reader that leaves ends it quietly.
            {"trap '' PIPE; q cat /A/big | true", "", "", 141}});
}

TEST_F(TContentTest, WhatTheSystemRefusesIsSaidAsSuchAndOnce)
{
    if (geteuid() != 0 || std::system("unshare -m true") != 0)
        GTEST_SKIP() << "only root can become another user and mount a full disk";
    const std::string unread = R"("/A/s" cannot be read: Permission denied)";
    Expect(
        {{"chmod 711 .; mkdir -m 700 a/s; nameless --mount /A=a ls -R /A", "/A/s/\n", unread},
         {"nameless --mount /A=a doctor /A", "", unread},
         {"nameless --mount /A=a put /A/x", "", R"("/A/x" cannot be written: Permission denied)"},
         {"nameless --var a/s/v ls", "", R"("$T/a/s/v" cannot be read: Permission denied.)"},
         {"nameless setup a/s/t", "",
          R"(the folder "a/s/t" cannot be accessed: Permission denied)"},
         {"mkdir -m 777 w; echo 1 >w/x; ln -s ../w/y a/l; nameless --mount /A=a --mount /W=w cp "
          "/W/x /A/l; cat w/y",
          "1\n"},
         {R"(unshare -m sh -c 'mount -t tmpfs -o size=8k full b; head -c 9999 "$QVRES" >f
                    "$QVRES" --mount /B=b put /B/x f; "$QVRES" --mount /B=b --mount /T=. cp /T/f /B/x
                    "$QVRES" --var b setup
                    ln b/policy.x-ini b/z; "$QVRES" --mount /B=b cp /B/policy.x-ini /B/z && echo 2
                    mount -o remount,ro b; "$QVRES" --mount /B=b mkdir /B/d; ls b')",
          "2\nConfig\nLogs\nProfiles\nTmp\nUserData\npolicy.x-ini\nz\n",
          R"("/B/x" cannot be written: No space left on device
"/T/f" cannot be copied to "/B/x": No space left on device
"$T/b/Profiles/LocalProfile/profile.x-ini" cannot be written: No space left on device.
the folder "/B/d" cannot be created: Read-only file system)",
          0}});
}

TEST_F(TContentTest, RemovesWithMetadata)
{
    Expect({{"echo x >a/x; echo m=1 >a/x.meta; q meta /A/x; q cat /A/x /A/no", "m=1\nx\n",
             R"("/A/no" does not exist)"},
            {"touch b/y.meta; (flock -x 9; q mv /A/x /B/y) 9<b/y.meta; rm b/*", "",
             "the content of \"/A/x\" was copied to \"/B/y\", but not its metadata, and the "
             "source was kept: Permission denied"},
            {"q rm /A/x; ls -A a", ""}});
}

TEST_F(TContentTest, FoldersAreMadeRenamedClearedAndRemoved)
{
    Expect(
        {{"q mkdir /A/d/e/f; q mkdir /A/d/; touch a/d/y a/d/e/f/x; q rename /A/d/e g", ""},
         {"q ls -R /A", "/A/d/\n/A/d/g/\n/A/d/g/f/\n/A/d/g/f/x\n/A/d/y\n"},
         {"q rmdir /A/d", "", R"(the folder "/A/d" is not empty)"},
         {"q clear /A/d/g; q ls -R /A", "/A/d/\n/A/d/g/\n/A/d/y\n"},
         {"touch a/d/g/.hidden; q rmdir /A/d/g", "",
          R"(the folder "/A/d/g" is not empty: it contains entries that are not listed, such as hidden files)"},
         {"q rmdir --clear /A/d", "",
          R"(the folder "/A/d" could not be removed: "/A/d/g": Directory not empty)"},
         {"ls -A a/d/g", ".hidden\n"}});
}

TEST_F(TContentTest, RefusalsNameTheIdAndChangeNothing)
{
    m_temp.Write("a/x", "content");
    m_temp.Write("a/d/y", "");
    const std::string isFolder = " is a folder; give the id of the resource to be written";
    Expect({{"q cat /A/x/", "", R"("/A/x/" is not a folder)"},
            {"q cat /A/d", "", R"("/A/d" is a folder)"},
            {"q put /A/d", "", R"("/A/d")" + isFolder},
            {"q put /A/x/y", "", R"("/A/x" is not a folder)"},
            {"q put /x", "", R"("/x" is outside the mounted folders)"},
            {"q put '/A/*'", "", R"("/A/*" is not a valid resource id: it contains "*")"},
            {"q put /A/x <&-", "", "standard input cannot be read: Bad file descriptor"},
            {"q put /A/x no", "", R"("no" cannot be read: No such file or directory)"},
            {"q put /A/x a", "", R"("a" is a folder)"},
            {"q cp /A/d /B/d", "", R"("/A/d" is a folder; "qvres copy" copies folders)"},
            {"q cp /A/x /B", "", R"("/B")" + isFolder},
            {"mkfifo b/p; q cp /A/x /B/p; rm b/p", "", R"("/B/p" is not a regular file)"},
            {"q mv /A/d /B/d", "", R"("/A/d" is a folder; "qvres rename" renames folders)"},
            {"q rm /A/d", "", R"("/A/d" is a folder; "qvres rmdir" removes folders)"},
            {"q mkdir /A/x/y/z", "", R"("/A/x" is a resource)"},
            {"q mkdir /C/y", "", R"("/C/y" is outside the mounted folders)"},
            {"q rmdir --clear /A", "",
             R"("/A" is a mount point; "qvres clear" empties it, "qvres unmount" removes it from )"
             "the tree"},
            {"q clear /", "", R"("/" only contains mount points)"},
            {"q rename /A C", "",
             R"(The folder "/A" cannot be renamed: it is a mount point or contains one.)"},
            {"q rename /A/x y", "", R"("/A/x" is a resource; "qvres mv" renames resources)"},
            {"q rename /A/d x", "", R"("/A/x" exists already)"},
            {"q rename /A/d ..", "", R"(".." is not a valid name: it stands for a folder)"},
            {"q done /C/x ok", "", R"(the folder "/C" does not exist)"},
            {"q ls -R; cat a/x", "/A/\n/A/d/\n/A/d/y\n/A/x\n/B/\ncontent"}});
}
