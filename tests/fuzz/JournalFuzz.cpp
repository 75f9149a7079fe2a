// Journals: none crashes the reader, what it calls sealed can be read alone with the same result,
// and where the source is cut into pieces does not matter.
#include "Fuzz.h"

#include <algorithm>
#include <cstring>

#include "journal/JournalFormat.h"
#include "journal/JournalReader.h"

namespace
{
/// Delivers `piece` bytes at a time.
TJournalReading ReadInPieces(std::string_view bytes, std::size_t piece, TJournalEntries* entries)
{
    std::size_t position = 0;
    return ReadJournal(
        [&](char* buffer, std::size_t count) {
            const std::size_t taken = std::min({count, piece, bytes.size() - position});
            std::memcpy(buffer, bytes.data() + position, taken);
            position += taken;
            return taken;
        },
        entries);
}

bool AreEqual(const TJournalEntries& a, const TJournalEntries& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    TJournalEntries entries;
    const TJournalReading reading = ReadJournal(bytes, &entries);
    Require(reading.SealedBytes + reading.UnreadBytes <= size, "sealed bytes are in the file");

    TJournalEntries inPieces;
    const TJournalReading pieces = ReadInPieces(bytes, 7, &inPieces);
    Require(pieces.State == reading.State, "pieces have the same state");
    Require(pieces.SealedBytes == reading.SealedBytes, "pieces have the same sealed bytes");
    Require(AreEqual(inPieces, entries), "pieces have the same entries");
    // A first line that is a checkpoint of nothing seals no signature.
    if (reading.SealedBytes <= kSignatureOffset + std::string_view(StorageSgn).size())
        return 0;

    TJournalEntries sealed;
    const TJournalReading alone = ReadJournal(bytes.substr(0, reading.SealedBytes), &sealed);
    Require(alone.State == TJournalState::Whole, "the sealed part alone is whole");
    Require(alone.Checkpoints == reading.Checkpoints, "the sealed part has all checkpoints");
    Require(sealed.size() == reading.SealedRecords, "the sealed records are counted");
    if (reading.State == TJournalState::Whole)
        Require(AreEqual(sealed, entries), "a whole journal is its sealed part");
    return 0;
}
