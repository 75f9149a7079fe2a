#include "QvStd/XIniValue.h"

#include <charconv>

namespace
{
template <class T>
bool ParseNumber(const std::string& text, T& value)
{
    T number{};
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end)
        return false;
    // Only now: a value that is no number leaves the default of the caller.
    value = number;
    return true;
}
} // namespace

bool QvXIniParseValue(const std::string& text, std::string& value)
{
    value = text;
    return true;
}

bool QvXIniParseValue(const std::string& text, TQvPath& value)
{
    value = TQvPath(text);
    return true;
}

bool QvXIniParseValue(const std::string& text, std::int32_t& value)
{
    return ParseNumber(text, value);
}

bool QvXIniParseValue(const std::string& text, std::uint32_t& value)
{
    return ParseNumber(text, value);
}

bool QvXIniParseValue(const std::string& text, std::int64_t& value)
{
    return ParseNumber(text, value);
}

bool QvXIniParseValue(const std::string& text, std::uint64_t& value)
{
    return ParseNumber(text, value);
}
