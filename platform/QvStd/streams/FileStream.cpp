#include "QvStd/FileStream.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"

namespace
{
constexpr std::size_t kStraightFrom = 4096;
constexpr std::size_t kFirstBuffer = std::size_t{16} << 10;
constexpr std::size_t kLongBuffer = std::size_t{64} << 10;
constexpr std::size_t kMaxTransfer = std::size_t{1}
                                     << 30; ///< the system takes less than 2 GiB a call
constexpr std::uint64_t kMaxPosition = INT64_MAX;

/// As memcpy, without a call for the sizes of most small reads (numbers, short names).
inline void CopyFew(void* to, const char* from, std::size_t count)
{
    constexpr std::size_t kStep = 8;
    if (count < kStep || count > 2 * kStep) {
        std::memcpy(to, from, count);
        return;
    }
    // The second copy may overlap the first one.
    char* const bytes = static_cast<char*>(to);
    const std::size_t rest = count - kStep;
    char first[kStep];
    char last[kStep];
    std::memcpy(first, from, kStep);
    std::memcpy(last, from + rest, kStep);
    std::memcpy(bytes, first, kStep);
    std::memcpy(bytes + rest, last, kStep);
}

/// The open flags of a mode; -1 for a mode that never opens. Truncation is left out: it has to wait
/// for the lock.
int FlagsOf(qvOpenMode mode)
{
    switch (mode) {
    case kQvOpenWriteOrCreate:
        return O_WRONLY | O_CREAT;
    case kQvOpenWrite:
        return O_WRONLY;
    case kQvOpenRead:
        return O_RDONLY;
    case kQvOpenCreateNew:
        return O_RDWR | O_CREAT | O_EXCL;
    case kQvOpenCreate:
    case kQvOpenReadWrite:
        return O_RDWR | O_CREAT;
    default:
        return -1;
    }
}
} // namespace

TQvFileStream::~TQvFileStream()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

var_a<TQvFileStream*> TQvFileStream::VCreate(const std::string& path, qvOpenMode mode,
                                             qvShareMode share)
{
    auto stream = make_var<TQvFileStream>();
    stream->Open(path, mode, share);
    return stream;
}

bool TQvFileStream::Open(const std::string& path, qvOpenMode mode, qvShareMode share)
{
    if (path.find('\0') == std::string::npos)
        return Open(path.c_str(), mode, share);
    if (m_descriptor >= 0)
        Close();
    return Fail(EINVAL); // the system would cut the path there
}

bool TQvFileStream::Open(const char* path, qvOpenMode mode, qvShareMode share)
{
    if (m_descriptor >= 0)
        Close();
    // A stream can be opened again after a failure, whose error must not stay.
    m_error = 0;
    const int flags = FlagsOf(mode);
    TQvDescriptor file;
    struct stat status;
    int error = flags < 0 ? EINVAL : QvOpenRegular(path, flags, &file, &status);
    // Also without a file, as -1: the checks below then only carry the error on.
    m_descriptor = file.Release();
    if (error == 0)
        // Before anything is changed: a file that another opener has locked keeps its content.
        error = QvTakeShareLock(m_descriptor, share);
    // The size is queried under the lock: the last holder may have changed it.
    if (error == 0 && mode == kQvOpenCreate && getSize() != 0 && !setSize(0))
        error = -m_error;
    if (error == 0 && status.st_size == 0 && (flags & O_CREAT) != 0)
        // An empty file may be new. Flush then syncs its folder; for an old one that costs one
        // call.
        m_unsyncedName = path;
    if (error == 0)
        return true;
    if (m_descriptor >= 0)
        Close();
    return Fail(error);
}

/// Served from the buffer where it has all bytes; so most small reads are a comparison and a copy.
std::size_t TQvFileStream::Read(void* buffer, std::size_t count)
{
    // A position before the buffer wraps round to a big offset, a closed stream has no buffer.
    const std::uint64_t offset = m_position - m_bufferStart;
    if (offset < m_bufferLength && count <= m_bufferLength - offset && count != 0) {
        CopyFew(buffer, m_buffer.get() + offset, count);
        m_position += count;
        return count;
    }
    if (m_descriptor < 0) {
        Fail(EBADF);
        return invalid_value;
    }
    char* const bytes = static_cast<char*>(buffer);
    return count < kStraightFrom ? ReadBuffered(bytes, count) : ReadStraight(bytes, count);
}

/// The buffer has m_bufferLength bytes of the file from m_bufferStart on. Writes, setSize and Close
/// empty it, so it never has bytes that this stream has changed; those that others change may be
/// old.
std::size_t TQvFileStream::ReadBuffered(char* buffer, std::size_t count)
{
    std::size_t done = 0;
    while (done < count) {
        const std::uint64_t offset = m_position - m_bufferStart;
        if (offset >= m_bufferLength) {
            if (!FillBuffer())
                return done > 0 ? done : invalid_value;
            if (m_bufferLength == 0)
                break;
            continue;
        }
        const std::size_t part =
            std::min(count - done, m_bufferLength - static_cast<std::size_t>(offset));
        std::memcpy(buffer + done, m_buffer.get() + offset, part);
        done += part;
        m_position += part;
    }
    return done;
}

