#include "QvStd/URLManager.h"

#include <gtest/gtest.h>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "QvStd/RegExp.h"
#include "QvStd/ResourceLabel.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniWriter.h"
#include "support/TempFolder.h"

namespace
{
TEST(URL, KeepsItsTextToTheByteAndUnknownSchemesFail)
{
    const char* const cases[][3] = {{"qv:/a%20b?c#d", "qv", "/a%20b?c#d"},
                                    {"QV:a:b", "QV", "a:b"},
                                    {"/no scheme", "", "/no scheme"},
                                    {":x", "", "x"},
                                    {"", "", ""}};
    for (const auto& [text, scheme, path] : cases) {
        const TQvURL url(text);
        EXPECT_EQ(url.std_str(), text);
        EXPECT_EQ(url.Scheme(), scheme) << text;
        EXPECT_EQ(url.Path(), path) << text;
        const TQvURLManager manager;
        EXPECT_FALSE(manager.ResourceExists(url)) << text;
        EXPECT_FALSE(manager.OpenURL(url, kQvOpenRead, kQvShareAll, 0));
        EXPECT_EQ(manager.GetURLFile(url, true), "");
        try {
            manager.OpenURLE(url, kQvOpenRead, kQvShareAll, 0);
            ADD_FAILURE() << text;
        } catch (const TQvMessage& message) {
            EXPECT_EQ(message.text(), "Err_NoURLHandler_url");
            EXPECT_EQ(message.arguments(), std::vector<std::string>{text});
        }
    }
}

TEST(RegExp, MatchesBytes)
{
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"/^A.*$/", "ABC", true},  {"/^A.*$/", "xABC", false}, {"^A$", "A", true},
        {"/^A$/", "A\n", false},   {"/", "a/b", true},         {"/^a/", "A", false},
        {"/^a.b$/", "a\nb", true}, {"/^.$/", "\xC3", true},    {"/^.$/", "\xC3\xA4", false}};
    CRegExp expression;
    for (const auto& [pattern, text, matches] : cases) {
        ASSERT_TRUE(expression.SetExpr(pattern)) << pattern;
        EXPECT_EQ(expression.Parse(text, nullptr), matches) << pattern << text;
    }
    SMatches groups;
    ASSERT_TRUE(expression.SetExpr("/(b+)(x)?(c)/"));
    ASSERT_TRUE(expression.Parse("\xC3\xA4\x62\x62\x63", &groups));
    EXPECT_EQ(groups.Ranges, (std::vector<std::pair<int, int>>{{2, 3}, {2, 2}, {-1, 0}, {4, 1}}));
    EXPECT_FALSE(expression.SetExpr("/a[/"));
    EXPECT_FALSE(expression.Parse("a", nullptr));
}

TEST(ResourceLabel, SurvivesADocument)
{
    TQvResourceLabel label;
    label.Size = 0xFFFFFFFFFFFFFFFFu;
    label.Time = TQvDateTime(-5);
    label.CRC = 4294967295u;
    const var_a<TQvXIniTree*> tree = make_var<TQvXIniTree>();
    TQvXIniTreeWriter writer(tree);
    ASSERT_TRUE(label.Save(&writer));
    EXPECT_EQ(QvFormatXIniTree(*tree), "size=18446744073709551615\ntime=-5\ncrc=4294967295\n");
    TQvResourceLabel loaded;
    const TQvXIniReader reader(tree, "label");
    ASSERT_TRUE(loaded.Load(&reader));
    for (const char* text :
         {"size=1\ntime=2\n", "size=x\ntime=2\ncrc=3\n", "size=1\ntime=\ncrc=3\n",
          "size=1\n[time]\n[/]\ncrc=3\n", "size=1\ntime=2\ncrc=-3\n"}) {
        const TQvXIniReader bad(QvParseXIniTree(text, nullptr), "bad");
        EXPECT_FALSE(loaded.Load(&bad)) << text;
    }
    EXPECT_EQ(loaded.Size, label.Size);
    EXPECT_EQ(loaded.Time, label.Time);
    EXPECT_EQ(loaded.CRC, label.CRC);
}

TEST(ResourceLabel, ChecksumRunsFromThePositionToTheEnd)
{
    const TTempFolder folder;
    // Expected values from an independent implementation of CRC-32.
    const std::tuple<std::string, std::uint64_t, std::uint64_t> cases[] = {
        {"", 0, 0},
        {"xx123456789", 2, 0xCBF43926},
        {std::string(256 * 1024, 'a'), 0, 0xBA8D8DC4},
        {std::string(600000, 'a'), 0, 0xB8E3E871}};
    for (const auto& [content, start, crc] : cases) {
        TQvFileStream stream(TQvPath(folder.Write("f", content)), kQvOpenRead, kQvShareAll);
        ASSERT_TRUE(stream.setPosition(start));
        EXPECT_EQ(ComputePartialCRC(&stream), crc) << content.size();
    }
}
} // namespace
