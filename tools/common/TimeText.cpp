#include "TimeText.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <regex>
#include <stdexcept>

#include <absl/time/civil_time.h>

#include "Clock.h"
#include "WireTime.h"

namespace chronal::tools {

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;
constexpr char doesNotFit[] = "does not fit into 64 bits of seconds";

[[noreturn]] void fail(const std::string& text, const std::string& reason)
{
    throw std::invalid_argument("'" + text + "' " + reason);
}

/// Digits only, few enough for an int.
int number(const std::ssub_match& digits) { return digits.matched ? std::stoi(digits.str()) : 0; }

/// The first six decimals of a second.
std::int32_t microseconds(const std::ssub_match& decimals)
{
    std::string digits = decimals.str();
    digits.resize(6, '0');
    return std::stoi(digits);
}

nubOsalTime_struct makeTime(std::int64_t seconds, std::int32_t microseconds)
{
    nubOsalTime_struct time = {};
    time.seconds = seconds;
    time.microseconds = microseconds;
    return time;
}

nubOsalTime_struct negated(const nubOsalTime_struct& time)
{
    return makeTime(-time.seconds, -time.microseconds);
}

// Hours and minutes in the three groups of `match` from `first` on: sign, hours, minutes.
std::int64_t offsetSeconds(const std::string& text, const std::smatch& match, std::size_t first)
{
    const int hours = number(match[first + 1]);
    const int minutes = number(match[first + 2]);
    if (hours > 24 || minutes > 59)
        fail(text, "has an invalid offset: hours go up to 24, minutes to 59");
    const std::int64_t seconds = hours * 3600 + minutes * 60;
    return match[first] == "-" ? -seconds : seconds;
}

std::int64_t secondsTo(const std::string& text, const std::smatch& match)
{
    const int month = number(match[3]), day = number(match[4]);
    const int hours = number(match[5]), minutes = number(match[7]), seconds = number(match[8]);
    if (hours > 23 || minutes > 59 || seconds > 59)
        fail(text, "has an invalid time of day: hours go up to 23, minutes and seconds to 59");
    // It is normalised if there is no such day.
    const absl::CivilSecond time(number(match[1]), month, day, hours, minutes, seconds);
    if (time.month() != month || time.day() != day)
        fail(text, "is not a date of the calendar");
    return time - absl::CivilSecond();
}

constexpr char spanExpected[] =
    "is not a span; expected for example +01:30, +1h30m, -90s, 1d2h, 250ms or PT1H30M: units d, h, "
    "m or min, s, ms, us, each at most once and in this order";
constexpr char durationExpected[] = "is not a duration; expected seconds, such as 5 or 0.5, or "
                                    "units, such as 250ms, 2s, 1min or PT1M30S";

/// Counts with their units, from larger to smaller ones, or a duration of ISO 8601; `expected` is
/// the error text for anything else.
nubOsalTime_struct parseMagnitude(const std::string& text, const std::string& magnitude,
                                  const char* expected)
{
    // After a dot only as many digits as the library prints: ".5h" looks like half an hour.
    static const std::regex withUnits(R"((?!\.)(?:(\d{1,30})d)?(?:(\d{1,30}|\.\d\d)h)?)"
                                      R"((?:(\d{1,30}|\.\d\d)m(?:in)?)?(?:(\d{1,30}|\.\d\d)s)?)"
                                      R"((?:(\d{1,30}|\.\d{3})ms)?(?:(\d{1,30}|\.\d{3})us)?)");
    // Without years and months, which differ in length.
    static const std::regex iso(R"(P(?:(\d{1,30})D)?(?:T(?=\d)(?:(\d{1,30})H)?)"
                                R"((?:(\d{1,30})M)?(?:(\d{1,30})(?:[.,](\d{1,9}))?S)?)?)");
    constexpr std::int64_t units[] = {86400000000, 3600000000, 60000000, 1000000, 1000, 1};
    std::smatch match;
    const bool isIso = std::regex_match(magnitude, match, iso);
    if ((!isIso && !std::regex_match(magnitude, match, withUnits)) ||
        magnitude.find_first_of("0123456789") == std::string::npos)
        fail(text, expected);
    std::int64_t seconds = 0, fractions = isIso ? microseconds(match[5]) : 0;
    for (std::size_t i = 0; i < (isIso ? 4 : std::size(units)); ++i) {
        const std::string count = match.str(i + 1);
        const std::int64_t perSecond = std::max<std::int64_t>(microsecondsPerSecond / units[i], 1);
        std::int64_t number = 0, whole = 0;
        if (count.empty())
            continue;
        const char* const digits = count.data() + (count.front() == '.' ? 1 : 0);
        if (std::from_chars(digits, count.data() + count.size(), number).ec != std::errc() ||
            __builtin_mul_overflow(number, units[i] * perSecond / microsecondsPerSecond, &whole) ||
            __builtin_add_overflow(seconds, whole / perSecond, &seconds))
            fail(text, doesNotFit);
        fractions += number % perSecond * units[i];
    }
    if (__builtin_add_overflow(seconds, fractions / microsecondsPerSecond, &seconds))
        fail(text, doesNotFit);
    return makeTime(seconds, static_cast<std::int32_t>(fractions % microsecondsPerSecond));
}

nubOsalTime_struct parseSinceEpoch(const std::string& text)
{
    static const std::regex form(R"(@(-?)(\d{1,19}(?:\.\d{1,9})?))");
    std::smatch match;
    if (!std::regex_match(text, match, form))
        fail(text, "is not a number of seconds; expected for example @1774746000.25");
    const nubOsalTime_struct time = parseMagnitude(text, match.format("PT$2S"), "");
    return match.length(1) != 0 ? negated(time) : time;
}

nubOsalTime_struct parseTime(const std::string& text, bool isLocal)
{
    if (text.substr(0, 1) == "@")
        return parseSinceEpoch(text);
    // Both separators are there in all places or, in the basic format, in none.
    static const std::regex form(R"((\d{4})(-?)(\d\d)\2(\d\d))"
                                 R"((?:[T ](\d\d)(:?)(\d\d)(?:\6(\d\d)(?:[.,](\d{1,9}))?)?)"
                                 R"((Z|([+-])(\d\d)(?::?(\d\d))?)?)?)");
    std::smatch match;
    if (!std::regex_match(text, match, form))
        fail(text, isLocal ? "is not a local time; expected for example 2026-03-29T03:00:00, "
                             "20260329T030000 or @1774753200"
                           : "is not a time; expected for example 2026-03-29T01:00:00Z, "
                             "\"2026-03-29T03:00 Europe/Berlin\", @1774746000, now or +5min");
    if (isLocal && match[10].matched)
        fail(text, "is not a local time: leave out the \"" + match[10].str() + "\"");

    return makeTime(secondsTo(text, match) - offsetSeconds(text, match, 11),
                    microseconds(match[9]));
}

/// The sum of this machine's time and a span, which may be empty.
nubOsalTime_struct timeFromNow(const std::string& text, const std::string& span)
{
    const nubOsalTime_struct added = span.empty() ? makeTime(0, 0) : parseSpan(span);
    nubOsalTime_struct time =
        sim::wireTime(sim::systemClock().utc() + sim::Span(added.microseconds));
    if (__builtin_add_overflow(time.seconds, added.seconds, &time.seconds))
        fail(text, doesNotFit);
    return time;
}

nubOsalTime_struct timeInZone(const std::string& text, const std::string& time,
                              const std::string& name, std::vector<std::string>* remarks)
{
    const std::shared_ptr<const sim::Zone> zone = sim::findZone(name);
    if (!zone)
        fail(text, "ends in an unknown time zone; to list them: chronalctl timezone list");
    const std::optional<sim::Local> local = sim::readLocal(parseLocal(time));
    if (!local)
        fail(text, "is not within the years 1970 to 9999");
    const std::optional<sim::Utc> utc = sim::DeviationRule(zone).toUtc(*local);
    if (!utc)
        fail(text, "does not exist: the clocks skip it");
    const auto change =
        findClockChange(*local, [&](sim::Utc moment) { return zone->periodAt(moment).deviation; });
    if (change && remarks)
        remarks->push_back("'" + text + "' occurs twice; " + formatUtc(sim::wireTime(*utc)) +
                           " is taken, not " + formatUtc(sim::wireTime(change->later)));
    return sim::wireTime(*utc);
}

} // namespace

