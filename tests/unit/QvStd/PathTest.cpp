#include <gtest/gtest.h>
#include <sstream>

#include "QvStd/Path.h"

namespace
{
/// The next words of a table; "-" stands for an empty one.
template <class... TWords>
bool Next(std::istream& table, TWords&... words)
{
    const bool isThere = static_cast<bool>((table >> ... >> words));
    ((words = words == "-" ? "" : words), ...);
    return isThere;
}
} // namespace

TEST(Path, JoinNeverClimbsOutOfTheLeftSide)
{
    // Plain; a side that comes to nothing; relative without a left side; separators; climbing.
    std::istringstream table(R"(
        /a b /a/b        /a/ b /a/b        / b /b             /a b/c/ /a/b/c/
        /a .../b /a/.../b                  /a .b/..c/d. /a/.b/..c/d.
        /a - /a          /a/ - /a/         /a / /a            /a . /a           /a b/../ /a
        - - -            - b/c b/c         - / -              - //x x           - ../x x
        - a/../ -        - a/..//x/ x/     /a //x /a/x        /a x//y/// /a/x/y/
        /a x\y\ /a/x/y/  /a .. /a          /a ../.. /a        /a a/../../b /a/b
        /a \..\x /a/x    /a x/y/../z /a/x/z                   /a x\..\..\..\y /a/y
        / ../etc /etc    a ../b a/b        /a x/./y/. /a/x/y  /a/../b c /a/../b/c)");
    for (std::string left, right, joined; Next(table, left, right, joined);) {
        const TQvPath path = TQvPath(left) / std::string_view(right);
        EXPECT_EQ(path.toSysStr(), joined) << left << " and " << right;
        EXPECT_EQ(TQvPath(left) / TQvPath(right), path) << left << " and " << right;
    }
    // The system ends a path at a zero byte, and would see the ".." before it.
    for (const char* hidden : {"..", "x/../.."})
        EXPECT_EQ((TQvPath("/a") / (hidden + std::string("\0y", 2))).toSysStr(), "/a") << hidden;
}

TEST(Path, Validity)
{
    const std::string longest = "/" + std::string(255, 'n');
    std::string full;
    while (full.size() < 4095)
        full += "/ab";
    for (const std::string& valid : {longest + longest, full, std::string("\xC3\xA4\x7F\xFF")})
        EXPECT_TRUE(TQvPath(valid).isPathValid()) << valid;
    for (const std::string& bad : {longest + "n/b", full + "a", std::string("a\tb"), std::string()})
        EXPECT_FALSE(TQvPath(bad).isPathValid()) << bad;
}

TEST(Path, Parts)
{
    std::istringstream ends("- - - - -   / - / / -   a a a/ a a   //a/b// a/b// //a/b// //a/b -");
    for (std::string text, bare, slash, plain, name; Next(ends, text, bare, slash, plain, name);) {
        const TQvPath path(text);
        EXPECT_EQ(path.stripAbs().toSysStr(), bare) << text;
        EXPECT_EQ(path.addSlash().toSysStr(), slash) << text;
        EXPECT_EQ(path.excludeSlash().toSysStr(), plain) << text;
        EXPECT_EQ(path.fileName(), name) << text;
    }
    std::istringstream names(
        "/x.y/a.b.gz a.b .gz   a. a .   .a .a -   .a.b .a .b   x/.. .. -   x.y/ - -");
    for (std::string text, name, extension; Next(names, text, name, extension);) {
        EXPECT_EQ(QvExtractFileNameOnly(TQvPath(text)), name) << text;
        EXPECT_EQ(QvExtractFileExt(TQvPath(text)), extension) << text;
    }
}
