/// @file
/// Opening a file in the state that its server has now, for a change under a lock.
///
/// The kernel's network clients empty their caches when a file is opened or locked. A client in
/// user space (FUSE) may keep names, sizes and small contents for a second or longer, and neither a
/// lock nor AT_STATX_FORCE_SYNC empties its caches: what another machine has written under the lock
/// would be missed, and lost by the next rewrite. Listing the folder makes such a client ask the
/// server which file has the name and how long it is, and drop small contents that have changed;
/// O_DIRECT makes it read from the server. Both are done on FUSE only; elsewhere the only added
/// system call is statfs.
///
/// Thread-safety: one object belongs to one thread at a time; the function is callable from any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

#include "QvStd/Descriptor.h"
#include "QvStd/Export.h"

/// Makes the client ask the server again for the name `path`, also when there is no such file: 0 or
/// an errno. `isCached` (may be null) receives whether sizes and contents may come from a cache
/// that a lock does not empty. In a folder that may not be read the name stays as the client has
/// cached it.
QVSTD_API int QvRefreshName(const std::string& path, bool* isCached = nullptr);

/// 0 when `path` names the file of that status, as its server sees it; ESTALE when it names another
/// file or none; or an errno.
QVSTD_API int QvCompareWithPath(const std::string& path, const struct stat& file);

/// A regular file whose name, end and content come from the server.
class QVSTD_API TQvFreshFile
{
public:
    /// As QvOpenRegular; `flags` must allow reading. ESTALE, too, when the file was replaced
    /// meanwhile: another try may succeed.
    int Open(const std::string& path, int flags, struct stat* status);
    /// Whether a file is open.
    explicit operator bool() const { return static_cast<bool>(m_file); }
    /// The descriptor of the open file; -1 for none.
    int Number() const { return m_file.Number(); }
    /// As TQvDescriptor::Close.
    bool Close();

    /// Call it after a lock on the file was gained: then reads include what other processes wrote
    /// between the opening and the lock. 0 or an errno.
    int Refresh(const std::string& path) const { return m_direct ? QvRefreshName(path) : 0; }

    /// As pread: bytes read, 0 at the end, -1 with errno.
    ssize_t ReadAt(std::uint64_t position, char* buffer, std::size_t count) const;
    /// Corrects the size that the client reports, by reading from just before that end: 0 or an
    /// errno.
    int CorrectSize(std::uint64_t* size) const;

private:
    TQvDescriptor m_file;
    TQvDescriptor m_direct; ///< open only where the client's caches must be bypassed
};
