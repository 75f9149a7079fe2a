#include "QvStd/Message.h"

#include <gtest/gtest.h>

#include "QvStd/Log.h"
#include "QvStd/Progress.h"
#include "QvStd/RegExp.h"
#include "QvStd/StringTable.h"
#include "QvStd/Strings.h"
#include "support/EnvironmentVariable.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
TEST(Message, FillsEachPlaceOnce)
{
    // A place in an argument is not filled, and a place without an argument stays.
    EXPECT_STREQ((TQvMessage("@%1%/%2%/%3%/%1%") << "%2%" << 7).what(), "%2%/7/%3%/%2%");
    EXPECT_STREQ((TQvMessage("@100% %0% %x%1%") << "z").what(), "100% %0% %xz");
    EXPECT_STREQ(TQvMessage("@Err_UserBreak").what(), "Err_UserBreak") << "literal: not looked up";
    EXPECT_STREQ((QvMsg_helper("Err_OpenFile_name") << (TQvMessage("@in %1%") << "n")).what(),
                 "\"in n\" cannot be opened.");
}

constexpr TQvStringTableEntry kTable[] = {{"hello", "Hello"}, {"bye", "Bye"}, {"more", "More"}};

TEST(StringTable, TranslationWinsKeyByKeyInTheChosenLanguage)
{
    const TTempFolder folder;
    folder.Write("TestModule.de.x-ini", "hello=Hallo\n[s]\nbye=nested\n[/s]\n");
    folder.Write("TestModule.fr.x-ini", "hello=Bonjour\n");
    folder.Write("outside.x-ini", "hello=Outside\n");
    const std::string bad = folder.Write("QvStd.de.x-ini", "Err_UserBreak=Aus\nnonsense\n");
    folder.Write("QvStd.fr.x-ini", "Err_OpenFile_name=%1% ne va pas.\n");
    folder.MakeFolder("TestModule.");
    const TEnvironmentVariable strings("QV_STRINGS_DIR", folder.Path());
    QvRegisterStringTable("TestModule", kTable, 2);
    QvRegisterStringTable("TestModule", kTable + 2, 1);
    const auto text = [](const char* key) {
        std::string found = "<none>";
        LoadResString("TestModule", key, &found);
        return found;
    };
    constexpr const char* rows[][4] = {// LC_ALL, LC_MESSAGES, LANG
                                       {"C.UTF-8", "", "de", "Hello"},
                                       {"/../outside", "", "", "Hello"},
                                       {"", "", "de@euro", "Hallo"},
                                       {"", "fr_CA", "de", "Bonjour"},
                                       {"fr", "de", "de", "Bonjour"}};
    for (const auto& row : rows) {
        const TEnvironmentVariable all("LC_ALL", row[0]);
        const TEnvironmentVariable messages("LC_MESSAGES", row[1]);
        const TEnvironmentVariable last("LANG", row[2]);
        QvReloadStringTables();
        EXPECT_EQ(text("hello"), row[3]) << row[0] << ", " << row[1] << ", " << row[2];
        EXPECT_EQ(text("bye"), "Bye") << "has no translation";
        EXPECT_EQ(text("more"), "More");
        EXPECT_EQ(text("missing"), "<none>");
    }
    const TEnvironmentVariable all("LC_ALL", "fr");
    QvReloadStringTables();
    EXPECT_STREQ((QvMsg_helper("Err_OpenFile_name") << "x").what(), "x ne va pas.");
    // A malformed translation is logged once, and English shown.
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    QvReloadStringTables();
    TLogCapture log;
    for (int i = 0; i < 2; ++i)
        EXPECT_STREQ(TQvUserBreak().what(), "The operation was cancelled.");
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_NE(log.Entries[0].Shown.find(bad), std::string::npos);
}

