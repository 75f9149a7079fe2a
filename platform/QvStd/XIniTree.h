/// @file
/// X-Ini documents as trees that keep comments, order and every entry that was not changed.
///
/// The format: UTF-8 (other bytes are carried as they are), one entry a line, LF written, CR LF
/// accepted, an optional byte order mark skipped.
///
///     ; a comment
///     remote=0
///     [mount]
///       node=/Data
///       path="/srv/with trailing space "
///     [/mount]
///
/// Sections nest and may repeat; one is closed by its own name or by "[/]". A value runs to the end
/// of the line without the blanks around it; in double quotes a backslash precedes another one, a
/// double quote, n, r, t or xHH. Anything else (a line without "=", an empty name, a section left
/// open or closed twice, a byte 0, a bad escape, more than 64 levels) is a parse error that names
/// the line. Names are compared byte for byte.
///
/// Thread-safety: one tree belongs to one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"

/// One entry of a section: a key, a section, or a line that is neither (a comment or a blank line).
struct TQvXIniEntry
{
    /// What an entry is.
    enum class Kind
    {
        Key,     ///< `name=value`
        Section, ///< `[name]` to `[/name]`
        Other    ///< a comment or a blank line
    };

    Kind Type = Kind::Other; ///< says which of the other fields count
    std::string Name;        ///< of a key or section
    std::string Value;       ///< of a key, unquoted
    std::string Raw;    ///< the line as it was read, with its line end; empty: formatted from the
                        ///< other fields. Of a section: its opening line
    std::string RawEnd; ///< of a section: its closing line
    std::vector<std::unique_ptr<TQvXIniEntry>> Children; ///< of a section
};

/// A whole document.
struct TQvXIniTree
{
    TQvXIniEntry Root;             ///< its Children are the top level
    bool HasByteOrderMark = false; ///< the document begins with one, and is written so
};

/// Parses a whole document. On a parse error returns an empty reference; `error` (may be null)
/// receives a sentence that names the line and what is wrong with it.
QVSTD_API var_a<TQvXIniTree*> QvParseXIniTree(const std::string& text, std::string* error);
/// The text of a document; unchanged lines are byte for byte as they were read.
QVSTD_API std::string QvFormatXIniTree(const TQvXIniTree& tree);

/// Reads a document from the stream's start. An empty reference when the stream is not open, cannot
/// be read or is malformed.
QVSTD_API var_a<TQvXIniTree*> ReadQvXIniTree(TQvStream* stream);
/// The same of a file; an empty reference when it is missing, too.
QVSTD_API var_a<TQvXIniTree*> ReadQvXIniTree(const TQvPath& path);

/// Writes the document at the stream's position, which moves to its end. False on a failed write.
QVSTD_API bool WriteQvXIniTree(TQvStream* stream, const TQvXIniTree& tree);
/// Replaces the file as a whole or not at all, synced. Throws a TQvMessage that names the file.
QVSTD_API void WriteQvXIniTreeE(const TQvPath& path, const TQvXIniTree& tree);
