// Prints how the simulator reads the time-zone database, for a comparison with other readers. Reads
// one question per line, "at|next|utc ZONE SECONDS": the period at a UTC, the first one after it
// with another deviation, or the UTC of a local time.

#include <cstdint>
#include <iostream>
#include <string>

#include "ZoneRules.h"

using namespace chronal::sim;

namespace {

std::int64_t seconds(Span span) { return std::chrono::floor<std::chrono::seconds>(span).count(); }

std::string text(const Period& period)
{
    return std::to_string(seconds(period.begin.time_since_epoch())) + ' ' +
           std::to_string(seconds(period.deviation)) + ' ' + (period.daylightSaving ? '1' : '0');
}

std::string answer(const DeviationRule& rule, const std::string& question, Span time)
{
    if (question == "at")
        return text(rule.periodAt(Utc(time)));
    if (question == "next") {
        const std::optional<Period> next = rule.nextChange(Utc(time));
        return next ? text(*next) : "none";
    }
    const std::optional<Utc> utc = rule.toUtc(Local(time));
    return utc ? std::to_string(seconds(utc->time_since_epoch())) : "skipped";
}

} // namespace

int main()
{
    std::string question, name;
    std::int64_t time = 0;
    std::shared_ptr<const Zone> zone;
    while (std::cin >> question >> name >> time) {
        if (!zone || zone->name() != name)
            zone = findZone(name);
        std::cout << (zone ? answer(DeviationRule(zone), question, std::chrono::seconds(time))
                           : "unknown")
                  << '\n';
    }
}