std::optional<ClockChange> findClockChange(sim::Local local,
                                           const std::function<sim::Span(sim::Utc)>& deviationAt)
{
    const sim::Utc asIfUtc(local.time_since_epoch());
    const auto toUtc = [&](sim::Utc moment) {
        // Local time is then within the calendar, too.
        constexpr sim::Utc first = sim::Utc() + sim::largestDeviation;
        constexpr sim::Utc last = sim::calendarEnd - sim::largestDeviation - sim::Span(1);
        return asIfUtc - deviationAt(std::clamp(moment, first, last));
    };
    const sim::Utc before = toUtc(asIfUtc - sim::largestDeviation);
    const sim::Utc after = toUtc(asIfUtc + sim::largestDeviation);
    const bool occurs = toUtc(before) == before;
    if (before == after || occurs != (toUtc(after) == after))
        return std::nullopt;
    return ClockChange{std::min(before, after), std::max(before, after), !occurs};
}

std::string formatUtc(const nubOsalTime_struct& time)
{
    nubOsalTime_struct normal = time;
    nubOsalNormalizeTime(&normal);
    std::string text = absl::FormatCivilTime(absl::CivilSecond() + normal.seconds);
    if (normal.microseconds != 0)
        text += '.' + std::to_string(microsecondsPerSecond + normal.microseconds).substr(1);
    return text + 'Z';
}

