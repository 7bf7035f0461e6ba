#include "ZoneRules.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include <absl/time/time.h>
#include <endian.h>

namespace chronal::sim {

namespace {

using namespace std::string_view_literals;

/// The calendar repeats after 400 years, weekdays included, and with it each rule about the days on
/// which daylight saving begins and ends.
constexpr Span cycle = std::chrono::hours(24) * 146097;

/// 2200-01-01. The database lists changes one by one for this century at most; later ones follow
/// from a rule.
constexpr Utc listEnd = Utc(std::chrono::seconds(7258118400));

/// The largest zone file has 4 KiB, so a larger file than this is refused.
constexpr std::size_t fileLimit = 65536;

/// Abseil allocates memory for the six counts in a header before it knows the file's size.
bool areCountsPlausible(const std::string& file)
{
    constexpr std::size_t header = 44, firstCount = 20;
    for (std::size_t at = 0; (at = file.find("TZif", at)) != std::string::npos; at += 4)
        for (std::size_t count = firstCount; at + header <= file.size() && count < header;
             count += sizeof(std::uint32_t)) {
            std::uint32_t value = 0;
            std::memcpy(&value, &file[at + count], sizeof(value));
            if (be32toh(value) > file.size())
                return false;
        }
    return true;
}

/// Abseil must not be asked for any other name: it caches each name forever, known or not, and
/// accepts some names that are not in the database.
bool isInDatabase(const std::string& name)
{
    const std::string framed = '/' + name + '/';
    for (const std::string_view foreign : {"//"sv, "/./"sv, "/../"sv, "/localtime/"sv, "\0"sv})
        if (framed.find(foreign) != std::string::npos)
            return false;
    const char* const chosen = std::getenv("TZDIR");
    const std::string path = (chosen && *chosen ? chosen : "/usr/share/zoneinfo") + ('/' + name);
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored))
        return false;
    std::string content(fileLimit, '\0');
    std::ifstream file(path, std::ios::binary);
    if (!file && errno != EACCES)
        throw std::bad_alloc(); // also if there are too few descriptors
    file.read(content.data(), fileLimit);
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content.size() < fileLimit && content.compare(0, 4, "TZif") == 0 &&
           areCountsPlausible(content);
}

/// Abseil caches a zone that it could not load as unknown, or even as UTC, also if it only lacked
/// memory or descriptors. After a failure, "./" is put before names, so that it reads the files.
bool load(const std::string& name, absl::TimeZone& zone)
{
    static std::atomic<std::size_t> failures{0};
    std::string detour;
    for (std::size_t i = 0; i < failures; ++i)
        detour += "./";
    errno = 0;
    try {
        const bool loaded = absl::LoadTimeZone(detour + name, &zone);
        if (!loaded && errno != 0) // could not be opened, or else it is not a zone
            throw std::bad_alloc();
        return loaded;
    } catch (const std::exception&) {
        ++failures;
        throw;
    }
}

absl::Time toAbsl(Utc moment) { return absl::FromUnixMicros(moment.time_since_epoch().count()); }

/// Returns all periods that the database lists, followed by 400 years if it closes with a rule.
std::vector<Period> periodsOf(const absl::TimeZone& zone)
{
    std::vector<Period> periods;
    absl::TimeZone::CivilTransition transition;
    Utc last, next = Utc::min();
    do {
        last = next;
        const absl::TimeZone::CivilInfo info = zone.At(toAbsl(last));
        const Period period = {last, Utc::max(), std::chrono::seconds(info.offset), info.is_dst};
        // A transition may change only the abbreviation.
        if (periods.empty() || period.deviation != periods.back().deviation ||
            period.daylightSaving != periods.back().daylightSaving) {
            if (!periods.empty())
                periods.back().end = last;
            periods.push_back(period);
        }
        if (zone.NextTransition(toAbsl(last), &transition))
            next = Utc(Span(absl::ToUnixMicros(zone.At(transition.to).trans)));
    } while (next > last && next < calendarEnd);
    return periods;
}

} // namespace

Zone::Zone(std::string name, std::vector<Period> periods)
    : name_(std::move(name)), periods_(std::move(periods))
{
}

Period Zone::periodAt(Utc moment) const
{
    const Utc last = periods_.back().begin;
    const bool repeats = last > listEnd && moment >= last;
    const Span shift = repeats ? cycle * ((moment - last) / cycle + 1) : Span::zero();
    const auto next =
        std::upper_bound(periods_.begin(), periods_.end(), moment - shift,
                         [](Utc wanted, const Period& period) { return wanted < period.begin; });
    Period period = *std::prev(next);
    period.begin += shift;
    period.end += shift;
    return period;
}

std::shared_ptr<const Zone> findZone(const std::string& name)
{
    absl::TimeZone zone;
    if (name != "UTC" && (!isInDatabase(name) || !load(name, zone)))
        return nullptr;
    return std::make_shared<Zone>(name, periodsOf(zone));
}

void DeviationRule::setCurrent(Span deviation, Utc now)
{
    std::vector<Change> updated = {{Utc::min(), deviation, std::nullopt}};
    std::copy_if(changes_.begin(), changes_.end(), std::back_inserter(updated),
                 [&](const Change& change) { return change.at > now; });
    changes_ = std::move(updated);
}

void DeviationRule::announce(const std::vector<Change>& next, std::optional<Utc> now)
{
    std::vector<Change> updated;
    std::optional<bool> daylightSaving; // the state that these changes leave in force
    for (const Change& change : changes_) {
        if (!now || change.at > *now || change.at >= next.front().at)
            break;
        daylightSaving = change.daylightSaving ? change.daylightSaving : daylightSaving;
        updated = {{change.at, change.deviation, daylightSaving}};
    }
    updated.insert(updated.end(), next.begin(), next.end());
    changes_ = std::move(updated);
}

Period DeviationRule::periodAt(Utc moment) const
{
    Period period = zone_->periodAt(moment);
    for (const Change& change : changes_) {
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
    // Once the last announced change holds, the zone's changes no longer count.
    while (next.end < calendarEnd && (changes_.empty() || next.begin < changes_.back().at)) {
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
