/// @file
/// Labels: size, time and checksum of one state of a content.
///
/// Thread-safety: a plain value.
#pragma once

#include <cstdint>

#include "QvStd/DateTime.h"
#include "QvStd/Export.h"
#include "QvStd/Stream.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"

/// Identifies one state of a content.
struct QVSTD_API TQvResourceLabel
{
    std::uint64_t Size = 0; ///< bytes
    TQvDateTime Time;       ///< last modification
    std::uint64_t CRC = 0;  ///< CRC-32 of the whole content; 0 when not computed

    /// All fields zero.
    void Reset();
    /// Sets the checksum from the stream's contents, as ComputePartialCRC gives it.
    void ComputeCRC(TQvStream* stream);
    /// Reads "size", "time" and "crc" from the reader's current section; false, nothing changed,
    /// when one is missing or no number.
    bool Load(const TQvXIniReader* reader);
    /// Writes the three keys; false when one could not be written.
    bool Save(TQvXIniWriter* writer) const;
};

/// zlib's CRC-32 over everything from the stream's position to its end, read in blocks; the
/// position is then the end. A read error ends it: the checksum covers the bytes before the error,
/// and getError of the stream has the error.
QVSTD_API std::uint64_t ComputePartialCRC(TQvStream* stream);
