/// @file
/// How values of X-Ini keys become C++ values and back: texts as they are, paths as TQvPath takes
/// them, whole numbers in decimal with an optional "-".
///
/// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Path.h"

/// False when `text` is no such value (numbers: decimal, the whole text, in range); `value` is
/// unchanged then.
QVSTD_API bool QvXIniParseValue(const std::string& text, std::string& value);
/// @overload
QVSTD_API bool QvXIniParseValue(const std::string& text, TQvPath& value);
/// @overload
QVSTD_API bool QvXIniParseValue(const std::string& text, std::int32_t& value);
/// @overload
QVSTD_API bool QvXIniParseValue(const std::string& text, std::uint32_t& value);
/// @overload
QVSTD_API bool QvXIniParseValue(const std::string& text, std::int64_t& value);
/// @overload
QVSTD_API bool QvXIniParseValue(const std::string& text, std::uint64_t& value);

/// The text of a value, which the parsing of the same type reads back; quoting is the writer's.
inline std::string QvXIniFormatValue(const std::string& value)
{
    return value;
}
/// @overload
inline std::string QvXIniFormatValue(const TQvPath& value)
{
    return value.toSysStr();
}
/// @overload
inline std::string QvXIniFormatValue(std::int32_t value)
{
    return std::to_string(value);
}
/// @overload
inline std::string QvXIniFormatValue(std::uint32_t value)
{
    return std::to_string(value);
}
/// @overload
inline std::string QvXIniFormatValue(std::int64_t value)
{
    return std::to_string(value);
}
/// @overload
inline std::string QvXIniFormatValue(std::uint64_t value)
{
    return std::to_string(value);
}
