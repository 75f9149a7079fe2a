// A journal cut at every length and changed in every byte.
#include "JournalFixture.h"

#include <cctype>

namespace
{
const TJournalEntries kComplete = {{"/B/", "b"}, {"/C", "c"}};
const TJournalEntries kRebuilt = {{"/B/", "/b"}, {"/C", "/c"}};

/// A journal of three blocks, told line by line; what a reader has to answer is worked out here
/// from the lines, not by parsing.
struct TJournal
{
    struct TLine
    {
        std::size_t Start;
        std::size_t End;
        bool IsCheckpoint;
        TJournalEntries After;
    };
    std::string Text;
    std::vector<TLine> Lines;

    TJournal()
    {
        const TJournalEntries a = {{"/A", "a"}}, ab = {{"/A", "a"}, {"/B/", "b"}},
                              b = {{"/B/", "b"}};
        const std::pair<const char*, TJournalEntries> lines[] = {
            {":0123ABCD\r\n", {}}, {";QV5Dir\r\n", {}},     {"/A?a\r\n", a},
            {"/B/?b\r\n", ab},     {nullptr, ab},           {"-A\r\n", b},
            {nullptr, b},          {"/C?c\r\n", kComplete}, {nullptr, kComplete}};
        std::size_t block = 0;
        for (const auto& [text, after] : lines) {
            const std::size_t start = Text.size();
            const bool seals = text == nullptr;
            Text = seals ? Text.substr(0, block) + Sealed(Text.substr(block)) : Text + text;
            block = seals ? Text.size() : block;
            Lines.push_back({start, Text.size(), seals, after});
        }
    }
    /// The last line that is there whole when the journal is cut at `length`.
    TLine LastBefore(std::size_t length) const
    {
        TLine last = {0, 0, false, {}};
        for (const TLine& line : Lines)
            if (line.End <= length)
                last = line;
        return last;
    }
    /// The entries that checkpoints before `length` seal; null when there is no checkpoint.
    const TJournalEntries* SealedBefore(std::size_t length) const
    {
        const TJournalEntries* entries = nullptr;
        for (const TLine& line : Lines)
            if (line.IsCheckpoint && line.End <= length)
                entries = &line.After;
        return entries;
    }
    /// Whether the journal is still worth the same with `byte` at `position`: behind the digits of
    /// a checkpoint, which no checksum covers, and for a digit in the other letter case.
    bool Survives(std::size_t position, char byte) const
    {
        for (const TLine& line : Lines) {
            if (!line.IsCheckpoint || position < line.Start || position >= line.End)
                continue;
            if (position == line.End - 2)
                return byte != '\n' && std::isxdigit(static_cast<unsigned char>(byte)) == 0;
            return position > line.Start && std::toupper(byte) == Text[position];
        }
        return false;
    }
};

const TJournal kJournal;

class TDamageTest : public TStorageTest
{
protected:
    TDamageTest()
    {
        WriteContent("c");
        Temp.MakeFolder("s/content/b");
    }
    TLogCapture Log; ///< keeps the warnings of the repairs off the screen
};

TEST_F(TDamageTest, CutAtEveryLength)
{
    for (std::size_t length = 0; length <= kJournal.Text.size(); ++length) {
        const std::string text = kJournal.Text.substr(0, length);
        const TJournal::TLine last = kJournal.LastBefore(length);
        const TJournalReading reading = ReadJournal(text, nullptr);
        EXPECT_EQ(reading.State == TJournalState::BadSignature, length < 20) << length;
        EXPECT_EQ(reading.UnreadBytes, length < 20 ? 0 : length - last.End) << length;

        WriteJournal(text);
        EXPECT_EQ(Storage.DoLoadDir(), last.IsCheckpoint) << length;
        EXPECT_EQ(Storage.Dir(), last.After) << length;
        ASSERT_TRUE(Storage.LoadDir()) << length;
        EXPECT_EQ(Storage.Dir(), last.IsCheckpoint ? last.After : kRebuilt) << length;
    }
}

TEST_F(TDamageTest, AnAppendKeepsWhatWasSealedAtEveryCut)
{
    for (const std::string& tail : {std::string(), std::string(7, '\0'), std::string(5000, 'x')}) {
        for (std::size_t length = 0; length <= kJournal.Text.size(); ++length) {
            const TJournalEntries* const sealed = kJournal.SealedBefore(length);
            WriteJournal(kJournal.Text.substr(0, length) + tail);
            ASSERT_TRUE(Storage.AddResourceRecord("/N", false)) << length;
            EXPECT_EQ(Storage.DoLoadDir(), sealed != nullptr) << length;
            if (sealed == nullptr)
                continue;
            TJournalEntries expected = *sealed;
            expected["/N"] = "N";
            EXPECT_EQ(Storage.Dir(), expected) << length;
        }
    }
}

TEST_F(TDamageTest, EveryByteChangedToEveryOther)
{
    for (std::size_t position = 0; position < kJournal.Text.size(); ++position) {
        for (int change = 1; change < 256; ++change) {
            std::string text = kJournal.Text;
            text[position] = static_cast<char>(text[position] ^ change);
            const bool survives = kJournal.Survives(position, text[position]);
            TJournalEntries entries;
            const TJournalReading reading = ReadJournal(text, &entries);
            ASSERT_EQ(reading.State == TJournalState::Whole, survives) << position << " " << change;
            ASSERT_TRUE(!survives || entries == kComplete) << position << " " << change;
            if (change != 0x20)
                continue; // one of them through the disk, with the repair
            WriteJournal(text);
            EXPECT_EQ(Storage.DoLoadDir(), survives) << position;
            ASSERT_TRUE(Storage.LoadDir()) << position;
            EXPECT_EQ(Storage.Dir(), survives ? kComplete : kRebuilt) << position;
        }
    }
}

TEST_F(TDamageTest, StopsAtABadCheckpoint)
{
    const TJournalEntries a = {{"/A", "a"}}, ab = {{"/A", "a"}, {"/B", "b"}};
    const TJournalEntries ac = {{"/A", "a"}, {"/C", "c"}};
    const std::pair<const char*, TJournalEntries> kRows[] = {{"/B?b\r\n*00000000\r\n", ab},
                                                             {"*\r\n", a},
                                                             {"* 00000000\r\n", a},
                                                             {"*-0\r\n", a},
                                                             {"*x0\r\n", a},
                                                             {"*100000000\r\n", a},
                                                             {"*10000000000000000000000000\r\n", a},
                                                             {"*0\r\n", ac},
                                                             {"*00000000\n", ac},
                                                             {"*00000000 \r\n", ac},
                                                             {"*0000000000000\r\n", ac}};
    for (const auto& [lines, entries] : kRows) {
        WriteJournal(Sealed(kJournalHead + "/A?a\r\n") + lines + Sealed("/C?c\r\n"));
        EXPECT_EQ(Storage.DoLoadDir(), entries == ac) << lines;
        EXPECT_EQ(Storage.Dir(), entries) << lines;
    }
}
} // namespace
