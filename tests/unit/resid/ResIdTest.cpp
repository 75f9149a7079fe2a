#include "resid/ResId.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "QvStd/RegExp.h"

namespace
{
TEST(ResId, TrailingSlash)
{
    EXPECT_EQ(QvIncludeTrailingSlash(""), "");
    EXPECT_EQ(QvIncludeTrailingSlash("/A"), "/A/");
    EXPECT_EQ(QvIncludeTrailingSlash("/A/"), "/A/");
    EXPECT_EQ(QvExcludeTrailingSlash(""), "");
    EXPECT_EQ(QvExcludeTrailingSlash("/"), "/");
    EXPECT_EQ(QvExcludeTrailingSlash("///"), "/");
    EXPECT_EQ(QvExcludeTrailingSlash("/A//"), "/A");
}

TEST(ResId, NormalFormKeepsLengthAndUtf8)
{
    EXPECT_EQ(QvNormalizeResId("/My \xC3\xA4z\xFF"), "/MY \xC3\xA4Z\xFF");
    EXPECT_EQ(QvNormalizeResId(std::wstring(L"/a\u00e4\U0001F600")), "/A\xC3\xA4\xF0\x9F\x98\x80");
}

TEST(ResId, PartsOfAnId)
{
    struct TRow
    {
        const char *Id, *Path, *Name, *NameOnly, *Ext, *PathNameOnly;
    };
    constexpr TRow kRows[] = {
        {"/A/b.txt", "/A/", "b.txt", "b", ".txt", "/A/b"},
        {"/A/", "/A/", "", "", "", "/A/"},
        {"abc", "", "abc", "abc", "", "abc"},
        {"/A.b/c", "/A.b/", "c", "c", "", "/A.b/c"},
        {"/A/x.tar.gz", "/A/", "x.tar.gz", "x.tar", ".gz", "/A/x.tar"},
        // a name that begins with its only "." has no extension, one that ends in it has an empty
        // one
        {"/A/.hidden", "/A/", ".hidden", ".hidden", "", "/A/.hidden"},
        {"/A/..", "/A/", "..", "..", "", "/A/.."},
        {"/A/a.", "/A/", "a.", "a", ".", "/A/a"},
    };
    for (const TRow& row : kRows) {
        EXPECT_EQ(QvExtractResPath(row.Id), row.Path) << row.Id;
        EXPECT_EQ(QvExtractResName(row.Id), row.Name) << row.Id;
        EXPECT_EQ(QvExtractResNameExt(row.Id), row.Name) << row.Id;
        EXPECT_EQ(QvExtractResNameOnly(row.Id), row.NameOnly) << row.Id;
        EXPECT_EQ(QvExtractResExt(row.Id), row.Ext) << row.Id;
        EXPECT_EQ(QvExtractResPathNameOnly(row.Id), row.PathNameOnly) << row.Id;
    }
}

TEST(ResId, AbsoluteRelativeDeeper)
{
    EXPECT_FALSE(QvIsAbsoluteResId(""));
    EXPECT_TRUE(QvIsRelativeResId(""));
    EXPECT_TRUE(QvIsAbsoluteResId("/"));
    for (const char* deeper : {".", "..", "a", "..a/"})
        EXPECT_TRUE(QvIsDeeperRelativeResId(deeper)) << deeper;
    for (const char* notDeeper : {"", "/a", "../", "../a"})
        EXPECT_FALSE(QvIsDeeperRelativeResId(notDeeper)) << notDeeper;
}

TEST(ResId, Compact)
{
    constexpr const char* kRows[][2] = {
        {"", ""},
        {"/", "/"},
        {"/A/./B/", "/A/B/"},
        {"/A/B/../../C", "/C"},
        {"./A", "A"},
        {"/./././", "/"},
        // the last segment is never looked at
        {"/A/B/..", "/A/B/.."},
        {"/A/.", "/A/."},
        {"/A/B/../", "/A/"},
        // what cannot be resolved stays, and is never eaten by the next ".."
        {"A/../../B/", "../B/"},
        {"../../A/", "../../A/"},
        {"/../A/", "/../A/"},
        {"/../../A/../", "/../../"},
        {"../A/../../B", "../../B"},
        // an empty segment is a segment; one that only begins with ".." is ordinary
        {"/A//../", "/A/"},
        {"//../", "/"},
        {"/..x/../A", "/A"},
        {"/A/..x/../../B", "/B"},
        {"a/b/../c/../../d", "d"},
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
        {"/ABC/x", "/abc/", "x"},
        {"/ABC/x", "/abc", "x"},
        // a name is never matched against a folder
        {"/A/B", "/A/B/", "../B"},
        {"x", "", "x"},
        {"a/x", "a/b/c", "../../x"},
        {"/x", "/", "x"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(GetRelativeResId(row[0], row[1]), row[2]) << row[0] << " from " << row[1];
}

TEST(ResId, BreakIntoParts)
{
    using TParts = std::vector<std::string>;
    EXPECT_EQ(BreakIdIntoParts("/"), TParts());
    EXPECT_EQ(BreakIdIntoParts("/A/b c//d/"), (TParts{"A", "b c", "", "d"}));
    try {
        BreakIdIntoParts("A/B");
        FAIL() << "no exception";
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(), "Err_Internal_msg");
        EXPECT_STREQ(message.what(),
                     "Internal error: BreakIdIntoParts: not an absolute ResId: \"A/B\"");
    }
    EXPECT_THROW(BreakIdIntoParts(""), TQvMessage);
}

TEST(ResId, SearchMasks)
{
    EXPECT_EQ(QvResSearchMaskToRegExpPattern("a*.txt"), "/^A.*\\.TXT$/");
    EXPECT_EQ(QvResSearchMaskToRegExpPattern(""), "/^$/");
    EXPECT_EQ(QvResSearchMaskToRegExpPattern("[a-c]+?"), "/^[A-C]+.$/");
    CRegExp expression;
    ASSERT_TRUE(expression.SetExpr(QvResSearchMaskToRegExpPattern("d?t*")));
    EXPECT_TRUE(expression.Parse("DAT\xFF", nullptr));
    EXPECT_FALSE(expression.Parse("XDATA", nullptr));
}

TEST(ResId, Validity)
{
    for (const char* valid : {"", "/", "/A/", "/A/../.", "/\xC3\xA4\x80"})
        EXPECT_TRUE(QvIsValidResId(valid, true)) << valid;
    for (const char* invalid :
         {"A/B", "//", "/A//B", "/A\\B", "/A\x1F", "/a:b", "/a\"", "/<", "/>", "/|"})
        EXPECT_FALSE(QvIsValidResId(invalid, false)) << invalid;
    EXPECT_FALSE(QvIsValidResId(std::string("/a\0b", 4), false));
    EXPECT_TRUE(QvIsValidResId("/A/*.?", false));
    EXPECT_FALSE(QvIsValidResId("/A/*", true));
    EXPECT_FALSE(QvIsValidResId("/A/?", true));

    for (const char* invalid : {"", "a/b", "a\\b", "\"", "<", ">", "|", ":"})
        EXPECT_FALSE(QvIsValidResNamePart(invalid, false)) << invalid;
    EXPECT_TRUE(QvIsValidResNamePart("a\x01*", false)) << "control characters pass in a name";
    EXPECT_FALSE(QvIsValidResNamePart("a*", true));
}

TEST(ResId, URL)
{
    EXPECT_EQ(ResId2QvURL("/My Computer/a").std_str(), "qvres:/My Computer/a");
}
} // namespace
