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
TEST(URL, KeepsItsTextToTheByte)
{
    const struct
    {
        const char* Text;
        const char* Scheme;
        const char* Path;
    } cases[] = {{"qv:/a%20b?c#d", "qv", "/a%20b?c#d"},
                 {"QV:a:b", "QV", "a:b"},
                 {"/no scheme", "", "/no scheme"},
                 {":x", "", "x"},
                 {"", "", ""}};
    for (const auto& row : cases) {
        const TQvURL url(row.Text);
        EXPECT_EQ(url.std_str(), row.Text);
        EXPECT_EQ(url.Scheme(), row.Scheme) << row.Text;
        EXPECT_EQ(url.Path(), row.Path) << row.Text;
    }
    EXPECT_EQ(MakeQvURL("qv", "/a"), TQvURL("qv:/a"));
}

TEST(URLManager, UnknownSchemeFails)
{
    const TQvURLManager manager;
    for (const char* text : {"qv:/x", "no scheme", ""}) {
        const TQvURL url(text);
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
    const struct
    {
        const char* Expression;
        std::string Text;
        bool Matches;
    } cases[] = {
        {"/^A.*$/", "ABC", true},     {"/^A.*$/", "xABC", false}, {"^A$", "A", true},
        {"/", "a/b", true},           {"/^.$/", "\xC3", true}, // a lone byte, no valid UTF-8
        {"/^.$/", "\xC3\xA4", false},                          // one character, two bytes
        {"/^a.b$/", "a\nb", true},                             // a dot is any byte
        {"/^a/", "A", false}};
    for (const auto& row : cases) {
        CRegExp expression;
        ASSERT_TRUE(expression.SetExpr(row.Expression)) << row.Expression;
        EXPECT_EQ(expression.Parse(row.Text, nullptr), row.Matches) << row.Expression << row.Text;
    }
}

TEST(RegExp, GroupsAreBytePositionsAndBadExpressionsMatchNothing)
{
    CRegExp expression;
    SMatches matches;
    matches.Ranges = {{9, 9}};
    ASSERT_TRUE(expression.SetExpr("/(b+)(x)?(c)/"));
    ASSERT_TRUE(expression.Parse("\xC3\xA4"
                                 "bbc",
                                 &matches));
    const std::vector<std::pair<int, int>> expected{{2, 3}, {2, 2}, {-1, 0}, {4, 1}};
    EXPECT_EQ(matches.Ranges, expected);
    EXPECT_FALSE(expression.SetExpr("/a[/"));
    EXPECT_FALSE(expression.Parse("a", nullptr));
    EXPECT_FALSE(CRegExp().Parse("", nullptr));
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

    const TQvXIniReader reader(tree, "label");
    TQvResourceLabel loaded;
    ASSERT_TRUE(loaded.Load(&reader));
    EXPECT_EQ(loaded.Size, label.Size);
    EXPECT_EQ(loaded.Time, label.Time);
    EXPECT_EQ(loaded.CRC, label.CRC);

    for (const char* text :
         {"size=1\ntime=2\n", "size=x\ntime=2\ncrc=3\n", "size=1\ntime=\ncrc=3\n",
          "size=1\n[time]\n[/]\ncrc=3\n", "size=1\ntime=2\ncrc=-3\n"}) {
        const TQvXIniReader bad(QvParseXIniTree(text, nullptr), "bad");
        EXPECT_FALSE(loaded.Load(&bad)) << text;
        EXPECT_EQ(loaded.Size, label.Size) << "nothing changed";
    }
}

TEST(ResourceLabel, ChecksumRunsFromThePositionToTheEnd)
{
    const TTempFolder folder;
    // Expected values from an independent implementation of CRC-32.
    const struct
    {
        std::string Content;
        std::uint64_t Start;
        std::uint64_t CRC;
    } cases[] = {{"", 0, 0},
                 {"123456789", 0, 0xCBF43926},
                 {"xx123456789", 2, 0xCBF43926},
                 {std::string(256 * 1024, 'a'), 0, 0xBA8D8DC4},
                 {std::string(600000, 'a'), 0, 0xB8E3E871}};
    for (const auto& row : cases) {
        TQvFileStream stream;
        ASSERT_TRUE(stream.Open(folder.Write("f", row.Content), kQvOpenRead, kQvShareAll));
        ASSERT_TRUE(stream.setPosition(row.Start));
        EXPECT_EQ(ComputePartialCRC(&stream), row.CRC) << row.Content.size();
        EXPECT_EQ(stream.getPosition(), row.Content.size());
    }
}
} // namespace
