#include "storage/JournalReader.h"

#include <charconv>
#include <cstring>
#include <iterator>

#include <zlib.h>

#include "QvStd/Strings.h"
#include "storage/JournalFormat.h"

namespace
{
/// Applies records and removals to a map.
class TReplay
{
public:
    explicit TReplay(TJournalEntries* entries) : m_entries(entries) {}

    void Record(std::string_view line)
    {
        line = QvTrim(line);
        const std::size_t mark = line.rfind(kNameMark);
        if (mark != std::string_view::npos)
            Set(line.substr(0, mark), line.substr(mark + 1));
    }

    void Removal(std::string_view line)
    {
        const std::string_view rest = QvTrim(line.substr(1));
        m_key.assign(1, kRecordMark).append(rest);
        m_entries->erase(m_key);
    }

private:
    void Set(std::string_view key, std::string_view name)
    {
        // A rewrite is sorted, so that most records belong at the end: the map need not search.
        if (m_entries->empty() || std::prev(m_entries->end())->first < key) {
            m_entries->emplace_hint(m_entries->end(), key, name);
            return;
        }
        m_key.assign(key);
        const auto place = m_entries->lower_bound(m_key);
        if (place != m_entries->end() && place->first == m_key)
            place->second.assign(name);
        else
            m_entries->emplace_hint(place, m_key, name);
    }

    TJournalEntries* m_entries;
    std::string m_key; ///< kept for its memory
};

/// Hexadecimal digits in either case, as many as follow the mark; what stands behind them is not
/// looked at.
bool CheckpointMatches(std::string_view line, std::string_view block)
{
    std::uint32_t written = 0;
    const char* const digits = line.data() + 1;
    const auto parsed = std::from_chars(digits, line.data() + line.size(), written, 16);
    return parsed.ec == std::errc() && written == JournalChecksum(block);
}
} // namespace

std::uint32_t JournalChecksum(std::string_view bytes)
{
    // One call for all bytes: crc32 takes no more than 4 GiB, crc32_z any size.
    const auto* data = reinterpret_cast<const Bytef*>(bytes.data());
    return static_cast<std::uint32_t>(crc32_z(0, data, bytes.size()));
}

TJournalReading ReadJournal(std::string_view bytes, TJournalEntries* entries)
{
    TJournalReading reading;
    const std::string_view signature = StorageSgn;
    if (bytes.size() < kSignatureOffset ||
        bytes.compare(kSignatureOffset, signature.size(), signature) != 0)
        return reading;

    TReplay replay(entries);
    const char* const end = bytes.data() + bytes.size();
    const char* start = bytes.data();
    const char* block = start;
    bool sealed = false;
    while (start != end) {
        const void* const found = std::memchr(start, '\n', static_cast<std::size_t>(end - start));
        if (found == nullptr)
            break;
        const char* const lineFeed = static_cast<const char*>(found);
        const std::string_view line(start, static_cast<std::size_t>(lineFeed - start));
        sealed = *start == kCheckpointMark;
        if (sealed) {
            const std::string_view content(block, static_cast<std::size_t>(start - block));
            if (!CheckpointMatches(line, content)) {
                reading.State = TJournalState::Damaged;
                return reading;
            }
            block = lineFeed + 1;
            ++reading.Checkpoints;
            reading.SealedBytes = static_cast<std::size_t>(block - bytes.data());
        } else if (entries != nullptr && *start == kRecordMark) {
            replay.Record(line);
        } else if (entries != nullptr && *start == kRemovalMark) {
            replay.Removal(line);
        }
        start = lineFeed + 1;
    }
    reading.State = sealed ? TJournalState::Whole : TJournalState::TornTail;
    reading.UnreadBytes = static_cast<std::size_t>(end - start);
    return reading;
}