bool TQvFileStream::FillBuffer()
{
    // The longer buffer is for sequential reads; a read far away starts with a short one again.
    const std::uint64_t skipped = m_position - m_bufferStart - m_bufferLength;
    const bool readsOn = m_bufferLength >= kFirstBuffer && skipped < kFirstBuffer;
    const std::size_t wanted = readsOn ? kLongBuffer : kFirstBuffer;
    if (wanted > m_bufferSize) {
        m_buffer.reset(new char[wanted]); // make_unique would clear it
        m_bufferSize = wanted;
    }
    m_bufferLength = 0;
    const std::size_t got = ReadAt(m_buffer.get(), wanted, m_position);
    if (got == invalid_value)
        return false;
    assert(got <= m_bufferSize);
    m_bufferStart = m_position;
    m_bufferLength = got;
    return true;
}

/// Without the buffer, which stays valid: reads have their own position and do not move another
/// one.
std::size_t TQvFileStream::ReadStraight(char* buffer, std::size_t count)
{
    std::size_t done = 0;
    while (done < count) {
        const std::size_t got = ReadAt(buffer + done, count - done, m_position);
        if (got == invalid_value)
            return done > 0 ? done : invalid_value;
        if (got == 0)
            break;
        done += got;
        m_position += got;
    }
    return done;
}

std::size_t TQvFileStream::ReadAt(char* buffer, std::size_t count, std::uint64_t position) const
{
    assert(m_descriptor >= 0);
    assert(position <= kMaxPosition);
    // Of the bytes beyond the largest position none can be read: that is an end, no error.
    const std::uint64_t room = kMaxPosition - position;
    const std::size_t wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>({count, kMaxTransfer, room}));
    const ssize_t got = QvRetryInterrupted(
        [&] { return pread(m_descriptor, buffer, wanted, static_cast<off_t>(position)); });
    if (got >= 0)
        return static_cast<std::size_t>(got);
    Fail(errno);
    return invalid_value;
}

/// Not buffered, at the stream's own position: that of the descriptor is not used.
std::size_t TQvFileStream::Write(const void* buffer, std::size_t count)
{
    m_bufferLength = 0;
    if (m_descriptor < 0) {
        Fail(EBADF);
        return invalid_value;
    }
    const char* const bytes = static_cast<const char*>(buffer);
    std::size_t done = 0;
    while (done < count) {
        assert(m_position <= kMaxPosition);
        const std::uint64_t room = kMaxPosition - m_position;
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>({count - done, kMaxTransfer, room}));
        const ssize_t put = QvRetryInterrupted([&] {
            return pwrite(m_descriptor, bytes + done, wanted, static_cast<off_t>(m_position));
        });
        // 0 for bytes that are left means that the largest position is reached.
        if (put <= 0) {
            Fail(put < 0 ? errno : EFBIG);
            return done > 0 ? done : invalid_value;
        }
        done += static_cast<std::size_t>(put);
        m_position += static_cast<std::uint64_t>(put);
    }
    return done;
}

/// Asked each time: others may change the size. A closed stream has the descriptor -1 and fails.
std::uint64_t TQvFileStream::getSize() const
{
    struct stat status;
    if (fstat(m_descriptor, &status) == 0)
        return static_cast<std::uint64_t>(status.st_size);
    Fail(errno);
    return invalid_value64;
}

bool TQvFileStream::setSize(std::uint64_t size)
{
    m_bufferLength = 0;
    // The conversion below would give a negative length.
    if (m_descriptor >= 0 && size > kMaxPosition)
        return Fail(EFBIG);
    const off_t length = static_cast<off_t>(size);
    return QvRetryInterrupted([&] { return ftruncate(m_descriptor, length); }) == 0 || Fail(errno);
}

bool TQvFileStream::setPosition(std::uint64_t position)
{
    if (m_descriptor < 0)
        return Fail(EBADF);
    if (position > kMaxPosition)
        return Fail(EINVAL);
    m_position = position;
    return true;
}

bool TQvFileStream::Flush()
{
    if (QvRetryInterrupted([&] { return fdatasync(m_descriptor); }) != 0)
        return Fail(errno);
    // The bytes of a new file survive a power cut only together with its name.
    if (!m_unsyncedName.empty() && !QvSyncFolderOf(m_unsyncedName, m_descriptor))
        return Fail(errno);
    m_unsyncedName.clear();
    return true;
}

bool TQvFileStream::Close()
{
    if (m_descriptor < 0)
        return Fail(EBADF);
    // Never repeated: the descriptor is closed even after an error, and another thread may have it
    // by now.
    const int result = close(m_descriptor);
    const int error = errno;
    m_descriptor = -1;
    m_position = 0;
    m_bufferLength = 0;
    m_buffer.reset();
    m_bufferSize = 0;
    m_unsyncedName.clear();
    return result == 0 || Fail(error);
}

bool TQvFileStream::Fail(int errorNumber) const
{
    m_error = -errorNumber;
    return false;
}
