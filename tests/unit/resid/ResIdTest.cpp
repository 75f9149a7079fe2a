#include "resid/ResId.h"

#include <functional>
#include <gtest/gtest.h>
#include <random>

#include "resid/NormalResId.h"
#include "support/Thrown.h"

namespace
{
using TIds = std::vector<std::string>;

/// Each row: an id, " > " and what the function makes of it.
void ExpectEach(const std::function<std::string(const std::string&)>& function, const TIds& rows)
{
    for (const std::string& row : rows) {
        const std::string id = row.substr(0, row.find(" > "));
        EXPECT_EQ(id + " > " + function(id), row);
    }
}

TEST(ResId, SlashesNormalFormAndMasks)
{
    ExpectEach(QvIncludeTrailingSlash, {" > ", "/A/ > /A/"});
    ExpectEach(QvExcludeTrailingSlash, {" > ", "/// > /", "/A// > /A"});
    ExpectEach(QvResSearchMaskToRegExpPattern,
               {"a*.txt > /^A.*\\.TXT$/", " > /^$/", "[a-c]+? > /^[A-C]+.$/"});
    EXPECT_EQ(QvNormalizeResId("/My \xC3\xA4z\xFF"), "/MY \xC3\xA4Z\xFF");
    EXPECT_EQ(QvNormalizeResId(std::wstring(L"/a\u00e4\U0001F600")), "/A\xC3\xA4\xF0\x9F\x98\x80");
}

TEST(ResId, SplitsAnIdIntoItsParts)
{
    // id; path, name, name without extension, extension, path and name without extension
    constexpr const char* kRows[][6] = {
        {"/A/b.txt", "/A/", "b.txt", "b", ".txt", "/A/b"},
        {"/A/", "/A/", "", "", "", "/A/"},
        {"abc", "", "abc", "abc", "", "abc"},
        {"/A.b/c", "/A.b/", "c", "c", "", "/A.b/c"},
        {"/A/x.tar.gz", "/A/", "x.tar.gz", "x.tar", ".gz", "/A/x.tar"},
        // a name that begins with its only "." has no extension, one that ends in it the extension
        // "."
        {"/A/.hidden", "/A/", ".hidden", ".hidden", "", "/A/.hidden"},
        {"/A/..", "/A/", "..", "..", "", "/A/.."},
        {"/A/a.", "/A/", "a.", "a", ".", "/A/a"}};
    for (const auto& [id, path, name, nameOnly, extension, pathNameOnly] : kRows) {
        EXPECT_EQ(QvExtractResPath(id), path) << id;
        EXPECT_EQ(QvExtractResName(id), name) << id;
        EXPECT_EQ(QvExtractResNameExt(id), name) << id;
        EXPECT_EQ(QvExtractResNameOnly(id), nameOnly) << id;
        EXPECT_EQ(QvExtractResExt(id), extension) << id;
        EXPECT_EQ(QvExtractResPathNameOnly(id), pathNameOnly) << id;
    }
}

TEST(ResId, CompactingResolvesDotSegmentsExceptTheLast)
{
    // the last segment and a "../" without a segment before it stay
    ExpectEach(QvCompactResId,
               {" > ", "/ > /", "/A/B/.. > /A/B/..", "/A/. > /A/.", "../../A/ > ../../A/",
                "/../A/ > /../A/", "/A/./B/ > /A/B/", "./A > A", "/./././ > /", "/A/B/../../C > /C",
                "/A/B/../ > /A/", "a/b/../c/../../d > d"});
    // a ".." never removes another one
    ExpectEach(QvCompactResId,
               {"A/../../B/ > ../B/", "/../../A/../ > /../../", "../A/../../B > ../../B"});
    // an empty segment is a segment; one that only begins with ".." is ordinary
    ExpectEach(QvCompactResId,
               {"/A//../ > /A/", "//../ > /", "/..x/../A > /A", "/A/..x/../../B > /B"});

    EXPECT_EQ(QvMergeResId("/A/B", "../c"), "/A/c");
    EXPECT_EQ(QvMergeResId("/A/B/", "/X/./c"), "/X/c");
    EXPECT_EQ(QvMergeResId("", "a/./b"), "a/b");
}

TEST(ResId, ARelativeIdClimbsToTheCommonFolder)
{
    const auto from = [](const char* base) {
        return [base](const std::string& id) { return GetRelativeResId(id, base); };
    };
    ExpectEach(from("/A/"), {"/A/B/c.txt > B/c.txt", "/A/ > "});
    ExpectEach(from("/A/X/"), {"/a/b/c.txt > ../b/c.txt"});
    ExpectEach(from("/A/B/"), {"/A/B > ../B"}); // a name is never matched against a folder
    ExpectEach(from("/abc"), {"/ABC/x > x", "/AB/x > ../AB/x", "A/c > A/c"});
    ExpectEach(from(""), {"x > x"});
    ExpectEach(from("a/b/c"), {"a/x > ../../x"});
}

TEST(ResId, BreaksOnlyAbsoluteIds)
{
    EXPECT_EQ(BreakIdIntoParts("/"), TIds());
    EXPECT_EQ(BreakIdIntoParts("/A/b c//d/"), (TIds{"A", "b c", "", "d"}));
    EXPECT_EQ(Thrown([] { BreakIdIntoParts(""); }).text(), "Err_Internal_msg");
}

TEST(ResId, Kinds)
{
    const auto isValid = [](const std::string& id) { return QvIsValidResId(id, false); };
    const auto isPlain = [](const std::string& id) { return QvIsValidResId(id, true); };
    const auto isName = [](const std::string& name) { return QvIsValidResNamePart(name, false); };
    const auto isPlainName = [](const std::string& name) {
        return QvIsValidResNamePart(name, true);
    };
    const std::tuple<const char*, bool (*)(const std::string&), TIds, TIds> kRows[] = {
        {"absolute", QvIsAbsoluteResId, {"/"}, {"", "a"}},
        {"relative", QvIsRelativeResId, {"", "a"}, {"/"}},
        {"deeper", QvIsDeeperRelativeResId, {".", "..", "a", "..a/"}, {"", "/a", "../", "../a"}},
        {"id",
         isValid,
         {"", "/", "/A/", "/A/../.", "/\xC3\xA4\x80", "/A/*.?"},
         {"A/B", "//", "/A//B", "/A\\B", "/A\x1F", "/a:b", "/a\"", "/<", "/>", "/|",
          std::string("/a\0b", 4)}},
        {"id without wildcards", isPlain, {"", "/A/"}, {"/A/*", "/?"}},
        {"name, where control characters pass",
         isName,
         {"a\x01*"},
         {"", "a/b", "a\\b", "\"", "<", ">", "|", ":"}},
        {"name without wildcards", isPlainName, {"a"}, {"a*", "?"}}};
    for (const auto& [kind, is, those, others] : kRows) {
        for (const std::string& id : those)
            EXPECT_TRUE(is(id)) << kind << " " << id;
        for (const std::string& id : others)
            EXPECT_FALSE(is(id)) << kind << " " << id;
    }
}

TEST(ResId, NormalFormInOnePassEqualsThePlainOne)
{
    std::minstd_rand random;
    for (int i = 0; i < 20000; ++i) {
        std::string id = i % 8 == 0 ? "" : "/";
        // long enough for blocks and words of every filling; mostly of harmless characters
        for (auto length = random() % (i % 16 == 0 ? 600 : 80); length > 0; --length)
            id += random() % 64 == 0 ? static_cast<char>(random() % 256)
                                     : "abyzABYZ059/@[`{.\x80\xE1\xFA\xFF"[random() % 21];
        for (const bool forbidWildcards : {false, true}) {
            const TNormalResId normal(id, forbidWildcards);
            ASSERT_EQ(normal.Text(), QvNormalizeResId(id));
            ASSERT_EQ(normal.IsValid(), QvIsValidResId(id, forbidWildcards)) << id;
            for (std::size_t at = 0; at < 64 * normal.Words(); ++at)
                ASSERT_EQ(normal.Slashes()[at / 64] >> at % 64 & 1,
                          at < id.size() && id[at] == '/' ? 1u : 0u)
                    << id << " at " << at;
        }
    }
}
} // namespace
