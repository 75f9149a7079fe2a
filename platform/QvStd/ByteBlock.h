// Sixteen bytes of a text that are compared together.
//
// The compiler makes the machine's own instructions of it, and loops where it has none.
//
// Thread-safety: pure functions, callable from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

using TQvByteBlock = unsigned char __attribute__((vector_size(16)));
inline constexpr std::size_t kQvByteBlockSize = sizeof(TQvByteBlock);

inline TQvByteBlock QvLoadBytes(const char* text)
{
    TQvByteBlock bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}

/// 0xFF for each byte that is `c`, 0 for the others.
inline TQvByteBlock QvBytesThatAre(TQvByteBlock bytes, char c)
{
    return reinterpret_cast<TQvByteBlock>(bytes == static_cast<unsigned char>(c));
}

/// The same for those that are less than `limit`.
inline TQvByteBlock QvBytesBelow(TQvByteBlock bytes, unsigned char limit)
{
    return reinterpret_cast<TQvByteBlock>(bytes < limit);
}

/// Whether any byte is not 0.
inline bool QvIsAnyByteSet(TQvByteBlock bytes)
{
    std::uint64_t halves[2];
    std::memcpy(halves, &bytes, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

/// Bit i for byte i, of bytes that are 0 or 0xFF.
inline std::uint64_t QvBitsOfBytes(TQvByteBlock bytes)
{
    // Different powers of two, which the multiplication sums up in the highest byte.
    constexpr TQvByteBlock kPowers = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    const TQvByteBlock powers = bytes & kPowers;
    std::uint64_t halves[2];
    std::memcpy(halves, &powers, sizeof halves);
    return (halves[0] * kOnes) >> 56 | (halves[1] * kOnes) >> 56 << 8;
}
