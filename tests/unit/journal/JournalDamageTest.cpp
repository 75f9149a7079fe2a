// A journal cut at every length and changed in every byte.
#include "JournalFixture.h"

namespace
{
const TEntries kComplete = {{"/B/", "b"}, {"/C", "c"}};
const TEntries kRebuilt = {{"/B/", "/b"}, {"/C", "/c"}};
const std::pair<std::string, TEntries> kBlocks[] = {
    {Sealed(kJournalHead + "/A?a\r\n/B/?b\r\n"), {{"/A", "a"}, {"/B/", "b"}}},
    {Sealed("-A\r\n"), {{"/B/", "b"}}},
    {Sealed("/C?c\r\n"), kComplete}};
const std::string kText = kBlocks[0].first + kBlocks[1].first + kBlocks[2].first;

/// The end of the last block that is whole in the first `length` bytes, and its entries.
std::pair<std::size_t, TEntries> SealedBefore(std::size_t length)
{
    std::pair<std::size_t, TEntries> sealed;
    for (const auto& [block, entries] : kBlocks) {
        if (sealed.first + block.size() > length)
            break;
        sealed = {sealed.first + block.size(), entries};
    }
    return sealed;
}

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
    for (std::size_t length = 0; length <= kText.size(); ++length) {
        const std::string text = kText.substr(0, length);
        const auto [end, sealed] = SealedBefore(length);
        const std::size_t lines = text.rfind('\n') + 1;
        const bool isWhole = end != 0 && end == lines;
        const TJournalReading reading = ReadJournal(text, nullptr);
        EXPECT_EQ(reading.State == TJournalState::BadSignature, length < 20) << length;
        EXPECT_EQ(reading.UnreadBytes, length < 20 ? 0 : length - lines) << length;
        EXPECT_EQ(reading.SealedBytes, end) << length;
        WriteJournal(text);
        EXPECT_EQ(Storage.DoLoadDir(), isWhole) << length;
        ASSERT_TRUE(Storage.LoadDir()) << length;
        EXPECT_EQ(Copied(Storage.Dir()), isWhole ? sealed : kRebuilt) << length;
    }
}

TEST_F(TDamageTest, AnAppendKeepsWhatWasSealedAtEveryCut)
{
    for (const std::string& tail : {std::string(), std::string(7, '\0'), std::string(5000, 'x')}) {
        for (std::size_t length = 0; length <= kText.size(); ++length) {
            auto [end, expected] = SealedBefore(length);
            WriteJournal(kText.substr(0, length) + tail);
            ASSERT_TRUE(Storage.AddResourceRecord("/N", false)) << length;
            EXPECT_EQ(Storage.DoLoadDir(), end != 0) << length;
            expected["/N"] = "N";
            EXPECT_TRUE(end == 0 || Copied(Storage.Dir()) == expected) << length;
        }
    }
}

TEST_F(TDamageTest, EveryByteChangedToEveryOther)
{
    for (std::size_t position = 0; position < kText.size(); ++position) {
        const std::size_t line = position == 0 ? 0 : kText.rfind('\n', position - 1) + 1;
        for (int change = 1; change < 256; ++change) {
            std::string text = kText;
            text[position] = static_cast<char>(text[position] ^ change);
            TJournalEntries entries;
            const bool isWhole = ReadJournal(text, &entries).State == TJournalState::Whole;
            // No checksum covers the number of a checkpoint; a change there must not change an
            // entry.
            ASSERT_FALSE(isWhole && kText[line] != '*') << position << " " << change;
            ASSERT_TRUE(!isWhole || Copied(entries) == kComplete) << position << " " << change;
        }
    }
}

TEST_F(TDamageTest, TakesTheDigitsOfACheckpointAsANumber)
{
    const std::pair<const char*, bool> kRows[] = {
        {"*0\r\n", true},          {"*00000000 \n", true}, {"*0000000000000\r\n", true},
        {"*\r\n", false},          {"* 0\r\n", false},     {"*-0\r\n", false},
        {"*100000000\r\n", false}, {"*x0\r\n", false}};
    for (const auto& [line, matches] : kRows) // over no bytes
        EXPECT_EQ(ReadJournal(kText + line, nullptr).State == TJournalState::Whole, matches)
            << line;
}
} // namespace
