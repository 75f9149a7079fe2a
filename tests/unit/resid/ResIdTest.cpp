#include "resid/ResId.h"

#include <functional>
#include <gtest/gtest.h>

#include "support/Thrown.h"

namespace
{
using TIds = std::vector<std::string>;

TEST(ResId, SlashesNormalFormAndMasks)
{
    EXPECT_EQ(QvIncludeTrailingSlash(""), "");
    EXPECT_EQ(QvIncludeTrailingSlash("/A/"), "/A/");
    EXPECT_EQ(QvExcludeTrailingSlash(""), "");
    EXPECT_EQ(QvExcludeTrailingSlash("///"), "/");
    EXPECT_EQ(QvExcludeTrailingSlash("/A//"), "/A");
    EXPECT_EQ(QvNormalizeResId("/My \xC3\xA4z\xFF"), "/MY \xC3\xA4Z\xFF");
    EXPECT_EQ(QvNormalizeResId(std::wstring(L"/a\u00e4\U0001F600")), "/A\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_EQ(QvResSearchMaskToRegExpPattern("a*.txt"), "/^A.*\\.TXT$/");
    EXPECT_EQ(QvResSearchMaskToRegExpPattern(""), "/^$/");
    EXPECT_EQ(QvResSearchMaskToRegExpPattern("[a-c]+?"), "/^[A-C]+.$/");
}

TEST(ResId, PartsOfAnId)
{
    constexpr const char* kRows[][6] = {
        {"/A/b.txt", "/A/", "b.txt", "b", ".txt", "/A/b"},
        {"/A/", "/A/", "", "", "", "/A/"},
        {"abc", "", "abc", "abc", "", "abc"},
        {"/A.b/c", "/A.b/", "c", "c", "", "/A.b/c"},
        {"/A/x.tar.gz", "/A/", "x.tar.gz", "x.tar", ".gz", "/A/x.tar"},
        // a name that begins with its only "." has no extension, one that ends in it an empty one
        {"/A/.hidden", "/A/", ".hidden", ".hidden", "", "/A/.hidden"},
        {"/A/..", "/A/", "..", "..", "", "/A/.."},
        {"/A/a.", "/A/", "a.", "a", ".", "/A/a"},
    };
    for (const auto& [id, path, name, nameOnly, extension, pathNameOnly] : kRows) {
        EXPECT_EQ(QvExtractResPath(id), path) << id;
        EXPECT_EQ(QvExtractResName(id), name) << id;
        EXPECT_EQ(QvExtractResNameExt(id), name) << id;
        EXPECT_EQ(QvExtractResNameOnly(id), nameOnly) << id;
        EXPECT_EQ(QvExtractResExt(id), extension) << id;
        EXPECT_EQ(QvExtractResPathNameOnly(id), pathNameOnly) << id;
    }
}

TEST(ResId, Compact)
{
    // the last segment is never looked at, and what cannot be resolved stays
    for (const char* same : {"", "/", "/A/B/..", "/A/.", "../../A/", "/../A/"})
        EXPECT_EQ(QvCompactResId(same), same);
    constexpr const char* kRows[][2] = {
        {"/A/./B/", "/A/B/"},
        {"./A", "A"},
        {"/./././", "/"},
        {"/A/B/../../C", "/C"},
        {"/A/B/../", "/A/"},
        {"a/b/../c/../../d", "d"},
        // a ".." never eats another one
        {"A/../../B/", "../B/"},
        {"/../../A/../", "/../../"},
        {"../A/../../B", "../../B"},
        // an empty segment is a segment; one that only begins with ".." is ordinary
        {"/A//../", "/A/"},
        {"//../", "/"},
        {"/..x/../A", "/A"},
        {"/A/..x/../../B", "/B"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(QvCompactResId(row[0]), row[1]) << row[0];
}

TEST(ResId, MergeAndRelative)
{
    EXPECT_EQ(QvMergeResId("/A/B", "../c"), "/A/c");
    EXPECT_EQ(QvMergeResId("/A/B/", "/X/./c"), "/X/c");
    EXPECT_EQ(QvMergeResId("", "a/./b"), "a/b");

    constexpr const char* kRows[][3] = {
        {"/A/B/c.txt", "/A/", "B/c.txt"},
        {"/a/b/c.txt", "/A/X/", "../b/c.txt"},
        {"/A/", "/A/", ""},
        {"/A/c", "B/", "/A/c"},
        {"A/c", "/B", "A/c"},
        {"/ABC/x", "/abc", "x"},
        {"/A/B", "/A/B/", "../B"}, // a name is never matched against a folder
        {"x", "", "x"},
        {"a/x", "a/b/c", "../../x"},
        {"/x", "/", "x"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(GetRelativeResId(row[0], row[1]), row[2]) << row[0] << " from " << row[1];
}

TEST(ResId, BreakIntoParts)
{
    EXPECT_EQ(BreakIdIntoParts("/"), TIds());
    EXPECT_EQ(BreakIdIntoParts("/A/b c//d/"), (TIds{"A", "b c", "", "d"}));
    for (const std::string id : {"A/B", ""}) {
        const TQvMessage error = Thrown([&id] { BreakIdIntoParts(id); });
        EXPECT_EQ(error.text(), "Err_Internal_msg");
        EXPECT_EQ(error.what(),
                  "Internal error: BreakIdIntoParts: not an absolute ResId: \"" + id + "\"");
    }
}

TEST(ResId, Kinds)
{
    using namespace std::placeholders;
    const std::tuple<const char*, std::function<bool(const std::string&)>, TIds, TIds> kRows[] = {
        {"absolute", QvIsAbsoluteResId, {"/"}, {"", "a"}},
        {"relative", QvIsRelativeResId, {"", "a"}, {"/"}},
        {"deeper", QvIsDeeperRelativeResId, {".", "..", "a", "..a/"}, {"", "/a", "../", "../a"}},
        {"id",
         std::bind(QvIsValidResId, _1, false),
         {"", "/", "/A/", "/A/../.", "/\xC3\xA4\x80", "/A/*.?"},
         {"A/B", "//", "/A//B", "/A\\B", "/A\x1F", "/a:b", "/a\"", "/<", "/>", "/|",
          std::string("/a\0b", 4)}},
        {"id without wildcards", std::bind(QvIsValidResId, _1, true), {"", "/A/"}, {"/A/*", "/?"}},
        {"name", // control characters pass in a name
         std::bind(QvIsValidResNamePart, _1, false),
         {"a\x01*"},
         {"", "a/b", "a\\b", "\"", "<", ">", "|", ":"}},
        {"name without wildcards", std::bind(QvIsValidResNamePart, _1, true), {"a"}, {"a*", "?"}},
    };
    for (const auto& [kind, is, those, others] : kRows) {
        for (const std::string& id : those)
            EXPECT_TRUE(is(id)) << kind << " " << id;
        for (const std::string& id : others)
            EXPECT_FALSE(is(id)) << kind << " " << id;
    }
}
} // namespace
