// The normal form of an id for resolution: computed, checked and split in one pass, without an
// allocation for ids of usual length.
//
// Thread-safety: plain values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class TNormalResId
{
public:
    TNormalResId(std::string_view id, bool forbidWildcards);
    TNormalResId(const TNormalResId&) = delete;
    TNormalResId& operator=(const TNormalResId&) = delete;

    /// Whether the id is valid, as QvIsValidResId.
    bool IsValid() const { return m_isValid; }
    /// The result of QvNormalizeResId, also for an id that is not valid.
    std::string_view Text() const { return {m_text, m_length}; }
    /// The positions of "/": bit i of word w stands for position 64 * w + i.
    const std::uint64_t* Slashes() const { return m_slashes; }
    std::size_t Words() const { return (m_length + kWordBits - 1) / kWordBits; }

    static constexpr std::size_t kWordBits = 64;

private:
    static constexpr std::size_t kUsualWords = 4;

    std::size_t m_length;
    bool m_isValid;
    char* m_text; ///< the buffer ends at a whole word
    std::uint64_t* m_slashes;
    char m_usualText[kUsualWords * kWordBits];
    std::uint64_t m_usualSlashes[kUsualWords];
    std::vector<char> m_longText;
    std::vector<std::uint64_t> m_longSlashes;
};

/// The hash of a normal form or a part of one; not for storage, since it depends on the machine.
std::uint64_t QvHashNormalResId(std::string_view text);
