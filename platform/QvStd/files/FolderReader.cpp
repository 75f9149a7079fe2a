#include "QvStd/FolderReader.h"

#include <cassert>
#include <cerrno>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace
{
/// About a thousand entries of usual names for each call.
constexpr std::size_t kBufferSize = std::size_t{32} << 10;
} // namespace

TQvFolderReader::~TQvFolderReader()
{
    Close();
}

TQvFolderReader::TQvFolderReader(TQvFolderReader&& other) noexcept
{
    *this = std::move(other);
}

/// By exchange with a closed reader.
TQvFolderReader& TQvFolderReader::operator=(TQvFolderReader&& other) noexcept
{
    Close();
    std::swap(m_descriptor, other.m_descriptor);
    std::swap(m_ownBuffer, other.m_ownBuffer);
    std::swap(m_buffer, other.m_buffer);
    std::swap(m_bufferSize, other.m_bufferSize);
    std::swap(m_length, other.m_length);
    std::swap(m_next, other.m_next);
    std::swap(m_result, other.m_result);
    return *this;
}

TQvResult TQvFolderReader::Open(const std::string& path)
{
    return OpenAt(AT_FDCWD, path.c_str(), true);
}

TQvResult TQvFolderReader::OpenAt(int folderDescriptor, const char* name, bool followsLink)
{
    Close();
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followsLink ? 0 : O_NOFOLLOW);
    m_descriptor = openat(folderDescriptor, name, flags);
    m_result = m_descriptor >= 0 ? TQvResult::Done() : TQvResult::FromErrno();
    return m_result;
}

void TQvFolderReader::Close()
{
    // Callers close before they report, and report the errno of the call before.
    const int error = errno;
    if (m_descriptor >= 0)
        close(std::exchange(m_descriptor, -1));
    if (m_ownBuffer) {
        m_ownBuffer.reset();
        m_buffer = nullptr;
    }
    m_length = m_next = 0;
    errno = error;
}

TQvResult TQvFolderReader::Rewind()
{
    m_length = m_next = 0;
    m_result = lseek(m_descriptor, 0, SEEK_SET) == 0 ? TQvResult::Done() : TQvResult::Failed(errno);
    return m_result;
}

bool TQvFolderReader::Fill()
{
    if (m_buffer == nullptr) {
        m_ownBuffer.reset(new char[kBufferSize]); // make_unique would clear it
        m_buffer = m_ownBuffer.get();
        m_bufferSize = kBufferSize;
    }
    assert(reinterpret_cast<std::uintptr_t>(m_buffer) % alignof(dirent64) == 0);
    const ssize_t length = getdents64(m_descriptor, m_buffer, m_bufferSize);
    if (length < 0)
        m_result = TQvResult::Failed(errno);
    m_next = 0;
    m_length = length > 0 ? static_cast<std::size_t>(length) : 0;
    return m_length > 0;
}

/// The kernel writes records of different lengths one after the other; names point into the buffer.
bool TQvFolderReader::Next(TQvFolderEntry* entry)
{
    while (m_next < m_length || Fill()) {
        const auto* record = reinterpret_cast<const dirent64*>(m_buffer + m_next);
        assert(record->d_reclen > 0 && record->d_reclen <= m_length - m_next);
        m_next += record->d_reclen;
        entry->Name = record->d_name;
        entry->Type = record->d_type;
        entry->Number = record->d_ino;
        if (entry->Name != "." && entry->Name != "..")
            return true;
    }
    return false;
}
