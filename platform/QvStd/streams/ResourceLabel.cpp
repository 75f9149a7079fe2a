#include "QvStd/ResourceLabel.h"

#include <memory>

#include <zlib.h>

void TQvResourceLabel::Reset()
{
    *this = TQvResourceLabel();
}

void TQvResourceLabel::ComputeCRC(TQvStream* stream)
{
    CRC = ComputePartialCRC(stream);
}

/// All three or none: a label with a missing part would match other states.
bool TQvResourceLabel::Load(const TQvXIniReader* reader)
{
    const auto read = [reader](const char* key, auto& value) {
        return QvXIniParseValue(reader->Read(reader->FindF(key), std::string()), value);
    };
    std::uint64_t size = 0;
    std::int64_t time = 0;
    std::uint64_t crc = 0;
    if (!read("size", size) || !read("time", time) || !read("crc", crc))
        return false;
    Size = size;
    Time = TQvDateTime(time);
    CRC = crc;
    return true;
}

bool TQvResourceLabel::Save(TQvXIniWriter* writer) const
{
    return writer->WriteS("size", Size) && writer->WriteS("time", Time.Milliseconds()) &&
           writer->WriteS("crc", CRC);
}

std::uint64_t ComputePartialCRC(TQvStream* stream)
{
    constexpr std::size_t kBlock =
        std::size_t{64} * 1024; // stays in the cache between reading and summing
    const std::unique_ptr<unsigned char[]> block(new unsigned char[kBlock]);
    uLong crc = 0;
    for (;;) {
        const std::size_t count = stream->Read(block.get(), kBlock);
        if (count == TQvStream::invalid_value)
            return crc;
        crc = crc32(crc, block.get(), static_cast<uInt>(count));
        // A short read is the end or an error after some bytes; both end the checksum.
        if (count < kBlock)
            return crc;
    }
}
