/// @file
/// New content for a file: after any failure the file has its old content or the new one, complete.
///
/// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "QvStd/Export.h"
#include "QvStd/Result.h"

class TQvFolderKeeper;

/// Whether the last component of a path is a temporary name, as a killed process may have left it.
QVSTD_API bool QvIsTemporaryName(std::string_view name);

/// New content for the file at a path. Open checks the target, Write or Descriptor take the
/// content, Publish gives it the target's name; without Publish the content is discarded.
///
///     TQvNewFile file;
///     TQvResult result = file.Open(path, {});
///     if (result)
///         result = file.Write(text.data(), text.size());
///     if (result)
///         result = file.Publish(); // here the new content is visible, all at once
///
/// - A target that does not exist is written into an unnamed file where the file system can, so
///   that a killed process leaves nothing; else, and to replace a target, into a hidden temporary
///   file beside it (".<name>.<random>.tmp").
/// - A target that is a symbolic link to a file: the link's target is replaced, the link stays.
/// - A target that may not be written (EACCES, EROFS, ...), that another opener of this library has
///   locked (EACCES), or that is no regular file (EISDIR, EINVAL) is refused by Open, with
///   ExpectsNone by Publish.
/// - Where no file can be created in the folder but the target may be written, the content is
///   collected in an unnamed file elsewhere and Publish writes it in place: after a kill or on a
///   full disk it may then be incomplete.
///
/// Results name the path.
class QVSTD_API TQvNewFile
{
public:
    /// What the new file gets, and how it is created.
    struct TOptions
    {
        /// An existing target is refused (EEXIST), also one that appears before Publish.
        bool FailIfExists = false;
        /// Open does not check the target, Publish does when the name turns out to be taken. For a
        /// small content, or a target that is probably missing; with Permissions or FailIfExists
        /// only. Without FailIfExists a failure may be caused by this option, as with a target that
        /// is a link to another folder, or a file system without unnamed files: try again without.
        bool ExpectsNone = false;
        /// The content is synced before the file gets its name, and the name before Publish
        /// answers.
        bool Synced = false;
        /// The caller holds a lock on the target: its share lock is not requested, since a network
        /// file system may treat both as one kind of lock.
        bool IsLockedByCaller = false;
        /// The permission bits of the new file, set before there is any content. Without a value:
        /// those, and the owner where allowed, of the replaced file, else the default ones of a new
        /// file.
        std::optional<mode_t> Permissions = {};
        /// The modification time of the new file.
        std::optional<timespec> UpdateTime = {};
        /// A descriptor of the file whose owner (where allowed) and extended attributes (where the
        /// file system has them) the new file gets; -1 for none.
        int AttributesOf = -1;
        /// A descriptor of a file that must not be replaced by itself: IsSameFile says whether it
        /// is the target, and Publish discards the content then.
        int NotOnto = -1;
        /// With ExpectsNone: keeps the folder of the target open for the next new file.
        TQvFolderKeeper* Folder = nullptr;
    };

    TQvNewFile();
    /// Discards content that was not published. errno is unchanged.
    ~TQvNewFile();
    /// `other` has nothing to publish afterwards.
    TQvNewFile(TQvNewFile&&) noexcept;
    /// Discards its own content first; `other` has nothing to publish afterwards.
    TQvNewFile& operator=(TQvNewFile&&) noexcept;

    /// Checks the target and creates the new file. `path` is a raw system path. Done, too, when the
    /// target is the file of `NotOnto`: then nothing may be written or published (IsSameFile).
    TQvResult Open(const std::string& path, const TOptions& options);
    /// Whether the target is the file of `NotOnto`, under this or another name.
    bool IsSameFile() const;
    /// Appends all of `count` bytes, or fails.
    TQvResult Write(const void* bytes, std::size_t count);
    /// The descriptor of the new file, for calls other than Write; -1 before Open. It stays owned
    /// by this object.
    int Descriptor() const;
    /// Syncs the content now; Publish does not repeat it.
    TQvResult Sync();
    /// Gives the content its name. A failure before the rename leaves the old target; with `Synced`
    /// a failure of the folder's sync is answered too, and then the new content is in place but may
    /// not survive a power cut.
    TQvResult Publish();

private:
    struct TState;

    TQvResult Answer(int error) const;

    std::string m_path; ///< as it was given
    std::unique_ptr<TState> m_state;
};
