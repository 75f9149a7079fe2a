// Times as the commands show them.
#pragma once

#include <string>

#include <QvStd/DateTime.h>

#include "Json.h"

/// ISO 8601 in local time with the offset to UTC; "" for no time.
std::string IsoTime(TQvDateTime time);
/// The same with "-" for no time, and for JSON with null.
std::string IsoTimeOrDash(TQvDateTime time);
nlohmann::ordered_json IsoTimeValue(TQvDateTime time);
