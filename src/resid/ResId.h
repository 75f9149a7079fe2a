/// @file
/// Resource ids: splitting, joining, comparing and checking.
///
/// An id is a byte string whose only separator is "/". Absolute ids begin with "/", folder ids end
/// with "/", everything after the last "/" is the name. Ids are compared through their normal form
/// (upper case); the case as written is kept.
///
/// Thread-safety: pure functions, callable from any thread. None throws except BreakIdIntoParts; a
/// malformed id gives a malformed result.
#pragma once

#include <string>
#include <vector>

#include "QvServicesExport.h"
#include "QvStd/URL.h"

/// `id` with a "/" at its end; an empty id stays empty.
QVSERVICES_API std::string QvIncludeTrailingSlash(const std::string& id);
/// `id` without the "/" at its end, but never shorter than one character ("//" gives "/").
QVSERVICES_API std::string QvExcludeTrailingSlash(const std::string& id);

/// The form in which ids are compared: 'a' to 'z' upper-cased.
QVSERVICES_API std::string QvNormalizeResId(const std::string& id);
/// The same for the UTF-8 form of the id.
QVSERVICES_API std::string QvNormalizeResId(const std::wstring& id);

/// The part up to and including the last "/"; "" when there is none.
QVSERVICES_API std::string QvExtractResPath(const std::string& id);
/// The part after the last "/"; the whole id when there is none.
QVSERVICES_API std::string QvExtractResName(const std::string& id);
/// As QvExtractResName: the name, extension included.
QVSERVICES_API std::string QvExtractResNameExt(const std::string& id);
/// The name without its extension, and the extension with its leading "." ("" when there is none).
QVSERVICES_API std::string QvExtractResNameOnly(const std::string& id);
/// See QvExtractResNameOnly.
QVSERVICES_API std::string QvExtractResExt(const std::string& id);
/// Path and name without the extension: "/A/b.txt" gives "/A/b".
QVSERVICES_API std::string QvExtractResPathNameOnly(const std::string& id);

/// Whether `id` begins with a "/".
QVSERVICES_API bool QvIsAbsoluteResId(const std::string& id);
/// Whether `id` does not begin with a "/"; the empty id is relative.
QVSERVICES_API bool QvIsRelativeResId(const std::string& id);
/// Whether `id` is relative, not empty, and does not begin with "../".
QVSERVICES_API bool QvIsDeeperRelativeResId(const std::string& id);

/// `id` with "./" and "segment/../" removed. A "../" that has nothing to remove stays; the last
/// segment, the one without a "/" after it, is never resolved ("/A/B/.." stays).
QVSERVICES_API std::string QvCompactResId(const std::string& id);
/// `rel` relative to the folder `base`, compacted; an absolute `rel` ignores `base`.
QVSERVICES_API std::string QvMergeResId(const std::string& base, const std::string& rel);
/// `id` relative to the folder `base`, with as many "../" as needed; compared without regard to
/// case. When only one of them is absolute, the compacted `id`.
QVSERVICES_API std::string GetRelativeResId(const std::string& id, const std::string& base);

/// The segments of an absolute id. Throws a TQvMessage that names the id when it is not absolute.
QVSERVICES_API std::vector<std::string> BreakIdIntoParts(const std::string& id);

/// The CRegExp expression for a search mask: "*" and "?" are wildcards, "." is literal, all else
/// passes through as it is. It is upper-cased and matches whole upper-cased names.
QVSERVICES_API std::string QvResSearchMaskToRegExpPattern(const std::string& mask);

/// The URL of a resource: "qvres:" and the id.
QVSERVICES_API TQvURL ResId2QvURL(const std::string& id);

/// Whether a whole id is valid: empty, or absolute, without a byte below 0x20, without \ " < > | :
/// (and * ? when wildcards are forbidden) and without "//".
bool QvIsValidResId(const std::string& id, bool forbidWildcards);
/// Whether one name is valid: not empty, and without / \ " < > | : (and * ? when wildcards are
/// forbidden). Control characters are allowed here.
bool QvIsValidResNamePart(const std::string& name, bool forbidWildcards);
