#ifndef CHRONAL_SIM_ZONE_RULES_H
#define CHRONAL_SIM_ZONE_RULES_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The deviation of local time from UTC, by the time-zone database and by announced changes.
namespace chronal::sim {

using Span = std::chrono::microseconds;

/// Makes local times a type of their own.
struct LocalClock
{
};

using Utc = std::chrono::time_point<std::chrono::system_clock, Span>;
using Local = std::chrono::time_point<LocalClock, Span>;

/// The end of the calendar, 10000-01-01 00:00:00. The calendar begins with 1970 and contains every
/// time that can be set or shown.
inline constexpr Utc calendarEnd = Utc(std::chrono::seconds(253402300800));

/// Wraps a time into the calendar: past the end it starts again at 1970, and a time before 1970
/// counts back from the end. A clock therefore never stops, and always shows a time that can be
/// set.
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
    Utc end; ///< exclusive; after calendarEnd for a period that does not end
    Span deviation;
    bool daylightSaving; ///< as announced or marked in the database, like the C library's tm_isdst
};

/// A time zone of the system's database.
class Zone
{
public:
    /// `periods` must follow one another without a gap, and the first must begin at Utc::min().
    Zone(std::string name, std::vector<Period> periods);

    const std::string& name() const { return name_; }
    Period periodAt(Utc moment) const;

private:
    const std::string name_;
    const std::vector<Period> periods_;
};

/// Returns null for a zone that is not in the system's database. The database is the directory
/// $TZDIR or /usr/share/zoneinfo; a zone is a file in it that can be read as one, and its name is
/// the path below that directory. Files that count leap seconds are not zones, and neither is
/// "localtime", the machine's own. "UTC" needs no database.
std::shared_ptr<const Zone> findZone(const std::string& name);

/// An announced change of the deviation. Without `daylightSaving`, that state does not change.
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

    /// Sets the deviation, also for earlier times, until the first change after `now`.
    void setCurrent(Span deviation, Utc now);

    /// Replaces the pending changes by `next`, which is in order of time. The last change up to
    /// `now` stays in force until the first of `next`; earlier ones are dropped, so times before it
    /// have the zone's deviation again. Without `now`, no change is in force.
    void announce(const std::vector<Change>& next, std::optional<Utc> now);

    Period periodAt(Utc moment) const;

    /// The first period after `moment` with a different deviation.
    std::optional<Period> nextChange(Utc moment) const;

    /// The earliest UTC that has this local time, or nullopt if a change skips it.
    std::optional<Utc> toUtc(Local local) const;

private:
    std::shared_ptr<const Zone> zone_;
    std::vector<Change> changes_; ///< in order of time; never more than four
};

} // namespace chronal::sim

#endif
