#include "QvStd/files/ContentCopy.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"

namespace
{
constexpr std::uint64_t kBlock = std::uint64_t{256} * 1024;
/// Files without a size are files of the kernel, mostly of one page.
constexpr std::uint64_t kSmallBlock = std::uint64_t{16} * 1024;
constexpr std::uint64_t kReportEvery = std::uint64_t{8} * 1024 * 1024;
constexpr std::uint64_t kUntilTheEnd = UINT64_MAX;
constexpr off_t kStatusBlock = 512;

class TContentCopy
{
public:
    TContentCopy(int from, int to, TQvCopyReport& report) : m_from(from), m_to(to), m_report(report)
    {
    }

    TQvCopyError Run(const struct stat& status);

private:
    bool CopyExtents(std::uint64_t size);
    bool Copy(std::uint64_t offset, std::uint64_t end);
    bool CopyInKernel(std::uint64_t* offset, std::uint64_t end);
    bool CopyBlocks(std::uint64_t offset, std::uint64_t end);
    bool WriteAt(const char* bytes, std::size_t count, std::uint64_t offset);
    bool SetSize(std::uint64_t size);
    bool FailReading();
    bool FailWriting();

    int m_from;
    int m_to;
    TQvCopyReport& m_report;
    TQvCopyError m_error;
    bool m_inKernel = true;
    bool m_hasEnded = false; ///< the source ended before the expected end
    std::unique_ptr<char[]> m_block;
};

TQvCopyError TContentCopy::Run(const struct stat& status)
{
    assert(m_from >= 0 && m_to >= 0 && m_from != m_to);
    assert(status.st_size >= 0);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    // For small files the attempt costs more than the copy.
    if (size > kBlock && ioctl(m_to, FICLONE, m_from) == 0)
        return {};
    if (size == 0)
        CopyBlocks(0, kUntilTheEnd); // files of the kernel have content and no size
    else if (status.st_blocks * kStatusBlock < status.st_size)
        CopyExtents(size);
    else
        Copy(0, size);
    return m_error;
}

/// Copies the data only; holes stay holes.
bool TContentCopy::CopyExtents(std::uint64_t size)
{
    std::uint64_t offset = 0;
    while (offset < size && !m_hasEnded) {
        const off_t data = lseek(m_from, static_cast<off_t>(offset), SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            break; // a hole up to the end
        if (data < 0 && errno == EINVAL)
            return Copy(offset, size); // the file system does not show its holes
        // Another process may have changed the file since: the offsets only guide the copy, and
        // reading decides.
        const off_t hole = data < 0 ? -1 : lseek(m_from, data, SEEK_HOLE);
        if (hole < 0)
            return FailReading();
        offset = std::min(static_cast<std::uint64_t>(hole), size);
        if (static_cast<std::uint64_t>(data) < offset &&
            !Copy(static_cast<std::uint64_t>(data), offset))
            return false;
    }
    // Asked again: a source that was cut during the copy must not get a tail of zeros.
    struct stat now = {};
    if (fstat(m_from, &now) != 0)
        return FailReading();
    return SetSize(std::min(size, static_cast<std::uint64_t>(now.st_size)));
}

bool TContentCopy::Copy(std::uint64_t offset, std::uint64_t end)
{
    if (m_inKernel && !CopyInKernel(&offset, end))
        m_inKernel = false; // whatever the reason: the blocks succeed, or report the right one
    return offset == end || CopyBlocks(offset, end);
}

bool TContentCopy::CopyInKernel(std::uint64_t* offset, std::uint64_t end)
{
    while (*offset < end) {
        auto in = static_cast<off_t>(*offset);
        off_t out = in;
        const ssize_t count = QvRetryInterrupted([&] {
            return copy_file_range(m_from, &in, m_to, &out, std::min(end - *offset, kReportEvery),
                                   0);
        });
        // No bytes and no error: the end of the source, or a file system that cannot do it.
        if (count <= 0)
            return false;
        assert(static_cast<std::uint64_t>(count) <= end - *offset);
        *offset += static_cast<std::uint64_t>(count);
        m_report.Advance(static_cast<std::uint64_t>(count));
    }
    return true;
}

/// By reading and writing at offsets, which works on every file system. A source that ends early
/// ends the copy; its size is then what was copied.
bool TContentCopy::CopyBlocks(std::uint64_t offset, std::uint64_t end)
{
    // A file without a known size is small or empty.
    const std::uint64_t block = end == kUntilTheEnd ? kSmallBlock : kBlock;
    assert(!m_block || block == kBlock); // a copy without a known end makes one pass
    if (!m_block)
        m_block.reset(new char[block]); // make_unique would clear it
    while (offset < end) {
        const std::size_t wanted = std::min(end - offset, block);
        const ssize_t got = QvRetryInterrupted(
            [&] { return pread(m_from, m_block.get(), wanted, static_cast<off_t>(offset)); });
        if (got < 0)
            return FailReading();
        if (got == 0) {
            m_hasEnded = true;
            return true;
        }
        const auto count = static_cast<std::size_t>(got);
        if (!WriteAt(m_block.get(), count, offset))
            return false;
        offset += count;
        m_report.Advance(count);
    }
    return true;
}

bool TContentCopy::WriteAt(const char* bytes, std::size_t count, std::uint64_t offset)
{
    assert(offset <= static_cast<std::uint64_t>(INT64_MAX) - count);
    while (count > 0) {
        const ssize_t put = QvRetryInterrupted(
            [&] { return pwrite(m_to, bytes, count, static_cast<off_t>(offset)); });
        if (put <= 0) {
            // A write of nothing would otherwise repeat without end.
            errno = put == 0 ? EIO : errno;
            return FailWriting();
        }
        bytes += put;
        count -= static_cast<std::size_t>(put);
        offset += static_cast<std::uint64_t>(put);
    }
    return true;
}

bool TContentCopy::SetSize(std::uint64_t size)
{
    return QvRetryInterrupted([&] { return ftruncate(m_to, static_cast<off_t>(size)); }) == 0 ||
           FailWriting();
}

bool TContentCopy::FailReading()
{
    m_error.Reading = errno;
    return false;
}

bool TContentCopy::FailWriting()
{
    m_error.Writing = errno;
    return false;
}
} // namespace

/// The last report is left to Whole, so that it comes exactly once.
void TQvCopyReport::Advance(std::uint64_t bytes)
{
    m_done += bytes;
    QvPollProgress(m_progress.Handler());
    // Polled each time, reported rarely: a report may draw.
    if (m_done < m_reported + kReportEvery || m_done >= m_size)
        return;
    m_reported = m_done;
    m_progress.Report(static_cast<double>(m_done) / static_cast<double>(m_size));
}

void TQvCopyReport::Whole()
{
    QvPollProgress(m_progress.Handler());
    m_progress.Report(1.0);
}

TQvCopyError QvCopyContent(int from, const struct stat& status, int to, TQvCopyReport& report)
{
    return TContentCopy(from, to, report).Run(status);
}
