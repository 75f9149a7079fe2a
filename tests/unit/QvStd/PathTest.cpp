#include <gtest/gtest.h>

#include "QvStd/Path.h"

TEST(Path, JoinNeverClimbsOutOfTheLeftSide)
{
    struct TCase
    {
        const char* Left;
        const char* Right;
        const char* Joined;
    };
    const TCase cases[] = {
        // plain
        {"/a", "b", "/a/b"},
        {"/a/", "b", "/a/b"},
        {"/", "b", "/b"},
        {"/a", "b/c/", "/a/b/c/"},
        {"/a", ".b/..c/d.", "/a/.b/..c/d."},
        {"/a", ".../b", "/a/.../b"},
        // an empty side, or one that comes to nothing
        {"/a", "", "/a"},
        {"/a/", "", "/a/"},
        {"/a", "/", "/a"},
        {"/a", ".", "/a"},
        {"/a", "b/..", "/a"},
        {"/a", "b/../", "/a"},
        {"", "", ""},
        {"", "b/c", "b/c"},
        // with no left side it stays relative, whatever it begins with
        {"", "/", ""},
        {"", "//x", "x"},
        {"", "../x", "x"},
        {"", "a/../", ""},
        {"", "a/..//x/", "x/"},
        // separators
        {"/a", "//x", "/a/x"},
        {"/a", "x//y///", "/a/x/y/"},
        {"/a", "x\\y\\", "/a/x/y/"},
        // climbing
        {"/a", "..", "/a"},
        {"/a", "../..", "/a"},
        {"/a", "a/../../b", "/a/b"},
        {"/a", "\\..\\x", "/a/x"},
        {"/a", "x\\..\\..\\..\\y", "/a/y"},
        {"/a", "x/y/../z", "/a/x/z"},
        {"/a", "x/./y/.", "/a/x/y"},
        {"/", "../etc", "/etc"},
        {"a", "../b", "a/b"},
        // only the right side is resolved
        {"/a/../b", "c", "/a/../b/c"},
    };
    for (const TCase& c : cases) {
        const TQvPath left(c.Left);
        EXPECT_EQ((left / std::string_view(c.Right)).toSysStr(), c.Joined)
            << c.Left << " and " << c.Right;
        EXPECT_EQ(left / TQvPath(c.Right), left / std::string_view(c.Right)) << c.Right;
    }
    // The system ends a path at a zero byte, and would see the ".." before it.
    for (const char* hidden : {"..", "x/../.."}) {
        const std::string right = hidden + std::string("\0y", 2);
        EXPECT_EQ((TQvPath("/a") / right).toSysStr(), "/a") << hidden;
    }
}

TEST(Path, Validity)
{
    const std::string longest(255, 'n');
    std::string full;
    while (full.size() < 4095)
        full += "/ab";
    const std::pair<std::string, bool> cases[] = {
        {"", false},
        {"a", true},
        {"/", true},
        {"a\tb", false},
        {std::string("a\0b", 3), false},
        {"\xC3\xA4\x7F\xFF", true},
        {"/" + longest + "/" + longest, true},
        {"/" + longest + "n/b", false},
        {full, true},
        {full + "a", false},
    };
    for (const auto& [text, valid] : cases)
        EXPECT_EQ(TQvPath(text).isPathValid(), valid) << text;
}

TEST(Path, SeparatorsAtTheEnds)
{
    struct TCase
    {
        const char* Text;
        const char* Stripped;
        const char* WithSlash;
        const char* WithoutSlash;
        const char* Name;
    };
    const TCase cases[] = {
        {"", "", "", "", ""},
        {"/", "", "/", "/", ""},
        {"\\\\", "", "//", "/", ""},
        {"a", "a", "a/", "a", "a"},
        {"/a\\b", "a/b", "/a/b/", "/a/b", "b"},
        {"//a/b//", "a/b//", "//a/b//", "//a/b", ""},
    };
    for (const TCase& c : cases) {
        const TQvPath path(c.Text);
        EXPECT_EQ(path.stripAbs().toSysStr(), c.Stripped) << c.Text;
        EXPECT_EQ(path.addSlash().toSysStr(), c.WithSlash) << c.Text;
        EXPECT_EQ(path.excludeSlash().toSysStr(), c.WithoutSlash) << c.Text;
        EXPECT_EQ(path.fileName(), c.Name) << c.Text;
    }
}

TEST(Path, NameAndExtension)
{
    struct TCase
    {
        const char* Text;
        const char* Name;
        const char* Extension;
    };
    const TCase cases[] = {
        {"/x.y/a.txt", "a", ".txt"},
        {"a.tar.gz", "a.tar", ".gz"},
        {"a.", "a", "."},
        {".hidden", ".hidden", ""},
        {".a.b", ".a", ".b"},
        {"x/..", "..", ""},
        {"x/.", ".", ""},
        {"x.y/plain", "plain", ""},
        {"x.y/", "", ""},
    };
    for (const TCase& c : cases) {
        EXPECT_EQ(QvExtractFileNameOnly(TQvPath(c.Text)), c.Name) << c.Text;
        EXPECT_EQ(QvExtractFileExt(TQvPath(c.Text)), c.Extension) << c.Text;
    }
}