nubOsalTime_struct parseUtc(const std::string& text, std::vector<std::string>* remarks)
{
    const std::string span = text.substr(text.compare(0, 3, "now") == 0 ? 3 : 0);
    if (text == "now" || span.substr(0, 1) == "+" || span.substr(0, 1) == "-")
        return timeFromNow(text, span);
    const std::size_t blank = text.rfind(' ') + 1;
    if (blank != 0 && std::isalpha(static_cast<unsigned char>(text[blank])))
        return timeInZone(text, text.substr(0, blank - 1), text.substr(blank), remarks);
    return parseTime(text, false);
}

nubOsalTime_struct parseLocal(const std::string& text) { return parseTime(text, true); }

nubOsalTime_struct parseSpan(const std::string& text)
{
    static const std::regex offset(R"(([+-])(\d\d):?(\d\d))");
    std::smatch match;
    if (std::regex_match(text, match, offset))
        return makeTime(offsetSeconds(text, match, 1), 0);

    const bool negative = text.substr(0, 1) == "-";
    const std::string magnitude = text.substr(negative || text.substr(0, 1) == "+" ? 1 : 0);
    if (magnitude == "0")
        return makeTime(0, 0);
    const nubOsalTime_struct span = parseMagnitude(text, magnitude, spanExpected);
    return negative ? negated(span) : span;
}

std::chrono::microseconds parseDuration(const std::string& text)
{
    constexpr std::int64_t longest = 366 * 86400; // added to a clock's time, it cannot overflow
    static const std::regex decimal(R"(0*(\d+(?:\.\d{1,6})?)s?)");
    std::smatch match;
    // Matching recurses for each character; no valid duration is longer than this.
    const bool inSeconds = text.size() <= 64 && std::regex_match(text, match, decimal);
    const nubOsalTime_struct duration =
        parseMagnitude(text, inSeconds ? match.format("PT$1S") : text, durationExpected);
    if (duration.seconds > longest)
        fail(text, "is longer than a year");
    return std::chrono::seconds(duration.seconds) +
           std::chrono::microseconds(duration.microseconds);
}

} // namespace chronal::tools
