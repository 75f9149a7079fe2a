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
    for (const std::string text : {"QV:/a%20b?c#d:e", "/no scheme", ""}) {
        const TQvURL url(text);
        EXPECT_EQ(url.std_str(), text);
        EXPECT_EQ(url.Scheme(), text[0] == 'Q' ? "QV" : "");
        EXPECT_EQ(url.Path(), text[0] == 'Q' ? "/a%20b?c#d:e" : text);
        EXPECT_FALSE(TQvURLManager().OpenURL(url, kQvOpenRead, kQvShareAll, 0));
        EXPECT_THROW(TQvURLManager().OpenURLE(url, kQvOpenRead, kQvShareAll, 0), TQvMessage);
    }
}

TEST(RegExp, MatchesBytes)
{
    CRegExp expression;
    const auto matches = [&expression](const char* pattern, const char* text) {
        return expression.SetExpr(pattern) && expression.Parse(text, nullptr);
    };
    EXPECT_TRUE(matches("/^A.*$/", "ABC") && matches("^A$", "A") && matches("/", "a/b"));
    EXPECT_TRUE(matches("/^a.b$/", "a\nb")) << "a dot is any byte";
    EXPECT_TRUE(matches("/^.$/", "\xC3") && !matches("/^.$/", "\xC3\xA4")) << "not a character";
    EXPECT_FALSE(matches("/^A.*$/", "xABC") || matches("/^a/", "A") || matches("/^A$/", "A\n"));
    SMatches groups;
    ASSERT_TRUE(expression.SetExpr("/(b+)(x)?(c)/"));
    ASSERT_TRUE(expression.Parse("\xC3\xA4\x62\x62\x63", &groups));
    EXPECT_EQ(groups.Ranges, (std::vector<std::pair<int, int>>{{2, 3}, {2, 2}, {-1, 0}, {4, 1}}));
    EXPECT_FALSE(expression.SetExpr("/a[/") || expression.Parse("a", nullptr));
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
    const auto crc = [&folder](const std::string& content, std::uint64_t start) {
        TQvFileStream stream(TQvPath(folder.Write("f", content)), kQvOpenRead, kQvShareAll);
        EXPECT_TRUE(stream.setPosition(start));
        return ComputePartialCRC(&stream);
    };
    // Expected values from an independent implementation of CRC-32.
    EXPECT_EQ(crc("", 0), 0u);
    EXPECT_EQ(crc("xx123456789", 2), 0xCBF43926u);
    EXPECT_EQ(crc(std::string(256 * 1024, 'a'), 0), 0xBA8D8DC4u);
    EXPECT_EQ(crc(std::string(600000, 'a'), 0), 0xB8E3E871u);
}
} // namespace
