// Reading a storage journal.
//
// Thread-safety: pure functions, callable from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory_resource>
#include <string>
#include <string_view>

#include "QvStd/Stream.h"

/// Normalized id -> name as its creator spelled it, in byte order of the ids.
///
/// Nodes and texts share a few large blocks of memory: a load allocates nothing for each record,
/// and a search finds a node and its id close together. Only Clear frees the memory of removed
/// records and replaced names; it is bounded by the number of lines of the journal.
class TJournalEntries
{
public:
    /// The views are valid until Clear.
    using TMap = std::pmr::map<std::string_view, std::string_view>;

    TMap::const_iterator begin() const { return m_map.begin(); }
    TMap::const_iterator end() const { return m_map.end(); }
    std::size_t size() const { return m_map.size(); }
    bool empty() const { return m_map.empty(); }
    std::size_t count(std::string_view id) const { return m_map.count(id); }

    /// Adds an entry or replaces its name. Both texts are copied.
    void Set(std::string_view id, std::string_view name);
    void Remove(std::string_view id);
    void Clear();

private:
    std::pmr::monotonic_buffer_resource m_memory;
    TMap m_map{&m_memory};
};

enum class TJournalState
{
    /// A matching checkpoint covers every line that was read.
    Whole,
    /// The last lines have no checkpoint: an append ended early.
    TornTail,
    /// A checkpoint does not match the block before it. Nothing after it was read.
    Damaged,
    /// No signature at its position, or an empty file. No line was read.
    BadSignature,
    /// There is no journal. Answered by callers that open it.
    Missing,
    /// The source failed. The lines read before may be valid and still only a part of the journal.
    Unreadable,
};

struct TJournalReading
{
    TJournalState State = TJournalState::BadSignature;
    /// Checkpoints that matched.
    std::size_t Checkpoints = 0;
    /// Bytes from the start of the file that checkpoints cover; a torn or damaged block begins
    /// here.
    std::size_t SealedBytes = 0;
    /// Number of entries in the sealed bytes; 0 when nothing was replayed.
    std::size_t SealedRecords = 0;
    /// Bytes after the last line feed. They are no line, are never read, and do not change State.
    std::size_t UnreadBytes = 0;
};

/// Copies up to `count` next bytes of a journal to `buffer`: how many, 0 only at its end, or
/// TQvStream::invalid_value after a failure.
using TJournalSource = std::function<std::size_t(char* buffer, std::size_t count)>;

/// Replays a journal into `entries`, line by line; null only checks. Lines are applied before their
/// checkpoint is read, so unless the state is Whole, `entries` contains lines that no checkpoint
/// covers.
TJournalReading ReadJournal(const TJournalSource& source, TJournalEntries* entries);
TJournalReading ReadJournal(std::string_view bytes, TJournalEntries* entries);

/// zlib's CRC-32 of `bytes`, as checkpoints contain it; `before` is that of the preceding bytes.
std::uint32_t JournalChecksum(std::string_view bytes, std::uint32_t before = 0);
