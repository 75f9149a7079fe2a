#include "Json.h"

#include <algorithm>
#include <charconv>

namespace
{
std::string Hex(const std::string& bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 0xf]};
    }
    return text;
}

bool IsUtf8(const std::string& text)
{
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (std::all_of(text.begin(), text.end(), isAscii))
        return true;
    try {
        // The library has no other test for it; most texts are ASCII and do not come here.
        nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}
} // namespace

nlohmann::ordered_json ValueOf(const std::string& text)
{
    if (IsUtf8(text))
        return text;
    nlohmann::ordered_json record;
    PutText(record, "value", text);
    return record;
}

void PutText(nlohmann::ordered_json& record, const std::string& name, const std::string& text)
{
    // Output replaces what is no UTF-8 in it; the second member has the bytes.
    record[name] = text;
    if (!IsUtf8(text))
        record[name + "Hex"] = Hex(text);
}

std::string TextOf(const nlohmann::ordered_json& record, const std::string& name)
{
    const auto hex = record.find(name + "Hex");
    if (hex == record.end())
        return record[name].is_null() ? "-" : record[name].get<std::string>();
    const std::string digits = hex->get<std::string>();
    std::string text;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        unsigned char byte = 0;
        std::from_chars(&digits[i], &digits[i] + 2, byte, 16);
        text += static_cast<char>(byte);
    }
    return text;
}

nlohmann::ordered_json RecordOf(const std::string& id)
{
    nlohmann::ordered_json record;
    PutText(record, "id", id);
    return record;
}
