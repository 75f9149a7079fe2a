/// @file
/// Changing the content of a file that other processes may change, too: the new content is made of
/// the old one, which is read under the caller's lock.
///
///     const TQvFileLock lock(path, 10000);
///     if (lock)
///         QvChangeFileE(file, [](const auto& old) { return old.value_or("") + "one more\n"; });
///
/// Thread-safety: callable from any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Result.h"

/// Makes the new content from the old one, which has no value where there is no file yet. Called
/// again when the file was replaced after its content was read.
using TQvContentChange = std::function<std::string(const std::optional<std::string>& old)>;

/// How a change ended.
struct TQvFileChange
{
    TQvResult Reading; ///< done, too, when there was no file
    TQvResult Writing; ///< done, too, when the content stayed the same

    /// Whether the file has the new content.
    explicit operator bool() const { return Reading && Writing; }
};

/// Whether opening `path` failed with `error` because another machine has replaced the file: a
/// client of a network file system still refers to the old one until its caches expire.
QVSTD_API bool QvIsStale(const std::string& path, int error);

/// Replaces the content of a file, as a whole and synced, by what `change` makes of it; content
/// that stays the same is not written. The caller has the lock that excludes other writers from the
/// reading to the writing.
///
/// A file that was replaced meanwhile (QvIsStale, or the path now names another file) is noticed
/// before anything is written, and read again, for up to 5 s. `path` is a raw system path.
/// Exceptions of `change` pass through.
QVSTD_API TQvFileChange QvChangeFile(const std::string& path, const TQvContentChange& change);

/// As QvChangeFile; throws a TQvMessage that names the file when it could not be read or written.
QVSTD_API void QvChangeFileE(const TQvPath& file, const TQvContentChange& change);
/// Throws that message for a failed change.
QVSTD_API void QvRequireChangedE(const TQvPath& file, const TQvFileChange& done);
