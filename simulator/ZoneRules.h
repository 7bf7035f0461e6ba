#ifndef CHRONAL_SIM_ZONE_RULES_H
#define CHRONAL_SIM_ZONE_RULES_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <date/date.h>

namespace date {
class time_zone;
}

/// How local time deviates from UTC: by the time-zone database, and by what has been announced.
///
/// The database lists transitions up to 2037; the last one stands for all later times.
namespace chronal::sim {

typedef std::chrono::microseconds Span;
typedef date::sys_time<Span> Utc;
typedef date::local_time<Span> Local;
typedef date::time_zone Zone;

/// The end of the calendar, 10000-01-01 00:00:00: every time that is dealt with lies before it and
/// not before 1970.
inline constexpr Utc calendarEnd =
    date::sys_days(date::year(9999) / date::December / 31) + date::days(1);

/// No deviation is larger, in either direction.
inline constexpr Span largestDeviation = std::chrono::hours(24);

/// Null for a zone that the system's database does not have. The zone lives for ever.
const Zone* findZone(const std::string& name);

/// A time during which neither the deviation nor the daylight-saving state changes.
struct Period
{
    Utc begin;
    Utc end; ///< not part of the period; after calendarEnd for one that does not end
    Span deviation;
    bool daylightSaving; ///< as the database marks it, like the C library's tm_isdst
};

/// An announced change of the deviation. Without `daylightSaving` it leaves that state alone.
struct Change
{
    Utc at;
    Span deviation;
    std::optional<bool> daylightSaving;
};

/// The deviation as a function of time: a zone's, until announced changes take over.
class DeviationRule
{
public:
    explicit DeviationRule(const Zone& baseZone) : zone(&baseZone) {}

    /// The deviation is this one, also at earlier times, until the first change after `now`.
    void setCurrent(Span deviation, Utc now);

    /// Replaces the pending changes by `next`, in order of time. What is in force at `now` stays,
    /// since the last change until then; the changes before that one are forgotten, and times
    /// before it have the zone's deviation again. Without `now` nothing is in force.
    void announce(const std::vector<Change>& next, std::optional<Utc> now);

    Period periodAt(Utc moment) const;

    /// The first period after `moment` with another deviation than at `moment`.
    std::optional<Period> nextChange(Utc moment) const;

    /// The earliest UTC that has this local time; nothing when a change skips it.
    std::optional<Utc> toUtc(Local local) const;

private:
    const Zone* zone;
    std::vector<Change> changes; ///< in order of time; never more than three
};

} // namespace chronal::sim

#endif
