#include "WireTime.h"

#include <chronal/Helpers.h>

namespace chronal::sim {

namespace {

using std::chrono::seconds;

// Both bounds are inclusive.
std::optional<Span> readWithin(const nubOsalTime_struct& time, Span lowest, Span highest)
{
    // No microseconds field amounts to this many seconds, so the check refuses no valid value, and
    // the sum below cannot overflow.
    constexpr seconds margin(2148);
    if (time.seconds < (std::chrono::floor<seconds>(lowest) - margin).count() ||
        time.seconds > (std::chrono::ceil<seconds>(highest) + margin).count())
        return std::nullopt;
    const Span value = seconds(time.seconds) + Span(time.microseconds);
    if (value < lowest || value > highest)
        return std::nullopt;
    return value;
}

std::optional<Span> readSinceEpoch(const nubOsalTime_struct& time)
{
    return readWithin(time, Span::zero(), calendarEnd.time_since_epoch() - Span(1));
}

nubOsalTime_struct wire(seconds whole, Span fraction)
{
    nubOsalTime_struct time = {};
    time.seconds = whole.count();
    time.microseconds = static_cast<std::int32_t>(fraction.count());
    return time;
}

nubOsalTime_struct wireSinceEpoch(Span sinceEpoch)
{
    const seconds whole = std::chrono::floor<seconds>(sinceEpoch);
    return wire(whole, sinceEpoch - whole);
}

} // namespace

std::optional<Utc> readUtc(const nubOsalTime_struct& time)
{
    const std::optional<Span> sinceEpoch = readSinceEpoch(time);
    return sinceEpoch ? std::optional<Utc>(*sinceEpoch) : std::nullopt;
}

std::optional<Local> readLocal(const nubOsalTime_struct& time)
{
    const std::optional<Span> sinceEpoch = readSinceEpoch(time);
    return sinceEpoch ? std::optional<Local>(*sinceEpoch) : std::nullopt;
}

std::optional<Span> readDeviation(const nubOsalTime_struct& span)
{
    return readWithin(span, -largestDeviation, largestDeviation);
}

bool isAnnounced(const nubOsalTime_struct& deviation)
{
    constexpr nubOsalTime_struct zero = {};
    const auto differsFrom = [&](const nubOsalTime_struct& silent) {
        return nubOsalCompareTime(&deviation, &silent) != 0;
    };
    return differsFrom(zero) && differsFrom(Helpers::deviationInvalid) &&
           differsFrom(Helpers::deviationUnknown);
}

nubOsalTime_struct wireTime(Utc time) { return wireSinceEpoch(time.time_since_epoch()); }

nubOsalTime_struct wireTime(Local time) { return wireSinceEpoch(time.time_since_epoch()); }

nubOsalTime_struct wireSpan(Span span)
{
    const seconds whole = std::chrono::duration_cast<seconds>(span);
    return wire(whole, span - whole);
}

} // namespace chronal::sim
