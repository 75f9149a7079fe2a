#include "resid/NormalResId.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "QvStd/ByteBlock.h"

namespace
{
constexpr std::size_t kBlock = kQvByteBlockSize;
constexpr std::size_t kWord = TNormalResId::kWordBits;

/// Upper-cases blocks of an id and collects their separators and forbidden characters.
class TPass
{
public:
    TPass(char* normal, std::uint64_t* slashes) : m_normal(normal), m_slashes(slashes) {}

    /// Blocks may overlap.
    void Take(const char* from, std::size_t position)
    {
        TQvByteBlock bytes = QvLoadBytes(from);
        m_refused |= QvBytesBelow(bytes, 0x20) | QvBytesThatAre(bytes, '\\') |
                     QvBytesThatAre(bytes, '"') | QvBytesThatAre(bytes, '<') |
                     QvBytesThatAre(bytes, '>') | QvBytesThatAre(bytes, '|') |
                     QvBytesThatAre(bytes, ':');
        m_wildcards |= QvBytesThatAre(bytes, '*') | QvBytesThatAre(bytes, '?');
        const std::uint64_t slashes = QvBitsOfBytes(QvBytesThatAre(bytes, '/'));
        const std::size_t shift = position % kWord;
        m_slashes[position / kWord] |= slashes << shift;
        if (shift > kWord - kBlock)
            m_slashes[position / kWord + 1] |= slashes >> (kWord - shift);
        constexpr unsigned char kFirst = 'a';
        constexpr unsigned char kLetters = 26;
        constexpr unsigned char kCase = 'a' - 'A';
        bytes -= QvBytesBelow(bytes - kFirst, kLetters) & kCase;
        std::memcpy(m_normal + position, &bytes, kBlock);
    }
    bool IsRefused(bool forbidWildcards) const
    {
        return QvIsAnyByteSet(m_refused) || (forbidWildcards && QvIsAnyByteSet(m_wildcards));
    }

private:
    TQvByteBlock m_refused = {};
    TQvByteBlock m_wildcards = {};
    char* m_normal;
    std::uint64_t* m_slashes;
};

/// Whether two separators follow each other, also from one word to the next.
bool HasDoubled(const std::uint64_t* slashes, std::size_t words)
{
    std::uint64_t before = 0;
    std::uint64_t doubled = 0;
    for (std::size_t word = 0; word < words; ++word) {
        doubled |= slashes[word] & (slashes[word] << 1 | before);
        before = slashes[word] >> (kWord - 1);
    }
    return doubled != 0;
}
} // namespace

TNormalResId::TNormalResId(std::string_view id, bool forbidWildcards)
    : m_length(id.size()), m_text(m_usualText), m_slashes(m_usualSlashes)
{
    if (Words() > kUsualWords) {
        m_longText.resize(Words() * kWordBits);
        m_longSlashes.resize(Words());
        m_text = m_longText.data();
        m_slashes = m_longSlashes.data();
    }
    assert(m_length <= Words() * kWordBits); // whole blocks are written
    std::fill_n(m_slashes, Words(), 0);
    TPass pass(m_text, m_slashes);
    // The last block ends with the id and overlaps the one before: no byte needs a loop of its own,
    // and nothing after the id is read.
    if (m_length >= kBlock) {
        for (std::size_t i = 0; i + kBlock < m_length; i += kBlock)
            pass.Take(id.data() + i, i);
        pass.Take(id.data() + m_length - kBlock, m_length - kBlock);
    } else if (m_length > 0) {
        char block[kBlock];
        std::memset(block, 'A', kBlock); // the padding must not be refused
        std::memcpy(block, id.data(), m_length);
        pass.Take(block, 0);
    }
    m_isValid = id.empty() || (id.front() == '/' && !pass.IsRefused(forbidWildcards) &&
                               !HasDoubled(m_slashes, Words()));
}

/// Eight bytes a step. Not for untrusted tables: mount points come from the program or its profile.
std::uint64_t QvHashNormalResId(std::string_view text)
{
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
    constexpr std::size_t kStep = sizeof(std::uint64_t);
    std::uint64_t hash = text.size() * kOdd;
    const auto mix = [&hash](const char* bytes, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, count);
        hash = (hash ^ word) * kOdd;
        hash ^= hash >> 32;
    };
    if (text.size() < kStep) {
        mix(text.data(), text.size());
        return hash;
    }
    const char* const last = text.data() + text.size() - kStep;
    for (const char* bytes = text.data(); bytes < last; bytes += kStep)
        mix(bytes, kStep);
    mix(last, kStep); // may overlap the word before
    return hash;
}
