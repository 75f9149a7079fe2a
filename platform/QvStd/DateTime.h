/// @file
/// A point in time in milliseconds, as listings, attributes and labels have it.
///
/// Thread-safety: a plain value.
#pragma once

#include <cstdint>

#include <QDateTime>

/// Signed 64-bit milliseconds since 1970-01-01 UTC; 0 means "no time".
class TQvDateTime
{
public:
    /// "No time".
    constexpr TQvDateTime() = default;
    /// Milliseconds since 1970-01-01 UTC.
    explicit constexpr TQvDateTime(std::int64_t milliseconds) : m_milliseconds(milliseconds) {}

    /// An invalid QDateTime gives "no time".
    static TQvDateTime FromQDateTime(const QDateTime& time)
    {
        return TQvDateTime(time.isValid() ? time.toMSecsSinceEpoch() : 0);
    }

    /// Of seconds and nanoseconds (0 to 999999999) since 1970-01-01 UTC, as file systems have them.
    /// Rounds down to the millisecond, as Qt does.
    static constexpr TQvDateTime FromTimespec(std::int64_t seconds, std::int64_t nanoseconds)
    {
        return TQvDateTime(seconds * 1000 + nanoseconds / 1000000);
    }

    /// In local time, so that its date and time parts are the calendar of the user.
    QDateTime ToQDateTime() const { return QDateTime::fromMSecsSinceEpoch(m_milliseconds); }

    /// Since 1970-01-01 UTC; 0 means "no time".
    constexpr std::int64_t Milliseconds() const { return m_milliseconds; }

    /// Whether both are the same millisecond.
    friend constexpr bool operator==(TQvDateTime a, TQvDateTime b)
    {
        return a.m_milliseconds == b.m_milliseconds;
    }
    /// The opposite.
    friend constexpr bool operator!=(TQvDateTime a, TQvDateTime b)
    {
        return a.m_milliseconds != b.m_milliseconds;
    }
    /// Whether `a` is earlier; "no time" counts as 1970.
    friend constexpr bool operator<(TQvDateTime a, TQvDateTime b)
    {
        return a.m_milliseconds < b.m_milliseconds;
    }

private:
    std::int64_t m_milliseconds = 0;
};