TEST(Log, DefaultSinkShowsLevelsAboveTheSetting)
{
    const TQvLogSink before = QvSetLogSink(nullptr);
    const TEnvironmentVariable level("QV_LOG_LEVEL", "3");
    testing::internal::CaptureStderr();
    QvLogWriteInfo(TQvMessage("@three"), 3, 0);
    QvLogWriteInfo(TQvMessage("@four\nfive"), 4, 0);
    QvLogWriteWarning(TQvMessage("@%1%") << "nine", 9, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "info(4): four five\nwarning(9): nine\n");
    QvSetLogSink([](TQvLogKind, const TQvMessage& message, int) {
        QvLogWriteInfo(message, 9, 0); // neither endless nor fatal
        throw message;
    });
    QvLogWriteInfo(TQvMessage("@one"), 9, 0);
    QvSetLogSink(before);
}

TEST(Strings, PartsBytesAndCodePoints)
{
    std::vector<std::string> parts;
    append_parse_strings(parts, "/a//b/", '/', false);
    append_parse_strings(parts, "c/", '/', true);
    EXPECT_EQ(parts, (std::vector<std::string>{"", "a", "", "b", "c", ""}));
    EXPECT_EQ(QvWCharToChar(L"\x7F\x80\x7FF\x800\xFFFF\x10000\x10FFFF"),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(QvWCharToChar(std::wstring{0xD800, 0x110000}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(Korvadel::format_text("a %s b %s 5%%", "%s"), "a %s b %s 5%");
    EXPECT_EQ(Korvadel::ssprintf("%300s-%d", "y", 5), std::string(299, ' ') + "y-5");
}

TEST(RegExp, MatchesBytes)
{
    CRegExp expression;
    const std::tuple<const char*, const char*, bool> kRows[] = {
        {"/^A.*$/", "ABC", true}, {"^A$", "A", true},   {"/^a..b$/", "a\xC3\xA4\x62", true},
        {"/^A.*$/", "xA", false}, {"/^a/", "A", false}, {"/^A$/", "A\n", false}};
    for (const auto& [pattern, text, matches] : kRows) {
        ASSERT_TRUE(expression.SetExpr(pattern));
        EXPECT_EQ(expression.Parse(text, nullptr), matches) << pattern << " and " << text;
    }
    SMatches groups;
    ASSERT_TRUE(expression.SetExpr("/(b+)(x)?(c)/"));
    ASSERT_TRUE(expression.Parse("\xC3\xA4\x62\x62\x63", &groups));
    EXPECT_EQ(groups.Ranges, (std::vector<std::pair<int, int>>{{2, 3}, {2, 2}, {-1, 0}, {4, 1}}));
    EXPECT_FALSE(expression.SetExpr("/a[/"));
    EXPECT_FALSE(expression.Parse("a", nullptr));
}

TEST(Progress, SubRangesReportWithinTheirOwn)
{
    TTestProgress display;
    TLogCapture log;
    TQvProgress progress(&display);
    TQvProgressVar half = progress.SubProgress(0.5, 1.0, 5, 3);
    half.Report(0.5); // nothing is started yet
    half.SetMessage("/a");
    progress.Start();
    half.Start();
    half.Report(0.25);
    half.Report(3.0);
    EXPECT_EQ(display.Positions, (std::vector<double>{0.625, 1.0}));
    display.BreakAfter = 0;
    EXPECT_THROW(half.Report(0.1), TQvUserBreak);
    half.Stop();
    TQvProgress second(&display);
    second.Start();
    second.Stop();
    EXPECT_TRUE(display.Started()) << "what another object started stays started";
    progress.Stop();
    EXPECT_FALSE(display.Started());
    EXPECT_EQ(display.Messages, std::vector<std::string>{"/a"});
    ASSERT_EQ(log.Entries.size(), 3u) << "message, start and stop";
    EXPECT_EQ(log.Entries[0].Level, 5);
    EXPECT_EQ(log.Entries[1].Level, 3);
}
} // namespace
