#include "FileHandle.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

int TFileHandle::OpenStream(const std::string& id, qvOpenMode mode,
                            std::unique_ptr<TFileHandle>* handle)
{
    auto opened = std::make_unique<TFileHandle>();
    opened->m_stream = ResourceManager.OpenResource(id, mode, kQvShareAll, 0);
    if (const int error = TResourceManager::LastFailure().Error)
        return error;
    opened->m_file = dynamic_cast<TQvFileStream*>(opened->m_stream.get());
    if (opened->m_file == nullptr)
        return ENOTSUP;
    opened->m_isWritable = mode != kQvOpenRead;
    *handle = std::move(opened);
    return 0;
}

int TFileHandle::Open(const std::string& id, int flags, std::unique_ptr<TFileHandle>* handle)
{
    const int access = flags & O_ACCMODE;
    const bool writes = access != O_RDONLY || (flags & O_TRUNC) != 0;
    int error = OpenStream(id, writes ? kQvOpenWrite : kQvOpenRead, handle);
    if (error == 0 && writes && access != O_WRONLY)
        error = (*handle)->AddReading();
    if (error == 0 && (flags & O_TRUNC) != 0)
        error = (*handle)->Truncate(0);
    return error;
}

int TFileHandle::Create(const std::string& id, std::unique_ptr<TFileHandle>* handle)
{
    return OpenStream(id, kQvOpenCreateNew, handle);
}

/// No mode of the library reads and writes a file that must exist: one of the others would make a
/// file where one was just deleted. The stream's own file is opened once more instead.
int TFileHandle::AddReading()
{
    const std::string self = "/proc/self/fd/" + std::to_string(m_file->Descriptor());
    m_both = TQvDescriptor(open(self.c_str(), O_RDWR | O_CLOEXEC));
    return m_both ? 0 : errno;
}

int TFileHandle::Read(char* bytes, std::size_t count, off_t offset, std::size_t* got)
{
    for (*got = 0; *got < count;) {
        const ssize_t part = QvRetryInterrupted([&] {
            return pread(Descriptor(), bytes + *got, count - *got,
                         offset + static_cast<off_t>(*got));
        });
        if (part < 0)
            return *got > 0 ? 0 : errno;
        if (part == 0)
            break;
        *got += static_cast<std::size_t>(part);
    }
    return 0;
}

int TFileHandle::Write(const char* bytes, std::size_t count, off_t offset, bool atEnd,
                       std::size_t* written)
{
    for (*written = 0; *written < count;) {
        iovec rest{const_cast<char*>(bytes) + *written, count - *written};
        // Query the end now: another process may have appended meanwhile.
        const ssize_t put = QvRetryInterrupted([&] {
            return pwritev2(Descriptor(), &rest, 1, offset + static_cast<off_t>(*written),
                            atEnd ? RWF_APPEND : 0);
        });
        if (put <= 0)
            return *written > 0 ? 0 : (put < 0 ? errno : EIO);
        *written += static_cast<std::size_t>(put);
    }
    return 0;
}

int TFileHandle::Truncate(off_t size)
{
    return QvRetryInterrupted([&] { return ftruncate(Descriptor(), size); }) == 0 ? 0 : errno;
}

int TFileHandle::Flush(bool dataOnly)
{
    if (!dataOnly && QvRetryInterrupted([&] { return fsync(Descriptor()); }) != 0)
        return errno;
    const std::lock_guard<std::mutex> lock(m_streamMutex);
    // The stream syncs the folder of a new file, too. After a rename of that folder it is not found
    // any more; the content is on the disk then, and syncing the name is up to the caller of the
    // rename.
    if (m_file->Flush() || m_file->getError() == -ENOENT)
        return 0;
    return -m_file->getError();
}

int TFileHandle::Check()
{
    const int copy = dup(Descriptor());
    return copy >= 0 && close(copy) == 0 ? 0 : errno;
}

int TFileHandle::Close()
{
    const bool isClosed = m_both.Close();
    const int error = errno;
    if (!m_file->Close())
        return -m_file->getError();
    return isClosed ? 0 : error;
}
