// JSON for output.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// One line. File names that are no UTF-8 are shown with replacement characters: JSON has no other
/// way.
inline std::string ToJsonText(const nlohmann::ordered_json& value)
{
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
