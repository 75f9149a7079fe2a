// The lines of a journal as they are written: records, and the checkpoint that seals them.
//
// Thread-safety: the functions are callable from any thread; one object belongs to one thread at a
// time.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "QvStd/Result.h"
#include "QvStd/Strings.h"
#include "journal/JournalFile.h"
#include "journal/JournalFormat.h"
#include "journal/JournalReader.h"

/// Whether a journal line can contain `id`: a control character could end the line, and the name is
/// split off at the last "?".
bool IsStorable(const std::string& id);

/// The line that ends a block whose bytes have this checksum.
std::string Checkpoint(std::uint32_t checksum);

/// Writes one block in pieces of a fixed size: a text of the whole block costs more to
/// get than to fill, and a piece is still in the processor's cache when it is summed and written.
class TBlockWriter
{
public:
    explicit TBlockWriter(TJournalRewrite* rewrite) : m_rewrite(rewrite)
    {
        m_piece.reserve(kPiece);
    }

    void Add(std::string_view text)
    {
        m_piece.append(text);
        if (m_piece.size() >= kPiece - kRoom) {
            Sum();
            Write();
        }
    }
    void AddRecord(std::string_view key, std::string_view name)
    {
        // In place: QvNormalizeResId would make a string for each record.
        assert(!key.empty() && key.front() == kRecordMark); // else the line would be no record
        assert(key.find('\n') == std::string::npos && name.find('\n') == std::string::npos);
        const std::size_t start = m_piece.size();
        m_piece.resize(start + key.size());
        std::transform(key.begin(), key.end(), m_piece.data() + start, QvToUpper);
        m_piece.append(1, kNameMark).append(name);
        Add(kLineEnd);
    }
    TQvResult Seal()
    {
        Sum();
        m_piece += Checkpoint(m_checksum);
        Write();
        return m_result;
    }

private:
    static constexpr std::size_t kPiece = std::size_t{256} * 1024;
    static constexpr std::size_t kRoom = 4096; ///< so that a record hardly ever outgrows a piece

    void Sum() { m_checksum = JournalChecksum(m_piece, m_checksum); }
    void Write()
    {
        if (m_result)
            m_result = m_rewrite->Write(m_piece);
        m_piece.clear();
    }

    TJournalRewrite* m_rewrite;
    TQvResult m_result; ///< of the first write that failed
    std::string m_piece;
    std::uint32_t m_checksum = 0;
};
