#include "IsoTime.h"

#include <QDateTime>

std::string IsoTime(TQvDateTime time)
{
    if (time == TQvDateTime())
        return {};
    const QDateTime local = time.ToQDateTime();
    // With the offset, which Qt leaves out of a plain local time: a time without it says nothing on
    // another machine.
    return local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODate).toStdString();
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
