#include "QvStd/Stream.h"

#include <algorithm>
#include <memory>

#include "QvStd/Message.h"

namespace
{
/// Large enough that the calls cost little beside the copying, and still in the processor's cache.
constexpr std::uint64_t kBlockSize = std::uint64_t{256} << 10;
constexpr std::uint64_t kReportEvery = std::uint64_t{8} << 20;

/// The bytes left to copy; 0 when the size is not known.
std::uint64_t Remaining(const TQvStream& stream)
{
    const std::uint64_t size = stream.getSize();
    const std::uint64_t position = stream.getPosition();
    return size != TQvStream::invalid_value64 && size > position ? size - position : 0;
}

} // namespace

TQvStream::~TQvStream() = default;

const std::string& TQvStream::DefaultInfoName() const
{
    static const std::string none;
    return none;
}

/// The last report comes after the last block, also when the size was not known or has changed.
bool QvReadBlocks(TQvStream& from, const std::function<bool(const char*, std::size_t)>& take,
                  TQvProgressHandler* handler)
{
    const std::uint64_t total = Remaining(from);
    // Small content gets a small buffer; one that grows meanwhile is copied all the same.
    const std::size_t blockSize = static_cast<std::size_t>(
        total == 0 ? kBlockSize : std::min(kBlockSize, (total + 4095) / 4096 * 4096));
    const std::unique_ptr<char[]> block(new char[blockSize]);
    TQvProgress progress(handler);
    std::uint64_t done = 0;
    std::uint64_t reported = 0;
    for (;;) {
        // A short block is no end yet: after an error the next read reports it.
        const std::size_t got = from.Read(block.get(), blockSize);
        if (got == TQvStream::invalid_value)
            return false;
        if (got == 0)
            break;
        // The taker knows why; `from` has no error then.
        if (!take(block.get(), got))
            return false;
        done += got;
        // Each block, so that a cancelled copy of a slow stream ends soon; reports to the bar are
        // rarer.
        QvPollProgress(handler);
        if (done - reported >= kReportEvery && done < total) {
            progress.Report(static_cast<double>(done) / static_cast<double>(total));
            reported = done;
        }
    }
    progress.Report(1.0);
    return true;
}
bool QvCopyStream(TQvStream* from, TQvStream* to, TQvProgressHandler* progress)
{
    if (from == nullptr || to == nullptr || !*from || !*to)
        return false;
    try {
        const auto write = [to](const char* bytes, std::size_t count) {
            return to->Write(bytes, count) == count;
        };
        return QvReadBlocks(*from, write, progress);
    } catch (const TQvUserBreak&) {
        return false;
    }
}
