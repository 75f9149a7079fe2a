#include "QvStd/Message.h"

#include <gtest/gtest.h>

#include "QvStd/Log.h"
#include "QvStd/Progress.h"
#include "QvStd/StringTable.h"
#include "QvStd/Strings.h"
#include "support/EnvironmentVariable.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace
{
TEST(Message, ShownText)
{
    EXPECT_STREQ((TQvMessage("@a %1% b %2% %1%") << "x" << 7).what(), "a x b 7 x");
    // An argument that looks like a place is no place, and a place without an argument stays.
    EXPECT_STREQ((TQvMessage("@%1%/%2%/%3%") << "%2%"
                                             << "y")
                     .what(),
                 "%2%/y/%3%");
    EXPECT_STREQ((TQvMessage("@100% %0% %x%1%") << "z").what(), "100% %0% %xz");
    EXPECT_STREQ(TQvMessage("no key").what(), "no key");
    EXPECT_STREQ(TQvMessage("@Err_UserBreak").what(), "Err_UserBreak") << "literal: not looked up";
    EXPECT_STREQ((QvMsg_helper("Err_OpenFile_name") << (TQvMessage("@in %1%") << "n")).what(),
                 "\"in n\" cannot be opened.");
    EXPECT_EQ((QvMsg_helper("Err_OpenFile_name") << "a").text(), "Err_OpenFile_name");
}

constexpr TQvStringTableEntry kTable[] = {{"hello", "Hello"}, {"bye", "Bye"}};
constexpr TQvStringTableEntry kMore[] = {{"more", "More"}};

class StringTableTest : public testing::Test
{
protected:
    StringTableTest()
    {
        QvRegisterStringTable("TestModule", kTable, 2);
        QvRegisterStringTable("TestModule", kMore, 1);
    }
    ~StringTableTest() override { QvReloadStringTables(); }

    static std::string Text(const std::string& key)
    {
        std::string text = "<none>";
        LoadResString("TestModule", key, &text);
        return text;
    }

    TTempFolder m_folder;
    TEnvironmentVariable m_strings{"QV_STRINGS_DIR", m_folder.Path()};
    TEnvironmentVariable m_all{"LC_ALL", ""};
    TEnvironmentVariable m_messages{"LC_MESSAGES", ""};
    TEnvironmentVariable m_lang{"LANG", ""};
};

TEST_F(StringTableTest, TranslationWinsKeyByKey)
{
    m_folder.Write("TestModule.de.x-ini", "hello=Hallo\n[s]\nbye=nested\n[/s]\n");
    m_folder.Write("QvStd.de.x-ini", "Err_OpenFile_name=%1% geht nicht auf.\n");
    const TEnvironmentVariable lang("LANG", "de_DE.UTF-8");
    QvReloadStringTables();
    EXPECT_EQ(Text("hello"), "Hallo");
    EXPECT_EQ(Text("bye"), "Bye");
    EXPECT_EQ(Text("more"), "More");
    EXPECT_EQ(Text("missing"), "<none>");
    EXPECT_STREQ((QvMsg_helper("Err_OpenFile_name") << "x").what(), "x geht nicht auf.");
}

TEST_F(StringTableTest, LanguageChoice)
{
    m_folder.Write("TestModule.de.x-ini", "hello=Hallo\n");
    m_folder.Write("TestModule.fr.x-ini", "hello=Bonjour\n");
    m_folder.Write("outside.x-ini", "hello=Outside\n");
    m_folder.MakeFolder("TestModule.");
    const struct
    {
        const char* All;
        const char* Messages;
        const char* Lang;
        const char* Hello;
    } cases[] = {{"fr", "de", "de", "Bonjour"},   {"", "fr_CA", "de", "Bonjour"},
                 {"", "", "de@euro", "Hallo"},    {"C", "de", "de", "Hello"},
                 {"POSIX", "", "de", "Hello"},    {"C.UTF-8", "", "de", "Hello"},
                 {"", "", "", "Hello"},           {"it", "", "de", "Hello"},
                 {"/../outside", "", "", "Hello"}};
    for (const auto& row : cases) {
        const TEnvironmentVariable all("LC_ALL", row.All);
        const TEnvironmentVariable messages("LC_MESSAGES", row.Messages);
        const TEnvironmentVariable lang("LANG", row.Lang);
        QvReloadStringTables();
        EXPECT_EQ(Text("hello"), row.Hello) << row.All << "|" << row.Messages << "|" << row.Lang;
    }
}

TEST_F(StringTableTest, MalformedTranslationIsLoggedOnceAndEnglishShown)
{
    const std::string path = m_folder.Write("QvStd.de.x-ini", "Err_UserBreak=Aus\nnonsense\n");
    const TEnvironmentVariable lang("LANG", "de");
    QvReloadStringTables();
    TLogCapture log;
    for (int i = 0; i < 2; ++i)
        EXPECT_STREQ(TQvUserBreak().what(), "The operation was broken off.");
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_NE(log.Entries[0].Shown.find(path), std::string::npos);
    EXPECT_EQ(log.Entries[0].Kind, TQvLogKind::Warning);
}

TEST(Log, DefaultSinkShowsLevelsAboveTheSetting)
{
    const TQvLogSink before = QvSetLogSink(nullptr);
    testing::internal::CaptureStderr();
    {
        const TEnvironmentVariable level("QV_LOG_LEVEL", "3");
        QvLogWriteInfo(TQvMessage("@three"), 3, 0);
        QvLogWriteInfo(TQvMessage("@four\nfive"), 4, 0);
        QvLogWriteWarning(TQvMessage("@%1%") << "nine", 9, 0);
    }
    const std::string shown = testing::internal::GetCapturedStderr();
    QvSetLogSink(before);
    EXPECT_EQ(shown, "info(4): four five\nwarning(9): nine\n");
}

TEST(Log, SinkThatThrowsOrLogsHurtsNobody)
{
    int calls = 0;
    const TQvLogSink before = QvSetLogSink([&](TQvLogKind, const TQvMessage& message, int) {
        ++calls;
        QvLogWriteInfo(message, 9, 0);
        throw message;
    });
    QvLogWriteInfo(TQvMessage("@one"), 9, 0);
    QvLogWriteInfo(TQvMessage("@two"), 9, 0);
    QvSetLogSink(before);
    EXPECT_EQ(calls, 2);
}

TEST(Strings, Parts)
{
    using TParts = std::vector<std::string>;
    const struct
    {
        const char* Text;
        bool KeepLastEmpty;
        TParts Parts;
    } cases[] = {{"a/b", false, {"a", "b"}},
                 {"/a//b", false, {"", "a", "", "b"}},
                 {"a/", false, {"a"}},
                 {"a/", true, {"a", ""}},
                 {"/", false, {""}},
                 {"/", true, {"", ""}},
                 {"", false, {}},
                 {"", true, {""}}};
    for (const auto& row : cases) {
        TParts parts{"before"};
        append_parse_strings(parts, row.Text, '/', row.KeepLastEmpty);
        TParts expected{"before"};
        expected.insert(expected.end(), row.Parts.begin(), row.Parts.end());
        EXPECT_EQ(parts, expected) << row.Text << row.KeepLastEmpty;
    }
}

TEST(Strings, BytesAndCodePoints)
{
    EXPECT_EQ(toupper_locale("az{`\xC3\xA4\xE1"), "AZ{`\xC3\xA4\xE1");
    const std::pair<wchar_t, const char*> cases[] = {
        {0x7F, "\x7F"},           {0x80, "\xC2\x80"},         {0x7FF, "\xDF\xBF"},
        {0x800, "\xE0\xA0\x80"},  {0xFFFF, "\xEF\xBF\xBF"},   {0x10000, "\xF0\x90\x80\x80"},
        {0xD800, "\xEF\xBF\xBD"}, {0x110000, "\xEF\xBF\xBD"}, {0x10FFFF, "\xF4\x8F\xBF\xBF"}};
    for (const auto& [code, bytes] : cases)
        EXPECT_EQ(QvWCharToChar(std::wstring(1, code)), bytes) << static_cast<long>(code);
    EXPECT_EQ(Korvadel::format_text("a %s b %s 5%%", "%s"), "a %s b %s 5%");
    EXPECT_EQ(Korvadel::format_text("no place", "x"), "no place x");
    EXPECT_EQ(Korvadel::ssprintf("%s-%d", std::string(300, 'y').c_str(), 5),
              std::string(300, 'y') + "-5");
}

/// Notes what reaches the display.
class TRecorder : public TQvProgressHandler
{
public:
    void Start() override { ++Starts; }
    void Stop() override { --Starts; }
    bool Started() const override { return Starts > 0; }
    bool Active() const override { return Starts > 0; }
    void SetPosition(double position) override { Position = position; }
    void SetMessage(const std::string& message) override { Shown = message; }
    bool Poll() override { return true; }
    void Update() override
    {
        if (Break)
            throw TQvUserBreak();
    }
    bool UserBreak() const override { return Break; }

    int Starts = 0;
    double Position = -1;
    bool Break = false;
    std::string Shown;
};

TEST(Progress, SubRangesNest)
{
    TRecorder recorder;
    TQvProgress progress(&recorder);
    TQvProgressVar half = progress.SubProgress(0.5, 1.0, 3, 3);
    half.Report(0.5);
    EXPECT_EQ(recorder.Position, -1) << "nothing is started yet";
    progress.Start();
    half.Start();
    half.Report(0.5);
    EXPECT_DOUBLE_EQ(recorder.Position, 0.75);
    {
        TQvProgressVar quarter = half.SubProgress(0.0, 0.5, 3, 3);
        TQvProgress inner(quarter.Handler());
        inner.Start();
        inner.Report(1.0);
        EXPECT_DOUBLE_EQ(recorder.Position, 0.75);
        inner.Report(3.0);
        EXPECT_DOUBLE_EQ(recorder.Position, 0.75) << "never out of its own range";
        recorder.Break = true;
        EXPECT_THROW(inner.Report(0.1), TQvUserBreak);
    }
    EXPECT_EQ(recorder.Starts, 1) << "sub-ranges start and stop themselves only";
    TQvProgress second(&recorder);
    second.Start();
    second.Stop();
    EXPECT_EQ(recorder.Starts, 1) << "what another object started stays started";
    progress.Stop();
    EXPECT_EQ(recorder.Starts, 0);
}

TEST(Progress, SubRangeShowsAndLogsItsMessage)
{
    TRecorder recorder;
    TLogCapture log;
    TQvProgressVar part = TQvProgress(&recorder).SubProgress(0, 1, 5, 3);
    part.SetMessage("/a");
    part.Start();
    part.Stop();
    EXPECT_EQ(recorder.Shown, "/a");
    ASSERT_EQ(log.Entries.size(), 3u);
    EXPECT_EQ(log.Entries[0].Level, 5);
    EXPECT_EQ(log.Entries[1].Level, 3);

    TQvProgress none(nullptr);
    none.Start();
    none.Report(1);
    EXPECT_EQ(none.SubProgress(0, 1, 3, 3).Handler(), nullptr);
}
} // namespace
