#include "QvStd/FileLock.h"

#include <cassert>
#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/FileChange.h"
#include "QvStd/FreshFile.h"
#include "QvStd/Result.h"
#include "QvStd/process/LockNote.h"

namespace
{
/// Short, since a change under this lock takes a few milliseconds.
constexpr std::chrono::milliseconds kPause(1);

/// 0 or a negative errno.
int LockFirstByte(int descriptor)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    // One byte is enough, as all users of the lock take the same one.
    lock.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : -errno;
}

int RefuseIrregular(const struct stat& status)
{
    if (S_ISREG(status.st_mode))
        return 0;
    return S_ISDIR(status.st_mode) ? -EISDIR : -EINVAL;
}

/// ": NAME (process 12, since ...)" as the note of a TQvLockFile says; "" without such a note.
std::string HolderBehindColon(const std::string& path)
{
    TQvDescriptor file;
    struct stat status = {};
    if (QvOpenRegular(path, O_RDONLY, &file, &status) != 0)
        return {};
    const std::string holder = QvReadLockHolder(QvReadLockNote(file.Number())).Text;
    return holder.empty() ? holder : ": " + holder;
}
} // namespace

/// Waits by trying again, since each attempt must open the file that is at the path then.
TQvFileLock::TQvFileLock(const std::string& path, unsigned long timeoutMs)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    const auto isWorthWaiting = [&] { return m_error == -EAGAIN || QvIsStale(path, -m_error); };
    while ((m_error = Take(path)) != 0 && isWorthWaiting() &&
           std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(kPause);
}

TQvFileLock::~TQvFileLock()
{
    if (m_descriptor >= 0)
        close(m_descriptor); // releases the lock
}

/// One attempt, on the file that is at the path now. 0 or a negative errno.
int TQvFileLock::Take(const std::string& path)
{
    assert(m_descriptor < 0);
    // O_NONBLOCK: a FIFO of that name must not make the open wait.
    const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat opened = {};
    struct stat current = {};
    int error = descriptor < 0 || fstat(descriptor, &opened) != 0 ? -errno : 0;
    if (error == 0)
        error = RefuseIrregular(opened);
    if (error == 0)
        error = LockFirstByte(descriptor);
    if (error == 0)
        error = -QvRefreshName(path);
    if (error == 0 && stat(path.c_str(), &current) != 0)
        error = -errno;
    // Replaced between the open and the lock: this lock protects nothing any more.
    if (error == 0 && !QvIsSameInode(opened, current))
        error = -EAGAIN;
    if (error == 0)
        m_descriptor = descriptor;
    else if (descriptor >= 0)
        close(descriptor);
    return error;
}

TQvMessage QvLockMessage(const std::string& path, int error)
{
    if (error == -EAGAIN)
        return QvMsg_helper("Err_Locked_name") << path << HolderBehindColon(path);
    return QvMsg_helper("Err_Lock_name") << path << QvErrorText(-error);
}
