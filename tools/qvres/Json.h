// JSON for output.
//
// A text that is no UTF-8, such as some file names, has replacement characters in JSON. A second
// member of that name with "Hex" appended then has all its bytes, two digits each.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// One line.
inline std::string ToJsonText(const nlohmann::ordered_json& value)
{
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/// A string; for a text that is no UTF-8 an object with the members "value" and "valueHex".
nlohmann::ordered_json ValueOf(const std::string& text);

/// Adds the member `name`, and the one with "Hex" where the text needs it.
void PutText(nlohmann::ordered_json& record, const std::string& name, const std::string& text);

/// The text of such a member; "-" for null.
std::string TextOf(const nlohmann::ordered_json& record, const std::string& name);

/// A record that begins with the id.
nlohmann::ordered_json RecordOf(const std::string& id);
