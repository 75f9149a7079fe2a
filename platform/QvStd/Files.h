// Files and folders over POSIX calls.
//
// Every function takes the raw system path as a std::string, or a TQvPath. Failures are answered
// with false (or 0) and leave `errno` as the failing system call set it, unless said otherwise.
//
// Thread-safety: callable from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "QvStd/DateTime.h"
#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Progress.h"

/// What one look at a file tells; symbolic links are followed.
struct TQvFileInfo
{
    bool IsFolder = false;
    bool IsRegular = false;
    std::uint64_t Size = 0;
    TQvDateTime UpdateTime;
    TQvDateTime CreationTime; ///< birth time, else the status change time
};

/// One statx. False with errno when nothing is there (a dangling link included).
QVSTD_API bool QvGetFileInfo(const std::string& path, TQvFileInfo* info);
/// The same for a name in an open folder.
QVSTD_API bool QvGetFileInfoAt(int folderDescriptor, const char* name, TQvFileInfo* info);
/// Whether both paths lead to one and the same file or folder that is there.
QVSTD_API bool QvIsSameFile(const std::string& a, const std::string& b);

/// A file of any kind that is not a folder; links are followed.
QVSTD_API bool QvFileExists(const std::string& path);
QVSTD_API bool QvDirExists(const std::string& path);
/// Either of both; `isFolder` (may be null) tells which.
QVSTD_API bool QvFileDirExists(const std::string& path, bool* isFolder);
QVSTD_API bool QvIsSymLink(const std::string& path);

/// Bytes; 0 with errno on failure.
QVSTD_API std::uint64_t QvGetFileSize(const std::string& path);
/// Modification time in Unix seconds; 0 with errno on failure.
QVSTD_API std::uint32_t GetUnixFileTime(const std::string& path);

/// Gives `to` the permission bits of `from`; links are followed.
QVSTD_API bool QvCopyPermissions(const std::string& from, const std::string& to);

/// One folder; false (EEXIST) when something is already there.
QVSTD_API bool QvCreateDirectory(const std::string& path);
/// The folder with all missing parents; true when it is there afterwards. Safe against others that
/// create the same folders meanwhile.
QVSTD_API bool QvForceDirectories(const std::string& path);
/// A file or a link; never a folder.
QVSTD_API bool QvDeleteFile(const std::string& path);
/// An empty folder; on a symbolic link to a folder removes the link. A trailing "/" does not
/// matter.
QVSTD_API bool QvRemoveDirectory(const std::string& path);
/// Removes a folder; with `recursive` with everything in it, with `force` also what is
/// write-protected (folders are made writable first). Symbolic links inside are removed, never
/// followed; when `path` itself is a link, only the link goes. Refuses "", "/" and a path whose
/// last component is "." or
/// "..". Goes on after a failure, and reports the first one in `errorText` (may be null) and as
/// false.
QVSTD_API bool QvRemoveDirectoryEx(const std::string& path, bool recursive, bool force,
                                   std::string* errorText);

/// Copies content, modification time and permission bits. The target appears whole or not at all:
/// the content is written to a hidden temporary file in the target's folder and renamed over the
/// target. With `failIfExists` an existing target is refused (EEXIST). The source must be a regular
/// file (EINVAL, or EISDIR for a folder); a target that is a folder is refused (EISDIR). Copying a
/// file onto itself succeeds and changes nothing. A target that is a symbolic link is replaced.
/// Reflinks where the file system has them, else blocks of 256 KiB. Not synced.
QVSTD_API bool QvCopyFile(const std::string& from, const std::string& to, bool failIfExists);
/// As QvCopyFile; polls `progress` (may be null) at least every 8 MiB and reports positions when it
/// is active; the last report is always the whole. A user break gives false (ECANCELED) and leaves
/// the old target.
QVSTD_API bool QvCopyFileEx(const std::string& from, const std::string& to, bool failIfExists,
                            TQvProgressHandler* progress);
/// Renames. Without `overwrite` an existing target is refused (EEXIST), with no window in which
/// another process could slip one in. With `acrossDevices` a target on another device is copied (as
/// above, files only) and the source deleted then.
QVSTD_API bool QvMoveFileEx(const std::string& from, const std::string& to, bool overwrite,
                            bool acrossDevices);

/// Full paths of what lies in `folder` and matches `mask` (wildcards "*" and "?", case matters),
/// sorted by name; "*" and "*.*" match every name, hidden ones too. Folders are listed
/// `withFolders`; with `recursive` sub-folders are searched too (each folder before its contents),
/// links to folders are listed but not entered. Throws a TQvMessage that names the folder when it
/// cannot be read; a missing one gives an empty list.
QVSTD_API std::vector<std::string> QvFindFiles(const std::string& folder, const std::string& mask,
                                               bool withFolders, bool recursive,
                                               TQvProgressHandler* progress = nullptr);

/// Writes a file so that it holds either the old or the new content, whatever happens: a temporary
/// neighbour is written, synced and renamed over `path`, and the folder is synced. The permission
/// bits of an existing file are kept. A symbolic link stays: what it points to is replaced. On
/// failure false with errno, the old file is untouched and no temporary stays.
QVSTD_API bool QvWriteFileAtomically(const std::string& path, const std::string& content);

/// The whole content; false with errno on failure (EISDIR, EINVAL for what is no regular file).
QVSTD_API bool QvReadWholeFile(const std::string& path, std::string* content);

inline bool QvFileExists(const TQvPath& path)
{
    return QvFileExists(path.toSysStr());
}
inline bool QvDirExists(const TQvPath& path)
{
    return QvDirExists(path.toSysStr());
}
inline bool QvFileDirExists(const TQvPath& path, bool* isFolder)
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
inline bool QvCreateDirectory(const TQvPath& path)
{
    return QvCreateDirectory(path.toSysStr());
}
inline bool QvForceDirectories(const TQvPath& path)
{
    return QvForceDirectories(path.toSysStr());
}
inline bool QvDeleteFile(const TQvPath& path)
{
    return QvDeleteFile(path.toSysStr());
}
inline bool QvRemoveDirectory(const TQvPath& path)
{
    return QvRemoveDirectory(path.toSysStr());
}
inline bool QvRemoveDirectoryEx(const TQvPath& path, bool recursive, bool force,
                                std::string* errorText)
{
    return QvRemoveDirectoryEx(path.toSysStr(), recursive, force, errorText);
}
inline bool QvCopyFile(const TQvPath& from, const TQvPath& to, bool failIfExists)
{
    return QvCopyFile(from.toSysStr(), to.toSysStr(), failIfExists);
}
inline std::vector<std::string> QvFindFiles(const TQvPath& folder, const std::string& mask,
                                            bool withFolders, bool recursive,
                                            TQvProgressHandler* progress = nullptr)
{
    return QvFindFiles(folder.toSysStr(), mask, withFolders, recursive, progress);
}
