/// @file
/// Paths: a value type over UTF-8 text.
///
/// Both "\" and "/" are separators on the way in; "/" is the only one stored. A Linux file name
/// that contains a backslash can therefore not be written as a TQvPath: the file functions take the
/// raw system path as a std::string too (QvStd/Files.h).
///
/// Thread-safety: a plain value; the queries of the disk are single system calls.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "QvStd/DateTime.h"
#include "QvStd/Export.h"

/// A path, compared and stored with "/" as its only separator.
class QVSTD_API TQvPath
{
public:
    TQvPath() = default;
    /// Every "\\" of `text` becomes a "/"; nothing else changes.
    explicit TQvPath(std::string text);
    /// @overload
    explicit TQvPath(const char* text) : TQvPath(std::string(text)) {}

    /// Whether the text is empty.
    bool isPathEmpty() const { return m_text.empty(); }
    /// Not empty, no byte below 0x20, no component over 255 bytes, at most 4095 bytes in all.
    bool isPathValid() const;
    /// Whether it begins with a separator.
    bool isAbsolute() const { return !m_text.empty() && m_text.front() == '/'; }
    /// Without the separators it begins with.
    TQvPath stripAbs() const;
    /// With one trailing separator; an empty path stays empty.
    TQvPath addSlash() const;
    /// Without trailing separators, but never shorter than "/".
    TQvPath excludeSlash() const;
    /// Joins; the result is always inside this path: "." and ".." segments of `right` are resolved
    /// inside `right`, and a ".." that remains at its start is dropped, as at the root of a chroot.
    /// Doubled separators of `right` count as one, leading ones as none; a trailing one is kept. An
    /// empty left side gives `right` resolved in the same way, as a relative path.
    TQvPath operator/(const TQvPath& right) const;
    /// @overload
    TQvPath operator/(std::string_view right) const;

    /// The path in the system's own spelling.
    const std::string& toSysStr() const& { return m_text; }
    /// Moves the text out of a temporary path, without a copy.
    std::string toSysStr() && { return std::move(m_text); }

    /// The last component, without the separators before it ("" for a path that ends in one).
    std::string fileName() const;

    /// Whether a file or folder exists; false, too, when that cannot be found out (errno).
    bool exists() const;
    /// A folder; links are followed.
    bool isFolder() const;
    /// A file of any kind that is not a folder.
    bool isFile() const;
    /// Bytes; 0 when nothing is there.
    std::uint64_t fileSize() const;
    /// Last modification; "no time" when nothing is there.
    TQvDateTime updateTime() const;
    /// Birth time, or the status change time where the file system has none; as Qt answers it.
    TQvDateTime creationTime() const;

    /// Creates the folder, with `withParents` its missing parents too. True when it is there
    /// afterwards.
    bool makePath(bool withParents) const;
    /// Deletes the file; true also when there was none.
    bool rmFile() const;

    /// The home folder of the user: HOME when set and absolute, else that of the password file;
    /// empty when neither names one. Check for that: a path joined to an empty one is relative to
    /// the current folder.
    static TQvPath homeDir();

    /// The same text, separators of both kinds counting as one.
    friend bool operator==(const TQvPath& a, const TQvPath& b) { return a.m_text == b.m_text; }
    /// The opposite.
    friend bool operator!=(const TQvPath& a, const TQvPath& b) { return !(a == b); }

private:
    std::string m_text;
};

/// `folder / right` for a single system call, without an allocation for short paths.
class QVSTD_API TQvJoinedPath
{
public:
    /// Joins them as operator/ does: the result is inside `folder`.
    TQvJoinedPath(const TQvPath& folder, std::string_view right);
    TQvJoinedPath(const TQvJoinedPath&) = delete;
    TQvJoinedPath& operator=(const TQvJoinedPath&) = delete;

    /// Valid for as long as this object.
    const char* c_str() const { return m_text; }

private:
    const char* m_text;
    char m_short[256];
    std::string m_long;
};

/// The last component without its extension, and the extension with its leading "." ("" when there
/// is none). The extension starts at the last "." of the component unless that is its first
/// character:
/// ".hidden" and ".." have none, "a." has ".". Name and extension joined are always the component.
QVSTD_API std::string QvExtractFileNameOnly(const TQvPath& path);
/// See QvExtractFileNameOnly.
QVSTD_API std::string QvExtractFileExt(const TQvPath& path);

/// As TQvPath::addSlash.
QVSTD_API TQvPath QvIncludeTrailingBackslash(const TQvPath& path);
/// As TQvPath::excludeSlash.
QVSTD_API TQvPath QvExcludeTrailingBackslash(const TQvPath& path);
