#include "IsoTime.h"

#include <array>
#include <cstdint>
#include <ctime>

std::string IsoTime(TQvDateTime time)
{
    if (time == TQvDateTime())
        return {};
    const std::int64_t milliseconds = time.Milliseconds();
    const std::time_t seconds = milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
    std::tm calendar = {};
    std::array<char, 40> text{};
    if (localtime_r(&seconds, &calendar) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &calendar) == 0)
        return {};
    std::string result(text.data());
    return result.insert(result.size() - 2, ":");
}

std::string IsoTimeOrDash(TQvDateTime time)
{
    const std::string text = IsoTime(time);
    return text.empty() ? "-" : text;
}

nlohmann::ordered_json IsoTimeValue(TQvDateTime time)
{
    const std::string text = IsoTime(time);
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}
