// A journal cut at every length and changed in every byte.
#include "StorageFixture.h"

#include <cctype>

namespace
{
/// A journal of three blocks, told line by line; what a reader has to answer is worked out here
/// from the lines, not by parsing.
class TJournal
{
public:
    TJournal()
    {
        Add(":0123ABCD\r\n");
        Add(";QV5Dir\r\n");
        Add("/A?a\r\n", [this] { m_entries["/A"] = "a"; });
        Add("/B/?b\r\n", [this] { m_entries["/B/"] = "b"; });
        Seal();
        Add("-A\r\n", [this] { m_entries.erase("/A"); });
        Seal();
        Add("/C?c\r\n", [this] { m_entries["/C"] = "c"; });
        Seal();
    }

    struct TLine
    {
        std::size_t Start;
        std::size_t End;
        bool IsCheckpoint;
        TJournalEntries After;
    };
    std::string Text;
    std::vector<TLine> Lines;

    /// The last line that is there whole when the journal is cut at `length`.
    TLine LastBefore(std::size_t length) const
    {
        TLine last = {0, 0, false, {}};
        for (const TLine& line : Lines)
            if (line.End <= length)
                last = line;
        return last;
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

private:
    template <class TApply>
    void Add(const std::string& line, TApply&& apply)
    {
        apply();
        Lines.push_back({Text.size(), Text.size() + line.size(), line.front() == '*', m_entries});
        Text += line;
    }
    void Add(const std::string& line)
    {
        Add(line, [] {});
    }
    void Seal()
    {
        Add(Checkpoint(Text.substr(m_block)));
        m_block = Text.size();
    }

    TJournalEntries m_entries;
    std::size_t m_block = 0;
};

const TJournal kJournal;
const std::string& kText = kJournal.Text;
const TJournalEntries kComplete = {{"/B/", "b"}, {"/C", "c"}};
const TJournalEntries kRebuilt = {{"/B/", "/b"}, {"/C", "/c"}};

class TDamageTest : public TStorageTest
{
protected:
    TDamageTest()
    {
        WriteContent("c");
        Temp.MakeFolder("s/content/b");
    }
};

TEST_F(TDamageTest, CutAtEveryLength)
{
    for (std::size_t length = 0; length <= kText.size(); ++length) {
        WriteJournal(kText.substr(0, length));
        const TJournal::TLine last = kJournal.LastBefore(length);
        EXPECT_EQ(Storage.DoLoadDir(), last.IsCheckpoint) << length;
        EXPECT_EQ(Storage.Dir(), last.After) << length;

        const TJournalReading reading = ReadJournal(kText.substr(0, length), nullptr);
        EXPECT_EQ(reading.State == TJournalState::BadSignature, length < 20) << length;
        if (length >= 20) {
            EXPECT_EQ(reading.UnreadBytes, length - last.End) << length;
        }

        ASSERT_TRUE(Storage.LoadDir()) << length;
        EXPECT_EQ(Storage.Dir(), last.IsCheckpoint ? last.After : kRebuilt) << length;
    }
}

TEST_F(TDamageTest, EveryByteChangedToEveryOther)
{
    for (std::size_t position = 0; position < kText.size(); ++position) {
        for (int change = 1; change < 256; ++change) {
            std::string text = kText;
            text[position] = static_cast<char>(text[position] ^ change);
            TJournalEntries entries;
            const TJournalReading reading = ReadJournal(text, &entries);
            const bool survives = kJournal.Survives(position, text[position]);
            ASSERT_EQ(reading.State == TJournalState::Whole, survives) << position << " " << change;
            if (survives) {
                ASSERT_EQ(entries, kComplete);
            }
        }
    }
}

TEST_F(TDamageTest, EveryByteFlippedIsRepaired)
{
    for (std::size_t position = 0; position < kText.size(); ++position) {
        std::string text = kText;
        text[position] = static_cast<char>(text[position] ^ 0x20);
        WriteJournal(text);
        const bool survives = kJournal.Survives(position, text[position]);
        EXPECT_EQ(Storage.DoLoadDir(), survives) << position;
        ASSERT_TRUE(Storage.LoadDir()) << position;
        EXPECT_EQ(Storage.Dir(), survives ? kComplete : kRebuilt) << position;
    }
}

TEST_F(TDamageTest, KeepsWhatItReadBeforeABadCheckpoint)
{
    WriteJournal(Sealed(kJournalHead + "/A?a\r\n") + "/B?b\r\n*00000000\r\n" + Sealed("/C?c\r\n"));
    EXPECT_FALSE(Storage.DoLoadDir());
    EXPECT_EQ(Storage.Dir(), (TJournalEntries{{"/A", "a"}, {"/B", "b"}}));
}

TEST_F(TDamageTest, ChecksumsThatAreNoNumbers)
{
    const std::string head = Sealed(kJournalHead);
    for (const char* line : {"*\r\n", "* 00000000\r\n", "*-0\r\n", "*x0\r\n", "*100000000\r\n",
                             "*10000000000000000000000000\r\n"})
        EXPECT_EQ(ReadJournal(head + line, nullptr).State, TJournalState::Damaged) << line;
    for (const char* line : {"*0\r\n", "*00000000\n", "*00000000 \r\n", "*0000000000000\r\n"})
        EXPECT_EQ(ReadJournal(head + line, nullptr).State, TJournalState::Whole) << line;
}
} // namespace
