/// @file
/// Opening a file as its server has it now, for those who change it under a lock.
///
/// Kernels empty the caches of their own network clients when a file is opened or locked. A client
/// in user space (FUSE) may keep names, sizes and small contents for a second or longer, and
/// neither a lock nor AT_STATX_FORCE_SYNC empties its caches: what another machine has written
/// under the lock before would be missed, and lost by the next rewrite. Listing the folder makes
/// such a client ask which file has the name and how long it is, and drop small contents that have
/// changed; O_DIRECT makes it read from the server. Both are done on FUSE only; elsewhere the one
/// added system call is the one that finds out.
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

/// Brings the name `path` up to date, also when nothing has it: 0 or an errno. `isCached` (may be
/// null) receives whether sizes and contents may come from a cache that a lock does not empty. In a
/// folder that may not be read the name stays as the client knows it.
QVSTD_API int QvRefreshName(const std::string& path, bool* isCached = nullptr);

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

    /// To be called after a lock on the file was gained: what others wrote between the opening and
    /// the lock counts, too. 0 or an errno.
    int Refresh(const std::string& path) const { return m_direct ? QvRefreshName(path) : 0; }

    /// As pread.
    ssize_t ReadAt(std::uint64_t position, char* buffer, std::size_t count) const;
    /// Corrects the size that the client says, by reading from near that end: 0 or an errno.
    int CorrectSize(std::uint64_t* size) const;

private:
    TQvDescriptor m_file;
    TQvDescriptor m_direct; ///< open only where caches must be passed
};
