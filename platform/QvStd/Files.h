/// @file
/// Files and folders over POSIX calls.
///
/// Every function takes the raw system path as a std::string, or a TQvPath. Those that can fail
/// answer a TQvResult, which converts to bool and names the path that failed where there are two;
/// `errno` has its error then, too. The queries answer false or 0 with `errno`.
///
/// Thread-safety: callable from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "QvStd/DateTime.h"
#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Progress.h"
#include "QvStd/Result.h"

/// The status of a file; symbolic links are followed.
struct TQvFileInfo
{
    bool IsFolder = false;    ///< a folder
    bool IsRegular = false;   ///< a regular file; false for devices, FIFOs and sockets, too
    std::uint64_t Size = 0;   ///< bytes
    TQvDateTime UpdateTime;   ///< last modification
    TQvDateTime CreationTime; ///< birth time, else the status change time
};

/// Fills `info` with one statx. "Nothing", `info` unchanged, when nothing is there (a dangling link
/// included).
QVSTD_API TQvResult QvGetFileInfo(const std::string& path, TQvFileInfo* info);
/// The same for `name` relative to an open folder (or AT_FDCWD).
QVSTD_API TQvResult QvGetFileInfoAt(int folderDescriptor, const char* name, TQvFileInfo* info);

/// The folders that successive copies keep open, see Descriptor.h.
struct TQvCopyFolders;

/// What two paths have in common.
enum class TQvSameness
{
    Different, ///< two files, or one of them is missing
    /// One entry of a folder by two paths, or a symbolic link and its target: a move from one to
    /// the other would lose the file.
    OneEntry,
    /// One entry by two spellings that differ only in letter case, on a file system that ignores
    /// case: a rename changes the spelling; a copy and a deletion would lose the file.
    OtherCase,
    /// Two hard links of one file.
    HardLinks
};
/// Compares what two paths name. Different also when one of them cannot be examined; OneEntry when
/// it cannot be found out which of the last three it is.
QVSTD_API TQvSameness QvCompareFiles(const std::string& a, const std::string& b);

/// Whether a file of any kind except a folder exists; links are followed. False with errno, too,
/// when that cannot be found out.
QVSTD_API bool QvFileExists(const std::string& path);
/// Whether a folder exists; links are followed. False with errno, too, when that cannot be found
/// out.
QVSTD_API bool QvDirExists(const std::string& path);
/// Done when a file or a folder exists; `isFolder` (may be null) receives which. Links are
/// followed. "Nothing" when nothing exists, failed when that cannot be found out.
QVSTD_API TQvResult QvFileDirExists(const char* path, bool* isFolder);
/// The same of a text.
inline TQvResult QvFileDirExists(const std::string& path, bool* isFolder)
{
    return QvFileDirExists(path.c_str(), isFolder);
}
/// Whether `path` is a symbolic link, whatever its target.
QVSTD_API bool QvIsSymLink(const std::string& path);
/// Replaces `path` by the end of its chain of symbolic links, whether or not anything exists there.
/// Only links in the last component are resolved. False with errno (ELOOP for an endless chain).
QVSTD_API bool QvFollowLinks(std::string* path);

/// The size in bytes; 0 with errno on failure.
QVSTD_API std::uint64_t QvGetFileSize(const std::string& path);
/// Modification time in Unix seconds; 0 with errno on failure.
QVSTD_API std::uint32_t GetUnixFileTime(const std::string& path);

/// Creates one folder; fails with EEXIST when anything is already there.
QVSTD_API TQvResult QvCreateDirectory(const std::string& path);
/// Creates one folder with the permission bits of the folder `model`, less those of the umask; its
/// owner can always change it. Done, too, when the folder exists.
QVSTD_API TQvResult QvCreateDirectoryLike(const std::string& path, const std::string& model);
/// Creates the folder with all missing parents; done when it exists afterwards. Other processes may
/// create the same folders at the same time. With `synced` the new folders survive a power cut.
QVSTD_API TQvResult QvForceDirectories(const std::string& path, bool synced = false);
/// Deletes a file or a link; never a folder. "Nothing" when it does not exist.
QVSTD_API TQvResult QvDeleteFile(const std::string& path);
/// Removes an empty folder, or a symbolic link to a folder. A trailing "/" does not matter.
QVSTD_API TQvResult QvRemoveDirectory(const std::string& path);
/// Removes a folder; with `recursive` with everything in it, with `force` also what is
/// write-protected (folders are made writable first), of any depth. Symbolic links inside are
/// removed, never followed; when `path` itself is a link, only the link is removed. Refuses "", "/"
/// and a path whose last component is "." or "..". Continues after a failure and reports the first
/// one, as a sentence in `errorText` (may be null).
QVSTD_API TQvResult QvRemoveDirectoryEx(const std::string& path, bool recursive, bool force,
                                        std::string* errorText);

/// Copies content, modification time and permission bits, by a reflink or inside the kernel where
/// that is possible; holes stay holes. The target is complete or unchanged, as TQvNewFile says; a
/// symbolic link to a file stays and its target is replaced. With `failIfExists` an existing target
/// is refused (EEXIST). The source must be a regular file (EINVAL, or EISDIR for a folder). For two
/// names of one file nothing is done, and the result is done. Not synced.
QVSTD_API TQvResult QvCopyFile(const std::string& from, const std::string& to, bool failIfExists);
/// As QvCopyFile; polls `progress` (may be null) at least every 8 MiB and reports positions when it
/// is active; the last report is always 1. A user break fails (ECANCELED) and leaves the old
/// target.
QVSTD_API TQvResult QvCopyFileEx(const std::string& from, const std::string& to, bool failIfExists,
                                 TQvProgressHandler* progress);
