/// @file
/// Owning file descriptors, and how this library opens files.
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
    /// Takes over `number` and closes it in the end; -1 for none.
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
    /// Gives the descriptor to the caller, who closes it; -1 for none.
    int Release() { return std::exchange(m_number, -1); }
    /// False with errno when closing reported an error. Closing is never repeated: the descriptor
    /// is closed even then, and another thread may have its number.
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

/// Opens a regular file close-on-exec with the `flags` of open(2): 0 or an errno, EISDIR for a
/// folder and EINVAL for anything else that is no regular file. Never waits for the other end of a
/// FIFO. `file` receives the descriptor and `status` the result of fstat. A relative path is
/// relative to the descriptor `folder`.
QVSTD_API int QvOpenRegular(const char* path, int flags, TQvDescriptor* file, struct stat* status,
                            int folder = AT_FDCWD);
/// The same; EINVAL for a path with a byte 0, where the system would end it.
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
    /// The place of the file `path`: in its open folder, or by its path when the folder cannot be
    /// opened. The folder stays open until a call with another folder; when it is renamed
    /// meanwhile, the place follows it.
    TQvPlace Locate(const std::string& path);

private:
    std::string m_path; ///< of the folder, with its "/"
    TQvDescriptor m_folder;
};

/// The folders that successive copies keep open.
struct TQvCopyFolders
{
    TQvFolderKeeper Source; ///< folder that is read
    TQvFolderKeeper Target; ///< folder that is written
};

/// Takes the lock of a share mode on an open file, without waiting: 0, EACCES when another opener's
/// mode forbids it, or an errno. On a file system without locks it counts as granted. Closing the
/// file releases it.
QVSTD_API int QvTakeShareLock(int descriptor, qvShareMode share);

/// The parent folder in a path, with its "/"; "" for a name alone.
QVSTD_API std::string QvFolderPart(const std::string& path);

/// The descriptor with which QvSyncName syncs the name `path`: of its parent folder, or of `file`,
/// an open file in it, where the folder may not be read. Invalid with errno on failure.
TQvDescriptor QvOpenForSync(const std::string& path, int file);
/// Syncs the name for which QvOpenForSync opened the descriptor. False with errno.
bool QvSyncName(int folderOrFile);
/// Both steps: the name `path` survives a power cut when this answers true. False with errno.
QVSTD_API bool QvSyncFolderOf(const std::string& path, int file);
