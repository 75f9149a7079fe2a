#include "QvStd/xini/XIniFormat.h"

#include <algorithm>
#include <cassert>
#include <charconv>

namespace
{
constexpr std::string_view kBlanks = " \t";
constexpr char kHexDigits[] = "0123456789ABCDEF";

bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool HasByteBelowBlank(const std::string& name)
{
    return std::any_of(name.begin(), name.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

/// Only where the plain form would be read as another value: blanks at the ends, a double quote in
/// front, and bytes that would end the line or not be seen.
bool NeedsQuotes(const std::string& value)
{
    return !value.empty() && (value.front() == '"' || XIniTrim(value).size() != value.size() ||
                              std::any_of(value.begin(), value.end(), IsControl));
}

void AppendEscaped(char c, std::string* text)
{
    switch (c) {
    case '\\':
    case '"':
        *text += '\\';
        *text += c;
        return;
    case '\n':
        *text += "\\n";
        return;
    case '\r':
        *text += "\\r";
        return;
    case '\t':
        *text += "\\t";
        return;
    default:
        break;
    }
    if (!IsControl(c)) {
        *text += c;
        return;
    }
    *text += "\\x";
    *text += kHexDigits[static_cast<unsigned char>(c) >> 4];
    *text += kHexDigits[static_cast<unsigned char>(c) & 0xF];
}

/// Takes the escape whose letter is first in `rest`; false when there is none.
bool TakeEscape(std::string_view* rest, std::string* value)
{
    constexpr std::string_view kLetters = "\\\"nrt";
    constexpr std::string_view kMeanings = "\\\"\n\r\t";
    if (rest->empty())
        return false;
    const std::size_t letter = kLetters.find(rest->front());
    if (letter != std::string_view::npos) {
        *value += kMeanings[letter];
        rest->remove_prefix(1);
        return true;
    }
    if (rest->size() < 3 || rest->front() != 'x')
        return false;
    unsigned char byte = 0;
    // Exactly two digits, so that a digit after them belongs to the text.
    const char* const end = rest->data() + 3;
    if (std::from_chars(rest->data() + 1, end, byte, 16).ptr != end)
        return false;
    *value += static_cast<char>(byte);
    rest->remove_prefix(3);
    return true;
}
} // namespace

std::string_view XIniTrim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// A CR without a LF counts, too: the last line of a file that was cut between them.
std::size_t XIniLineEndSize(std::string_view line)
{
    std::size_t size = !line.empty() && line.back() == '\n' ? 1 : 0;
    if (line.size() > size && line[line.size() - size - 1] == '\r')
        ++size;
    return size;
}

std::string XIniKeyNameFault(const std::string& name)
{
    if (name.empty())
        return "a key has no name.";
    // All of these would be read back as something else than a key of this name.
    if (name.front() != ';' && name.front() != '[' && name.find('=') == std::string::npos &&
        XIniTrim(name).size() == name.size() && !HasByteBelowBlank(name))
        return {};
    return "\"" + name + "\" cannot be the name of a key.";
}

std::string XIniSectionNameFault(const std::string& name)
{
    if (name.empty())
        return "a section has no name.";
    if (name.front() != '/' && name.find_first_of("[]") == std::string::npos &&
        !HasByteBelowBlank(name))
        return {};
    return "\"" + name + "\" cannot be the name of a section.";
}

std::string XIniQuote(const std::string& value)
{
    if (!NeedsQuotes(value))
        return value;
    std::string text = "\"";
    for (const char c : value)
        AppendEscaped(c, &text);
    text += '"';
    return text;
}

/// A text without a double quote in front is the value as it is: backslashes in paths need no
/// escape.
const char* XIniUnquote(std::string_view text, std::string* value)
{
    if (text.empty() || text.front() != '"') {
        value->assign(text);
        return nullptr;
    }
    value->clear();
    text.remove_prefix(1);
    while (!text.empty()) {
        const std::size_t plain = text.find_first_of("\\\"");
        value->append(text.substr(0, plain));
        if (plain == std::string_view::npos)
            break;
        const char stop = text[plain];
        text.remove_prefix(plain + 1);
        if (stop == '"')
            return text.empty() ? nullptr : "something follows the closing quote of a value.";
        if (!TakeEscape(&text, value))
            return "a value has a bad escape.";
    }
    return "a value has no closing quote.";
}

void XIniReplaceValue(TQvXIniEntry& key, const std::string& value)
{
    key.Value = value;
    if (key.Raw.empty())
        return;                                     // it is formatted from the value anyway
    assert(key.Raw.find('=') != std::string::npos); // else the name would be overwritten
    const std::size_t end = key.Raw.size() - XIniLineEndSize(key.Raw);
    // The name, the blanks around the "=" and the line end stay as they are.
    const std::size_t afterName = key.Raw.find('=') + 1;
    const std::size_t start = std::min(key.Raw.find_first_not_of(kBlanks, afterName), end);
    key.Raw.replace(start, end - start, XIniQuote(value));
}
