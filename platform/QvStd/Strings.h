/// @file
/// Byte strings: upper-casing for comparisons, splitting, formatting.
///
/// Thread-safety: pure functions, callable from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QvStd/Export.h"

/// One byte upper-cased: 'a' to 'z' change, every other byte stays as it is.
constexpr char QvToUpper(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

/// `text` with 'a' to 'z' upper-cased byte by byte. Bytes of 0x80 and above stay, so the length
/// never changes and UTF-8 is never broken. This is the comparison form of ids and names
/// everywhere.
QVSTD_API std::string toupper_locale(std::string_view text);

/// `text` with 'A' to 'Z' lower-cased byte by byte.
QVSTD_API std::string tolower_locale(std::string_view text);

/// Appends the parts of `text` between separators to `parts`. Empty parts in the middle are kept;
/// an empty last part is kept only with `keepLastEmpty` (so an empty text with false appends
/// nothing).
QVSTD_API void append_parse_strings(std::vector<std::string>& parts, std::string_view text,
                                    char separator, bool keepLastEmpty);

/// UTF-8 of a wide string; code points that have no UTF-8 form become U+FFFD.
QVSTD_API std::string QvWCharToChar(std::wstring_view text);

/// `text` without white space (blank, tab, CR, LF, VT, FF) at both ends; a view into `text`.
QVSTD_API std::string_view QvTrim(std::string_view text);

/// The start of `text`, of at most `maxBytes` bytes, which ends between two characters of UTF-8.
QVSTD_API std::string_view QvCutUtf8(std::string_view text, std::size_t maxBytes);

/// Whether the whole of `text` matches `mask`: "*" matches any characters, "?" one of UTF-8,
/// everything else itself, letter case included.
QVSTD_API bool QvMatchesWildcards(std::string_view text, std::string_view mask);

namespace Korvadel
{
/// printf into a string of whatever length is needed.
QVSTD_API std::string ssprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// As ssprintf with a format that is only known at run time (a translated text): the one "%s" in it
/// is replaced by `argument`, "%%" by "%", anything else stays as it is. A format without "%s" gets
/// the argument appended after a blank, so that it is never lost.
QVSTD_API std::string format_text(const std::string& format, const std::string& argument);
} // namespace Korvadel
