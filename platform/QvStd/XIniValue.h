// How values of X-Ini keys become C++ values and back.
//
// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"

/// False when `text` is no such value (numbers: decimal, the whole text, in range); `value` is left
/// alone then.
QVSTD_API bool QvXIniParseValue(const std::string& text, std::string& value);
QVSTD_API bool QvXIniParseValue(const std::string& text, TQvPath& value);
QVSTD_API bool QvXIniParseValue(const std::string& text, std::int32_t& value);
QVSTD_API bool QvXIniParseValue(const std::string& text, std::uint32_t& value);
QVSTD_API bool QvXIniParseValue(const std::string& text, std::int64_t& value);
QVSTD_API bool QvXIniParseValue(const std::string& text, std::uint64_t& value);

inline std::string QvXIniFormatValue(const std::string& value)
{
    return value;
}
inline std::string QvXIniFormatValue(const TQvPath& value)
{
    return value.toSysStr();
}
inline std::string QvXIniFormatValue(std::int32_t value)
{
    return std::to_string(value);
}
inline std::string QvXIniFormatValue(std::uint32_t value)
{
    return std::to_string(value);
}
inline std::string QvXIniFormatValue(std::int64_t value)
{
    return std::to_string(value);
}
inline std::string QvXIniFormatValue(std::uint64_t value)
{
    return std::to_string(value);
}
