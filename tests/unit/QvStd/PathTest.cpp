#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <vector>

#include "QvStd/Path.h"

namespace
{
/// Reads the next words of a table; "-" is an empty word.
template <class... TWords>
bool Next(std::istream& table, TWords&... words)
{
    const bool isThere = static_cast<bool>((table >> ... >> words));
    ((words = words == "-" ? "" : words), ...);
    return isThere;
}
} // namespace

/// Part by part, the left side unchanged: an empty part and "." are nothing, ".." removes the part
/// before it. The system ends a path at a zero byte, and would see a ".." before that.
std::string PlainJoin(const std::string& left, std::string right)
{
    right.resize(std::min(right.size(), right.find('\0')));
    std::replace(right.begin(), right.end(), '\\', '/');
    std::vector<std::string> parts;
    std::istringstream text(right);
    for (std::string part; std::getline(text, part, '/');) {
        if (part == ".." && !parts.empty())
            parts.pop_back();
        else if (part != ".." && part != "." && !part.empty())
            parts.push_back(part);
    }
    std::string joined = left;
    for (const std::string& part : parts)
        joined += (joined.empty() || joined.back() == '/' ? "" : "/") + part;
    return joined + (!parts.empty() && right.back() == '/' ? "/" : "");
}

TEST(Path, JoinInBlocksEqualsThePlainJoin)
{
    const std::string lefts[] = {"", "/", "a", "/left/side", "/left/", "/a/../b"};
    std::minstd_rand random;
    for (int i = 0; i < 60000; ++i) {
        std::string right;
        // mostly harmless, so that one odd byte at any place of a block decides
        for (auto length = random() % (i % 50 == 0 ? 300 : 60); length > 0; --length)
            right += random() % 24 == 0 ? "/.\\\0"[random() % 4] : "ab \xFF"[random() % 4];
        for (auto dots = random() % 3; dots > 0 && !right.empty(); --dots)
            right.replace(random() % right.size(), 0, random() % 2 == 0 ? "/.." : "/x");
        const TQvPath left(lefts[random() % std::size(lefts)]);
        const std::string joined = PlainJoin(left.toSysStr(), right);
        ASSERT_EQ((left / std::string_view(right)).toSysStr(), joined);
        ASSERT_EQ((left / TQvPath(right)).toSysStr(), joined);
        ASSERT_EQ(TQvJoinedPath(left, right).c_str(), joined);
    }
}

TEST(Path, OnlyPathsWithinTheLimitsAreValid)
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

TEST(Path, SplitsAPathIntoItsParts)
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
