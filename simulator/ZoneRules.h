#ifndef CHRONAL_SIM_ZONE_RULES_H
#define CHRONAL_SIM_ZONE_RULES_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// How local time deviates from UTC: by the time-zone database, and by what has been announced.
namespace chronal::sim {

using Span = std::chrono::microseconds;

/// Makes local times a type of their own.
struct LocalClock
{
};

using Utc = std::chrono::time_point<std::chrono::system_clock, Span>;
using Local = std::chrono::time_point<LocalClock, Span>;

/// The end of the calendar, 10000-01-01 00:00:00: every time that is dealt with lies before it and
/// not before 1970.
inline constexpr Utc calendarEnd = Utc(std::chrono::seconds(253402300800));

/// The time of the calendar that a clock shows: past its end it starts again at 1970, and a time
/// before 1970 counts backwards from that end. So a clock always runs, and always shows a time that
/// can be set.
constexpr Utc wrapped(Utc moment)
{
    constexpr Span length = calendarEnd.time_since_epoch();
    const Span rest = moment.time_since_epoch() % length;
    return Utc(rest < Span::zero() ? rest + length : rest);
}

/// No deviation is larger, in either direction.
inline constexpr Span largestDeviation = std::chrono::hours(24);

/// A time during which neither the deviation nor the daylight-saving state changes.
struct Period
{
    Utc begin;
    Utc end; ///< not part of the period; after calendarEnd for one that does not end
    Span deviation;
    bool daylightSaving; ///< as the database marks it, like the C library's tm_isdst
};

/// A time zone of the system's database.
class Zone
{
public:
    /// `periods` follow one another without a gap; the first begins with the earliest Utc.
    Zone(std::string name, std::vector<Period> periods);

    const std::string& name() const { return name_; }
    Period periodAt(Utc moment) const;

private:
    const std::string name_;
    const std::vector<Period> periods_;
};

/// Null for a zone that the system's database does not have. The database is the directory $TZDIR
/// or /usr/share/zoneinfo; a zone is a file in it that can be read as one, and its name is the path
/// below that directory. Files that count leap seconds are not zones, and neither is "localtime",
/// the machine's own. "UTC" needs no database.
std::shared_ptr<const Zone> findZone(const std::string& name);

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
    explicit DeviationRule(std::shared_ptr<const Zone> zone) : zone_(std::move(zone)) {}

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
    std::shared_ptr<const Zone> zone_;
    std::vector<Change> changes_; ///< in order of time; never more than three
};

} // namespace chronal::sim

#endif
