#include "HumanText.h"

#include <algorithm>
#include <array>

#include <QvStd/Strings.h>

std::string HumanSize(double bytes)
{
    constexpr std::array<const char*, 7> kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    // Rounded, 1023.96 would be 1024.0.
    for (; bytes >= (unit == 0 ? 1024 : 1023.95) && unit + 1 < kUnits.size(); ++unit)
        bytes /= 1024;
    return Korvadel::ssprintf("%.*f %s", unit == 0 ? 0 : 1, bytes, kUnits[unit]);
}

std::string HumanDuration(double seconds)
{
    // An estimate after few bytes may be years: it would not fit the conversion below.
    constexpr double kLongest = 999 * 3600;
    const auto whole = static_cast<int>(std::clamp(seconds, 0.0, kLongest));
    return whole < 3600
               ? Korvadel::ssprintf("%d:%02d", whole / 60, whole % 60)
               : Korvadel::ssprintf("%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
}
