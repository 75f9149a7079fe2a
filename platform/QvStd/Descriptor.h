// Owning file descriptors, and the one way in which this library opens files and folders.
//
// Thread-safety: one descriptor belongs to one thread at a time.
#pragma once

#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "QvStd/Stream.h"

/// Owns a file descriptor. Its destructor leaves errno alone.
class TQvDescriptor
{
public:
    TQvDescriptor() = default;
    explicit TQvDescriptor(int number) : m_number(number) {}
    ~TQvDescriptor() { Discard(); }
    TQvDescriptor(TQvDescriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    TQvDescriptor& operator=(TQvDescriptor&& other) noexcept
    {
        Discard();
        m_number = std::exchange(other.m_number, -1);
        return *this;
    }

    explicit operator bool() const { return m_number >= 0; }
    int Number() const { return m_number; }
    int Release() { return std::exchange(m_number, -1); }
    /// False with errno when closing reported an error. Never repeated: the descriptor is gone even
    /// then, and its number may belong to another thread.
    bool Close() { return m_number < 0 || close(std::exchange(m_number, -1)) == 0; }

private:
    void Discard()
    {
        const int error = errno;
        Close();
        errno = error;
    }

    int m_number = -1;
};

template <class TCall>
auto QvRetryInterrupted(const TCall& call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

/// Opens a regular file close-on-exec: 0 or an errno, EISDIR for a folder and EINVAL for what else
/// is no regular file. Never waits for the other end of a FIFO. `status` receives what fstat says.
int QvOpenRegular(const std::string& path, int flags, TQvDescriptor* file, struct stat* status);

/// The lock of a share mode on an open file: 0, EACCES when another opener's mode forbids it, or an
/// errno. A file system without locks counts as granted.
int QvTakeShareLock(int descriptor, qvShareMode share);

/// The part of a path that leads to its folder, with its "/"; "" for a name alone.
std::string QvFolderPart(const std::string& path);

/// A descriptor of the folder that `path` lies in; invalid with errno on failure.
TQvDescriptor QvOpenFolderOf(const std::string& path);

/// Brings the entries of a folder to the disk. False with errno.
bool QvSyncFolder(int folder);