/// As QvCopyFileEx for a target that is probably missing, because its folder was just made: an
/// existing one is refused (EEXIST), but only after the content was read. `folders` (may be null)
/// keeps folders open between calls and belongs to one thread at a time.
QVSTD_API TQvResult QvCopyFileToNew(const std::string& from, const std::string& to,
                                    TQvProgressHandler* progress, TQvCopyFolders* folders);
/// As QvCopyFileEx for a copy whose source is to be deleted: it keeps the owner (where allowed) and
/// extended attributes, too, and is synced with its name. `copied` (may be null) receives the state
/// of the source before its first byte was read, for QvRequireUnchanged.
QVSTD_API TQvResult QvCopyFileToMove(const std::string& from, const std::string& to,
                                     TQvProgressHandler* progress, struct stat* copied = nullptr);
/// Done when `path` still names the file in the state `copied`; EBUSY when another process has
/// written to it or replaced it since, so that the copy lacks that content.
QVSTD_API TQvResult QvRequireUnchanged(const std::string& path, const struct stat& copied);
/// Renames. Without `overwrite` an existing target is refused (EEXIST), in one step with the
/// rename, so that a target which another process creates meanwhile is never replaced. With
/// `overwrite`, moving a file onto another hard link of it removes the source's name; onto the same
/// entry is refused (EINVAL), unless only the letter case of its name changes. With `acrossDevices`
/// a file is copied to another device (as QvCopyFileToMove) and the source then deleted, unless it
/// was changed meanwhile (EBUSY: both stay); `progress` (may be null) is for that.
QVSTD_API TQvResult QvMoveFileEx(const std::string& from, const std::string& to, bool overwrite,
                                 bool acrossDevices, TQvProgressHandler* progress = nullptr);

/// Full paths of the entries of `folder` that match `mask` (wildcards "*" and "?", case matters),
/// sorted by name; "*" and "*.*" match every name, hidden ones too. Folders are listed
/// `withFolders`; with `recursive` sub-folders are searched too (each folder before its contents),
/// links to folders are listed but not entered. Throws a TQvMessage that names the folder when it
/// cannot be read; a missing one gives an empty list.
QVSTD_API std::vector<std::string> QvFindFiles(const std::string& folder, const std::string& mask,
                                               bool withFolders, bool recursive,
                                               TQvProgressHandler* progress = nullptr);

/// The same without an exception: a failure names the folder that could not be read, and `found`
/// has what was found before.
QVSTD_API TQvResult QvSearchFiles(const std::string& folder, const std::string& mask,
                                  bool withFolders, bool recursive, std::vector<std::string>* found,
                                  TQvProgressHandler* progress = nullptr);

/// Replaces a file's content, synced, through a TQvNewFile: after any failure the file has the old
/// or the new content. Owner (where allowed) and permission bits of an existing file are kept, a
/// symbolic link stays. On failure the old file is untouched, except when only the folder could not
/// be synced: then the new content is in place and may not survive a power cut.
QVSTD_API TQvResult QvWriteFileAtomically(const std::string& path, const std::string& content);

/// Reads the whole content into `content`, which is unchanged on failure. Fails with EISDIR or
/// EINVAL for anything but a regular file.
QVSTD_API TQvResult QvReadWholeFile(const std::string& path, std::string* content);

/// @name The same for a TQvPath
/// @{

/// As the function of that name that takes the system path.
inline bool QvFileExists(const TQvPath& path)
{
    return QvFileExists(path.toSysStr());
}
inline bool QvDirExists(const TQvPath& path)
{
    return QvDirExists(path.toSysStr());
}
inline TQvResult QvFileDirExists(const TQvPath& path, bool* isFolder)
{
    return QvFileDirExists(path.toSysStr(), isFolder);
}
inline std::uint64_t QvGetFileSize(const TQvPath& path)
{
    return QvGetFileSize(path.toSysStr());
}
inline std::uint32_t GetUnixFileTime(const TQvPath& path)
{
    return GetUnixFileTime(path.toSysStr());
}
inline TQvResult QvCreateDirectory(const TQvPath& path)
{
    return QvCreateDirectory(path.toSysStr());
}
inline TQvResult QvForceDirectories(const TQvPath& path)
{
    return QvForceDirectories(path.toSysStr());
}
inline TQvResult QvDeleteFile(const TQvPath& path)
{
    return QvDeleteFile(path.toSysStr());
}
inline TQvResult QvRemoveDirectory(const TQvPath& path)
{
    return QvRemoveDirectory(path.toSysStr());
}
inline TQvResult QvRemoveDirectoryEx(const TQvPath& path, bool recursive, bool force,
                                     std::string* errorText)
{
    return QvRemoveDirectoryEx(path.toSysStr(), recursive, force, errorText);
}
inline TQvResult QvCopyFile(const TQvPath& from, const TQvPath& to, bool failIfExists)
{
    return QvCopyFile(from.toSysStr(), to.toSysStr(), failIfExists);
}
inline std::vector<std::string> QvFindFiles(const TQvPath& folder, const std::string& mask,
                                            bool withFolders, bool recursive,
                                            TQvProgressHandler* progress = nullptr)
{
    return QvFindFiles(folder.toSysStr(), mask, withFolders, recursive, progress);
}
/// @}
