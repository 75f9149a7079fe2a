/// @file
/// Owning file descriptors, and the one way in which this library opens files and folders.
///
/// Thread-safety: one descriptor belongs to one thread at a time.
#pragma once

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "QvStd/Export.h"
#include "QvStd/Stream.h"

/// Owns a file descriptor. Its destructor leaves errno alone.
class TQvDescriptor
{
public:
    TQvDescriptor() = default;
    /// Owns `number` from now on; -1 for none.
    explicit TQvDescriptor(int number) : m_number(number) {}
    ~TQvDescriptor() { Discard(); }
    /// `other` owns nothing afterwards.
    TQvDescriptor(TQvDescriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    /// Closes its own descriptor first; `other` owns nothing afterwards.
    TQvDescriptor& operator=(TQvDescriptor&& other) noexcept
    {
        Discard();
        m_number = std::exchange(other.m_number, -1);
        return *this;
    }

    /// Whether it owns a descriptor.
    explicit operator bool() const { return m_number >= 0; }
    /// The descriptor, which this object still owns; -1 for none.
    int Number() const { return m_number; }
    /// The descriptor, which the caller owns from now on; -1 for none.
    int Release() { return std::exchange(m_number, -1); }
    /// False with errno when closing reported an error. Never repeated: the descriptor is gone even
    /// then, and its number may belong to another thread.
    bool Close() { return m_number < 0 || close(std::exchange(m_number, -1)) == 0; }

private:
    void Discard()
    {
        if (m_number < 0)
            return;
        const int error = errno;
        Close();
        errno = error;
    }

    int m_number = -1;
};

/// What the system call `call` answers, repeated while a signal interrupts it (EINTR).
template <class TCall>
auto QvRetryInterrupted(const TCall& call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

/// Opens a regular file close-on-exec: 0 or an errno, EISDIR for a folder and EINVAL for anything
/// else that is no regular file. Never waits for the other end of a FIFO. `status` receives the
/// result of fstat. A relative path is one in `folder`, a descriptor.
QVSTD_API int QvOpenRegular(const char* path, int flags, TQvDescriptor* file, struct stat* status,
                            int folder = AT_FDCWD);
/// EINVAL for a path with a byte 0, at which the system would cut it.
QVSTD_API int QvOpenRegular(const std::string& path, int flags, TQvDescriptor* file,
                            struct stat* status, int folder = AT_FDCWD);

/// Whether both are the status of one file, under whatever names.
inline bool QvIsSameInode(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// A file by its name in an open folder, or by its path.
struct TQvPlace
{
    int Folder = AT_FDCWD; ///< a descriptor, or AT_FDCWD: then `Name` is a whole path
    std::string Name;      ///< as the `...at` system calls take it
};

/// Keeps the folder of the last path open, so that the next path in it needs no new lookup.
class QVSTD_API TQvFolderKeeper
{
public:
    /// By the path alone when its folder cannot be opened. The folder stays open until the next
    /// call; it is still the same one when it was renamed meanwhile.
    TQvPlace Locate(const std::string& path);

private:
    std::string m_path; ///< of the folder, with its "/"
    TQvDescriptor m_folder;
};

/// For successive copies in a few folders.
struct TQvCopyFolders
{
    TQvFolderKeeper Source; ///< folder that is read
    TQvFolderKeeper Target; ///< folder that is written
};

/// The lock of a share mode on an open file: 0, EACCES when another opener's mode forbids it, or an
/// errno. A file system without locks counts as granted.
QVSTD_API int QvTakeShareLock(int descriptor, qvShareMode share);

/// The parent folder in a path, with its "/"; "" for a name alone.
QVSTD_API std::string QvFolderPart(const std::string& path);

/// A descriptor with which QvSyncName can bring the name `path` to the disk: of its parent folder,
/// or of `file`, an open file in it, where the folder may not be read. Invalid with errno on
/// failure.
TQvDescriptor QvOpenForSync(const std::string& path, int file);
/// False with errno.
bool QvSyncName(int folderOrFile);
/// Both steps.
QVSTD_API bool QvSyncFolderOf(const std::string& path, int file);
