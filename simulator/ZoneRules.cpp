#include "ZoneRules.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include <date/tz.h>

namespace chronal::sim {

namespace {

Period zonePeriodAt(const Zone& zone, Utc moment)
{
    const date::sys_info info = zone.get_info(moment);
    return {info.begin, info.end, info.offset, info.save != std::chrono::minutes::zero()};
}

} // namespace

const Zone* findZone(const std::string& name)
{
    try {
        const Zone* const zone = date::locate_zone(name);
        // The zone's file is read at first use only, and that may fail, too.
        zonePeriodAt(*zone, Utc());
        return zone;
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

void DeviationRule::setCurrent(Span deviation, Utc now)
{
    std::vector<Change> updated = {{Utc::min(), deviation, std::nullopt}};
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(updated),
                 [&](const Change& change) { return change.at > now; });
    changes = std::move(updated);
}

void DeviationRule::announce(const std::vector<Change>& next, std::optional<Utc> now)
{
    std::vector<Change> updated;
    std::optional<bool> daylightSaving; // that a change before the last one has left in force
    for (const Change& change : changes) {
        if (!now || change.at > *now || change.at >= next.front().at)
            break;
        daylightSaving = change.daylightSaving ? change.daylightSaving : daylightSaving;
        updated = {{change.at, change.deviation, daylightSaving}};
    }
    updated.insert(updated.end(), next.begin(), next.end());
    changes = std::move(updated);
}

Period DeviationRule::periodAt(Utc moment) const
{
    Period period = zonePeriodAt(*zone, moment);
    for (const Change& change : changes) {
        if (moment < change.at) {
            period.end = std::min(period.end, change.at);
            break;
        }
        period.begin = std::max(period.begin, change.at);
        period.deviation = change.deviation;
        period.daylightSaving = change.daylightSaving.value_or(period.daylightSaving);
    }
    return period;
}

std::optional<Period> DeviationRule::nextChange(Utc moment) const
{
    const Period current = periodAt(moment);
    Period next = current;
    while (next.end < calendarEnd) {
        next = periodAt(next.end);
        if (next.deviation != current.deviation)
            return next;
    }
    return std::nullopt;
}

std::optional<Utc> DeviationRule::toUtc(Local local) const
{
    const Utc asIfUtc(local.time_since_epoch());
    const Utc latest = asIfUtc + largestDeviation;
    Period period = periodAt(asIfUtc - largestDeviation);
    for (;;) {
        const Utc utc = asIfUtc - period.deviation;
        if (period.begin <= utc && utc < period.end)
            return utc;
        if (period.end > latest)
            return std::nullopt;
        period = periodAt(period.end);
    }
}

} // namespace chronal::sim
