#include "journal/JournalReader.h"

#include <cassert>
#include <charconv>
#include <cstring>
#include <memory>

#include <zlib.h>

#include "QvStd/Strings.h"
#include "journal/JournalFormat.h"

namespace
{
/// Applies records and removals to a map.
class TReplay
{
public:
    explicit TReplay(TJournalEntries* entries) : m_entries(entries) {}

    void Record(std::string_view line)
    {
        assert(!line.empty() && line.front() == kRecordMark); // ends the loop over white space
        while (IsBlank(line.back()))
            line.remove_suffix(1);
        const void* const found = memrchr(line.data(), kNameMark, line.size());
        if (found == nullptr)
            return;
        const std::size_t mark =
            static_cast<std::size_t>(static_cast<const char*>(found) - line.data());
        m_entries->Set(line.substr(0, mark), line.substr(mark + 1));
    }

    void Removal(std::string_view line)
    {
        m_key.assign(1, kRecordMark).append(QvTrim(line.substr(1)));
        m_entries->Remove(m_key);
    }

private:
    static bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    TJournalEntries* m_entries;
    std::string m_key; ///< kept for its memory
};

/// Takes all hexadecimal digits, of either case, after the mark; the rest of the line is ignored.
bool CheckpointMatches(std::string_view line, std::uint32_t checksum)
{
    std::uint32_t written = 0;
    const char* const end = line.data() + line.size();
    const auto parsed = std::from_chars(line.data() + 1, end, written, 16);
    return parsed.ec == std::errc() && written == checksum;
}

std::string_view Between(const char* from, const char* to)
{
    return {from, static_cast<std::size_t>(to - from)};
}

/// Takes the lines of a journal in pieces.
class TJournalParser
{
public:
    explicit TJournalParser(TJournalEntries* entries) : m_entries(entries), m_replay(entries) {}

    /// Reads the whole lines of the next bytes; how many bytes that were. Sets State when a
    /// checkpoint does not match: nothing may follow then.
    std::size_t Take(std::string_view bytes)
    {
        const char* const end = bytes.data() + bytes.size();
        const char* line = bytes.data();
        m_block = line;
        while (const void* const found =
                   std::memchr(line, '\n', static_cast<std::size_t>(end - line))) {
            const char* const next = static_cast<const char*>(found) + 1;
            if (!TakeLine(Between(line, next), bytes.data()))
                return 0;
            line = next;
        }
        m_checksum = JournalChecksum(Between(m_block, line), m_checksum);
        const auto taken = static_cast<std::size_t>(line - bytes.data());
        m_taken += taken;
        return taken;
    }

    TJournalReading Reading; ///< State is TornTail until a checkpoint is the last line

private:
    /// False when a checkpoint does not match. Other lines only matter when entries are wanted.
    bool TakeLine(std::string_view line, const char* piece)
    {
        if (line.front() == kCheckpointMark)
            return Seal(line, piece);
        Reading.State = TJournalState::TornTail;
        if (m_entries == nullptr)
            return true;
        if (line.front() == kRecordMark)
            m_replay.Record(line);
        else if (line.front() == kRemovalMark)
            m_replay.Removal(line);
        return true;
    }

    /// The checksum continues over pieces: `m_checksum` covers the block's lines in earlier pieces.
    bool Seal(std::string_view line, const char* piece)
    {
        assert(m_block <= line.data()); // the checkpoint covers the lines before it
        const bool matches =
            CheckpointMatches(line, JournalChecksum(Between(m_block, line.data()), m_checksum));
        Reading.State = matches ? TJournalState::Whole : TJournalState::Damaged;
        if (!matches)
            return false;
        m_block = line.data() + line.size();
        m_checksum = 0;
        ++Reading.Checkpoints;
        Reading.SealedRecords = m_entries != nullptr ? m_entries->size() : 0;
        Reading.SealedBytes = m_taken + static_cast<std::size_t>(m_block - piece);
        return true;
    }

