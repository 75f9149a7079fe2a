#include "FileHandle.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace
{
bool Writes(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
}

std::string PathOf(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}
/// As the file systems of the network do, and layered ones above them.
bool DelaysErrors(int descriptor)
{
    struct statfs disk = {};
    if (fstatfs(descriptor, &disk) != 0)
        return true;
    switch (disk.f_type) {
    case BTRFS_SUPER_MAGIC:
    case EXT4_SUPER_MAGIC:
    case RAMFS_MAGIC:
    case TMPFS_MAGIC:
    case XFS_SUPER_MAGIC:
        return false;
    default:
        return true;
    }
}
} // namespace

bool TFileHandle::MayFailAtClose(int flags) const
{
    const bool mayBeMapped = (flags & O_ACCMODE) == O_RDWR;
    return m_isWritable && (mayBeMapped || DelaysErrors(Descriptor()));
}

int TFileHandle::Take(var_a<TQvStream*> stream, int error, bool isWritable,
                      std::unique_ptr<TFileHandle>* handle)
{
    if (error != 0)
        return error;
    auto opened = std::make_unique<TFileHandle>();
    opened->m_stream = std::move(stream);
    opened->m_file = dynamic_cast<TQvFileStream*>(opened->m_stream.get());
    if (opened->m_file == nullptr)
        return ENOTSUP;
    opened->m_isWritable = isWritable;
    *handle = std::move(opened);
    return 0;
}

int TFileHandle::Prepare(int flags)
{
    const int error = Writes(flags) && (flags & O_ACCMODE) != O_WRONLY ? AddReading() : 0;
    return error == 0 && (flags & O_TRUNC) != 0 ? Truncate(0) : error;
}

int TFileHandle::Open(const std::string& id, int flags, std::unique_ptr<TFileHandle>* handle)
{
    const qvOpenMode mode = Writes(flags) ? kQvOpenWrite : kQvOpenRead;
    auto stream = ResourceManager.OpenResource(id, mode, kQvShareAll, 0);
    const int error = TResourceManager::LastFailure().Error;
    const int taken = Take(std::move(stream), error, Writes(flags), handle);
    return taken != 0 ? taken : (*handle)->Prepare(flags);
}

int TFileHandle::Reopen(int descriptor, int flags, std::unique_ptr<TFileHandle>* handle)
{
    const qvOpenMode mode = Writes(flags) ? kQvOpenWrite : kQvOpenRead;
    auto stream = TQvFileStream::VCreate(PathOf(descriptor), mode, kQvShareAll);
    const int error = *stream ? 0 : -stream->getError();
    const int taken = Take(std::move(stream), error, Writes(flags), handle);
    return taken != 0 ? taken : (*handle)->Prepare(flags);
}

int TFileHandle::Create(const std::string& id, std::unique_ptr<TFileHandle>* handle)
{
    auto stream = ResourceManager.OpenResource(id, kQvOpenCreateNew, kQvShareAll, 0);
    const int error = TResourceManager::LastFailure().Error;
    return Take(std::move(stream), error, true, handle);
}

/// No mode of the library reads and writes a file that must exist: one of the others would make a
/// file where one was just deleted. The stream's own file is opened once more instead.
int TFileHandle::AddReading()
{
    const std::string self = PathOf(m_file->Descriptor());
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
            return errno;
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
            return put < 0 ? errno : EIO;
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
    const auto sync = [&] { return dataOnly ? fdatasync(Descriptor()) : fsync(Descriptor()); };
    // What was written by a descriptor has its errors there. Its file is not new.
    if ((m_both || !dataOnly) && QvRetryInterrupted(sync) != 0)
        return errno;
    if (m_both)
        return 0;
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
