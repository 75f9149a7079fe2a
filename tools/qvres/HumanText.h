// Sizes and times as people read them.
#pragma once

#include <string>

/// "17 B", "12.3 GiB".
std::string HumanSize(double bytes);
/// "0:07", "1:02:03".
std::string HumanDuration(double seconds);
