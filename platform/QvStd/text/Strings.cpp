#include "QvStd/Strings.h"

#include <cstdarg>
#include <cstdio>

namespace
{
/// Whether a byte of UTF-8 continues the character of the byte before it.
bool IsContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// The length of the character that `text` begins with.
std::size_t CharacterLength(std::string_view text)
{
    std::size_t length = 1;
    while (length < text.size() && IsContinuation(text[length]))
        ++length;
    return length;
}
} // namespace

/// Not std::toupper: its result depends on the process's locale, and it may break UTF-8.
std::string toupper_locale(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = QvToUpper(c);
    return result;
}

std::string tolower_locale(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    return result;
}

void append_parse_strings(std::vector<std::string>& parts, std::string_view text, char separator,
                          bool keepLastEmpty)
{
    for (;;) {
        const std::size_t end = text.find(separator);
        if (end == std::string_view::npos)
            break;
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    if (!text.empty() || keepLastEmpty)
        parts.emplace_back(text);
}

std::string QvWCharToChar(std::wstring_view text)
{
    std::string result;
    result.reserve(text.size());
    for (const wchar_t wide : text) {
        char32_t code = static_cast<char32_t>(wide);
        // No character: the replacement character keeps the result valid UTF-8.
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            code = 0xFFFD;
        if (code < 0x80) {
            result += static_cast<char>(code);
            continue;
        }
        if (code < 0x800) {
            result += static_cast<char>(0xC0 | (code >> 6));
        } else {
            if (code < 0x10000) {
                result += static_cast<char>(0xE0 | (code >> 12));
            } else {
                result += static_cast<char>(0xF0 | (code >> 18));
                result += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            }
            result += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        }
        result += static_cast<char>(0x80 | (code & 0x3F));
    }
    return result;
}

std::string_view QvTrim(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return text.substr(0, 0);
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view QvCutUtf8(std::string_view text, std::size_t maxBytes)
{
    if (text.size() <= maxBytes)
        return text;
    while (maxBytes > 0 && IsContinuation(text[maxBytes]))
        --maxBytes;
    return text.substr(0, maxBytes);
}

/// Only the last star is ever extended, so that the time is at most the product of both lengths,
/// whatever the mask.
bool QvMatchesWildcards(std::string_view name, std::string_view mask)
{
    std::size_t atName = 0;
    std::size_t atMask = 0;
    std::size_t retryName = 0;
    std::size_t afterStar = std::string_view::npos;
    while (atName < name.size()) {
        if (atMask < mask.size() && mask[atMask] == '*') {
            afterStar = ++atMask;
            retryName = atName;
        } else if (atMask < mask.size() && mask[atMask] == '?') {
            ++atMask;
            atName += CharacterLength(name.substr(atName));
        } else if (atMask < mask.size() && mask[atMask] == name[atName]) {
            ++atMask;
            ++atName;
        } else if (afterStar != std::string_view::npos) {
            // The last star takes one character more; earlier ones never need to.
            atMask = afterStar;
            retryName += CharacterLength(name.substr(retryName));
            atName = retryName;
        } else {
            return false;
        }
    }
    return mask.find_first_not_of('*', atMask) == std::string_view::npos;
}

namespace Korvadel
{
std::string ssprintf(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    // Twice: the first call only measures, and a va_list can be used once.
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string result;
    if (length > 0) {
        result.resize(static_cast<std::size_t>(length));
        std::vsnprintf(result.data(), result.size() + 1, format, again);
    }
    va_end(again);
    return result;
}

std::string format_text(const std::string& format, const std::string& argument)
{
    std::string result;
    bool used = false;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size() &&
            (format[i + 1] == '%' || (format[i + 1] == 's' && !used))) {
            ++i;
            if (format[i] == 's') {
                result += argument;
                used = true;
            } else {
                result += '%';
            }
        } else {
            result += format[i];
        }
    }
    // A translation that forgot the place must not hide which folder or file is meant.
    return used ? result : result + " " + argument;
}
} // namespace Korvadel