    TJournalEntries* m_entries;
    TReplay m_replay;
    const char* m_block = nullptr; ///< where the open block begins or continues in this piece
    std::uint32_t m_checksum = 0;  ///< of the open block in the pieces before
    std::size_t m_taken = 0;
};

/// On the stack, unless a line is longer: allocating a large block would make the allocator sort
/// everything that the last load freed, which takes half the time of a load.
class TBuffer
{
public:
    char* Data() { return m_grown ? m_grown.get() : m_first; }
    std::size_t Size() const { return m_size; }
    void Double()
    {
        std::unique_ptr<char[]> grown(new char[m_size * 2]); // a vector would clear it
        std::memcpy(grown.get(), Data(), m_size);
        m_grown = std::move(grown);
        m_size *= 2;
    }

private:
    static constexpr std::size_t kFirst = std::size_t{64} * 1024;
    char m_first[kFirst];
    std::unique_ptr<char[]> m_grown;
    std::size_t m_size = kFirst;
};

/// Where the signature ends.
constexpr std::size_t kHeadSize = kSignatureOffset + std::string_view(StorageSgn).size();

bool HasSignature(std::string_view start)
{
    const std::string_view signature = StorageSgn;
    return start.size() >= kHeadSize &&
           start.compare(kSignatureOffset, signature.size(), signature) == 0;
}
} // namespace

void TJournalEntries::Set(std::string_view id, std::string_view name)
{
    char* const text = static_cast<char*>(m_memory.allocate(id.size() + name.size(), 1));
    std::memcpy(text, id.data(), id.size());
    std::memcpy(text + id.size(), name.data(), name.size());
    const std::string_view keptName(text + id.size(), name.size());
    // A rewrite is sorted, so that most records belong at the end and the map need not search.
    const std::size_t before = m_map.size();
    const auto place = m_map.emplace_hint(m_map.end(), std::string_view(text, id.size()), keptName);
    if (m_map.size() == before)
        place->second = keptName;
}

void TJournalEntries::Remove(std::string_view id)
{
    // Not by key: that looks for the first and the last of equal keys.
    if (const auto place = m_map.find(id); place != m_map.end())
        m_map.erase(place);
}

void TJournalEntries::Clear()
{
    m_map.clear(); // keeps no node, so that their memory can go
    m_memory.release();
}

std::uint32_t JournalChecksum(std::string_view bytes, std::uint32_t before)
{
    // Not crc32, which takes no more than 4 GiB.
    const auto* const data = reinterpret_cast<const Bytef*>(bytes.data());
    return static_cast<std::uint32_t>(crc32_z(before, data, bytes.size()));
}

TJournalReading ReadJournal(const TJournalSource& source, TJournalEntries* entries)
{
    // Piece by piece, because a buffer of the whole file costs more to get than to fill, and what
    // was just read is still in the processor's cache.
    TBuffer buffer;
    TJournalParser parser(entries);
    std::size_t held = 0; // bytes of a line, or of the head, that is not complete yet
    for (bool hasHead = false;;) {
        const std::size_t got = source(buffer.Data() + held, buffer.Size() - held);
        if (got == TQvStream::invalid_value)
            return {TJournalState::Unreadable};
        assert(got <= buffer.Size() - held); // else the source has written beyond the buffer
        const std::string_view piece(buffer.Data(), held + got);
        if (!hasHead) {
            if (piece.size() < kHeadSize && got != 0) {
                held = piece.size(); // the source gives few bytes at a time
                continue;
            }
            if (!HasSignature(piece))
                return {};
            hasHead = true;
        }
        if (got == 0)
            break;
        const std::size_t taken = parser.Take(piece);
        assert(taken <= piece.size());
        if (parser.Reading.State == TJournalState::Damaged)
            return parser.Reading;
        held = piece.size() - taken;
        std::memmove(buffer.Data(), buffer.Data() + taken, held);
        if (held == buffer.Size())
            buffer.Double();
    }
    parser.Reading.UnreadBytes = held;
    return parser.Reading;
}

TJournalReading ReadJournal(std::string_view bytes, TJournalEntries* entries)
{
    return ReadJournal(
        [&bytes](char* buffer, std::size_t count) {
            const std::size_t copied = bytes.copy(buffer, count);
            bytes.remove_prefix(copied);
            return copied;
        },
        entries);
}
