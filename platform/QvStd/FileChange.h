// Changing the content of a file that others change, too.
//
// Thread-safety: callable from any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Result.h"

/// Makes the new content of the old one, which has no value where there is no file yet. Called
/// again when what it was given was not the file's content any more.
using TQvContentChange = std::function<std::string(const std::optional<std::string>& old)>;

struct TQvFileChange
{
    TQvResult Reading; ///< done, too, when there was no file
    TQvResult Writing;

    explicit operator bool() const { return Reading && Writing; }
};

/// Whether opening `path` failed with `error` because another machine has replaced the file: a
/// client of a network file system knows the old one for as long as its caches last.
QVSTD_API bool QvIsStale(const std::string& path, int error);

/// Replaces the content of a file, as a whole and synced, by what `change` makes of it; content
/// that stays the same is not written. The caller holds the lock that keeps others out from the
/// reading to the writing.
///
/// An old file (QvIsStale, or the name leads to another file by the time of the writing) is noticed
/// before anything is written, and read again, for up to 5 s. `path` is a raw system path. What
/// `change` throws passes.
QVSTD_API TQvFileChange QvChangeFile(const std::string& path, const TQvContentChange& change);

/// As QvChangeFile; throws a TQvMessage that names the file when it could not be read or written.
QVSTD_API void QvChangeFileE(const TQvPath& file, const TQvContentChange& change);
/// Throws that message for a change that has failed.
QVSTD_API void QvRequireChangedE(const TQvPath& file, const TQvFileChange& done);
