#include <cassert>

#include <fuzzer/FuzzedDataProvider.h>

#include "ZoneRules.h"

using namespace chronal::sim;

/// The input is a zone, changes of its rule, and times about which the rule must agree with itself.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::array zones = {findZone("Europe/Berlin"), findZone("Pacific/Apia"),
                                     findZone("Africa/Casablanca"), findZone("UTC")};
    FuzzedDataProvider input(data, size);
    const auto hours = [&] { return std::chrono::hours(input.ConsumeIntegralInRange(-24, 24)); };
    const auto timeFrom = [&](Utc begin, Utc end = calendarEnd) {
        return begin + Span(input.ConsumeIntegralInRange<Span::rep>(0, (end - begin).count() - 1));
    };
    DeviationRule rule(input.PickValueInArray(zones));
    while (input.ConsumeBool()) {
        const Change first = {timeFrom(Utc()), hours(), input.ConsumeBool()};
        const Change second = {timeFrom(first.at), hours(), std::nullopt};
        rule.announce({first, second}, timeFrom(Utc()));
        if (input.ConsumeBool())
            rule.setCurrent(hours(), timeFrom(Utc()));
    }

    const Utc now = timeFrom(Utc());
    const Period current = rule.periodAt(now);
    assert(current.begin <= now && now < current.end);
    const std::optional<Period> next = rule.nextChange(now);
    const Utc until = next ? next->begin : calendarEnd;
    assert(until > now && rule.periodAt(timeFrom(now, until)).deviation == current.deviation);
    assert(!next || next->deviation != current.deviation);

    const Utc asIfUtc = until + hours() + Span(input.ConsumeIntegralInRange(-1, 1));
    std::optional<Utc> earliest;
    for (Utc at = asIfUtc - largestDeviation; at <= asIfUtc + largestDeviation;) {
        const Period period = rule.periodAt(at);
        const Utc utc = asIfUtc - period.deviation;
        if (period.begin <= utc && utc < period.end && (!earliest || utc < *earliest))
            earliest = utc;
        at = period.end;
    }
    assert(rule.toUtc(Local(asIfUtc.time_since_epoch())) == earliest);
    return 0;
}
