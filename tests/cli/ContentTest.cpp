// Commands that read and change resources and folders.
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
    const std::string noSpace = "1: standard output cannot be written: No space left on device";
    const std::string closed = "1: standard output cannot be written: Bad file descriptor";
    Expect({{"q cat /A/big >/dev/full", noSpace},
            {"q cat /A/x >/dev/full", noSpace},
            {"q ls /A >/dev/full", noSpace},
            {"q cat /A/x >&-", closed},
            {"trap '' PIPE; q cat /A/big | true", "141"}}); // a reader that leaves ends it quietly
}

TEST_F(TContentTest, RemovesWithMetadata)
{
    Expect({{"echo x >a/x; echo m=1 >a/x.meta; q meta /A/x; q cat /A/x /A/no",
             "m=1\nx\n1: \"/A/no\" does not exist"},
            {"touch b/y.meta; (flock -x 9; q mv /A/x /B/y) 9<b/y.meta; rm b/*",
             "1: the content of \"/A/x\" was copied to \"/B/y\", but not its metadata, and the "
             "source was kept: Permission denied"},
            {"q rm /A/x; ls -A a", ""}});
}

TEST_F(TContentTest, FoldersAreMadeRenamedClearedAndRemoved)
{
    Expect(
        {{"q mkdir /A/d/e/f; q mkdir /A/d/; touch a/d/y a/d/e/f/x; q rename /A/d/e g", ""},
         {"q ls -R /A", "/A/d/\n/A/d/g/\n/A/d/g/f/\n/A/d/g/f/x\n/A/d/y\n"},
         {"q rmdir /A/d", R"(1: the folder "/A/d" is not empty)"},
         {"q clear /A/d/g; q ls -R /A", "/A/d/\n/A/d/g/\n/A/d/y\n"},
         {"touch a/d/g/.hidden; q rmdir /A/d/g",
          R"(1: the folder "/A/d/g" is not empty: it contains entries that are not listed, such as hidden files)"},
         {"q rmdir --clear /A/d",
          R"(1: the folder "/A/d" could not be removed: "/A/d/g": Directory not empty)"},
         {"ls -A a/d/g", ".hidden\n"}});
}

TEST_F(TContentTest, RefusalsNameTheIdAndChangeNothing)
{
    m_temp.Write("a/x", "content");
    m_temp.Write("a/d/y", "");
    const std::string isFolder = " is a folder; give the id of the resource to be written";
    Expect({{"q cat /A/x/", R"(1: "/A/x/" is not a folder)"},
            {"q cat /A/d", R"(1: "/A/d" is a folder)"},
            {"q meta /A/no", R"(1: "/A/no" does not exist)"},
            {"q put /A/d", R"(1: "/A/d")" + isFolder},
            {"q put /A/x/y", R"(1: "/A/x" is not a folder)"},
            {"q put /x", R"(1: "/x" is outside the mounted folders)"},
            {"q put '/A/*'", R"(1: "/A/*" is not a valid resource id: it contains "*")"},
            {"q put /A/x <&-", "1: standard input cannot be read: Bad file descriptor"},
            {"q put /A/x no", R"(1: "no" cannot be read: No such file or directory)"},
            {"q put /A/x a", R"(1: "a" is a folder)"},
            {"q cp /A/d /B/d", R"(1: "/A/d" is a folder; "qvres copy" copies folders)"},
            {"q cp /A/x /B", R"(1: "/B")" + isFolder},
            {"q mv /A/d /B/d", R"(1: "/A/d" is a folder; "qvres rename" renames folders)"},
            {"q rm /A/d", R"(1: "/A/d" is a folder; "qvres rmdir" removes folders)"},
            {"q mkdir /A/x/y/z", R"(1: "/A/x" is a resource)"},
            {"q mkdir /C/y", R"(1: "/C/y" is outside the mounted folders)"},
            {"q rmdir --clear /A", R"(1: "/A" is a mount point; "qvres clear" empties it, )"
                                   R"("qvres unmount" takes it out of the tree)"},
            {"q rmdir /A/x", R"(1: "/A/x" is not a folder)"},
            {"q clear /", R"(1: "/" only contains mount points)"},
            {"q rename /A C",
             R"(1: The folder "/A" cannot be renamed: it is a mount point or contains one.)"},
            {"q rename /A/x y", R"(1: "/A/x" is a resource; "qvres mv" renames resources)"},
            {"q rename /A/d x", R"(1: "/A/x" exists already)"},
            {"q rename /A/d ..", R"(1: ".." is not a valid name: it stands for a folder)"},
            {"q backup /A", R"(1: "/A" is a folder)"},
            {"q done /C/x ok", R"(1: the folder "/C" does not exist)"},
            {"q ls -R; cat a/x", "/A/\n/A/d/\n/A/d/y\n/A/x\n/B/\ncontent"}});
}
