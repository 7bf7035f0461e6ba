#include "TimeText.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <regex>
#include <stdexcept>
#include <string_view>

#include <absl/time/civil_time.h>

namespace chronal::tools {

namespace {

constexpr std::int64_t microsecondsPerSecond = 1000000;

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

std::int64_t secondsOfDay(const std::string& text, int hours, int minutes, int seconds)
{
    if (hours > 23 || minutes > 59 || seconds > 59)
        fail(text, "has an invalid time of day: hours go up to 23, minutes and seconds to 59");
    return hours * 3600 + minutes * 60 + seconds;
}

std::int64_t secondsToDate(const std::string& text, int year, int month, int dayOfMonth)
{
    const absl::CivilDay day(year, month, dayOfMonth); // normalised if there is no such day
    if (day.month() != month || day.day() != dayOfMonth)
        fail(text, "is not a date of the calendar");
    return (day - absl::CivilDay()) * 86400;
}

/// "@seconds.decimals", the "@" taken off.
nubOsalTime_struct parseSinceEpoch(const std::string& text, const std::string& digits)
{
    static const std::regex form(R"((-?)(\d{1,19})(?:\.(\d{1,9}))?)");
    std::smatch match;
    if (!std::regex_match(digits, match, form))
        fail(text, "is not a number of seconds; expected for example @1774746000.25");
    std::int64_t seconds = 0;
    const std::string whole = match[2];
    if (std::from_chars(whole.data(), whole.data() + whole.size(), seconds).ec != std::errc())
        fail(text, "does not fit into 64 bits of seconds");
    const nubOsalTime_struct time = makeTime(seconds, microseconds(match[3]));
    return match[1].length() != 0 ? negated(time) : time;
}

nubOsalTime_struct parseTime(const std::string& text, bool isLocal)
{
    if (!text.empty() && text.front() == '@')
        return parseSinceEpoch(text, text.substr(1));

    static const std::regex form(R"((\d{4})-(\d\d)-(\d\d))"
                                 R"((?:[T ](\d\d):(\d\d)(?::(\d\d)(?:[.,](\d{1,9}))?)?)"
                                 R"((Z|([+-])(\d\d)(?::?(\d\d))?)?)?)");
    std::smatch match;
    if (!std::regex_match(text, match, form))
        fail(text,
             isLocal
                 ? "is not a local time; expected for example 2026-03-29T03:00:00 or @1774753200"
                 : "is not a time; expected for example 2026-03-29T01:00:00Z or @1774746000");
    if (isLocal && match[8].matched)
        fail(text, "is not a local time: leave out the \"" + match[8].str() + "\"");

    const std::int64_t seconds =
        secondsToDate(text, number(match[1]), number(match[2]), number(match[3])) +
        secondsOfDay(text, number(match[4]), number(match[5]), number(match[6]));
    return makeTime(seconds - offsetSeconds(text, match, 9), microseconds(match[7]));
}

struct Unit
{
    std::string_view name;
    std::int64_t seconds;      ///< 0 for the fractions of a second
    std::int64_t microseconds; ///< of the fractions
    std::size_t printedDigits; ///< how many the library prints after a larger unit
};

constexpr Unit units[] = {{"d", 86400, 0, 0}, {"h", 3600, 0, 2},  {"m", 60, 0, 2},
                          {"s", 1, 0, 2},     {"ms", 0, 1000, 3}, {"us", 0, 1, 3}};
constexpr char spanExpected[] = "is not a span; expected for example +01:30, +1h30m, -90s, 1d2h or "
                                "250ms: units d, h, m or min, "
                                "s, ms, us, each at most once and in this order";
constexpr char durationExpected[] =
    "is not a duration; expected seconds, such as 5 or 0.5, or units, such as 250ms, 2s or 1min";

/// Removes the leading characters of `rest` that are among `wanted`, and returns them.
std::string_view takeAnyOf(std::string_view& rest, const char* wanted)
{
    const std::string_view taken = rest.substr(0, rest.find_first_not_of(wanted));
    rest.remove_prefix(taken.size());
    return taken;
}

/// Adds `count` of the unit; false if the sum is out of range.
bool add(nubOsalTime_struct& sum, const Unit& unit, std::int64_t count)
{
    std::int64_t whole = 0;
    std::int64_t fraction = sum.microseconds;
    if (unit.seconds != 0) {
        if (__builtin_mul_overflow(count, unit.seconds, &whole))
            return false;
    } else {
        const std::int64_t perSecond = microsecondsPerSecond / unit.microseconds;
        whole = count / perSecond;
        fraction += count % perSecond * unit.microseconds;
    }
    whole += fraction / microsecondsPerSecond;
    sum.microseconds = static_cast<std::int32_t>(fraction % microsecondsPerSecond);
    return !__builtin_add_overflow(sum.seconds, whole, &sum.seconds);
}

/// One or more counts with their units, from larger to smaller ones; `expected` is the error text
/// for anything else.
nubOsalTime_struct parseMagnitude(const std::string& text, std::string_view rest,
                                  const char* expected)
{
    nubOsalTime_struct sum = {};
    const Unit* next = std::begin(units);
    for (bool first = true; first || !rest.empty(); first = false) {
        const std::size_t dots = first ? 0 : takeAnyOf(rest, ".").size();
        const std::string_view digits = takeAnyOf(rest, "0123456789");
        std::string_view name = takeAnyOf(rest, "dhminsu");
        if (name == "min")
            name = "m";
        while (next != std::end(units) && next->name != name)
            ++next;
        // After a dot only as many digits as the library prints: ".5h" looks like half an hour.
        if (digits.empty() || next == std::end(units) || dots > 1 ||
            (dots == 1 && digits.size() != next->printedDigits))
            fail(text, expected);
        std::int64_t count = 0;
        if (std::from_chars(digits.begin(), digits.end(), count).ec != std::errc() ||
            !add(sum, *next, count))
            fail(text, "does not fit into 64 bits of seconds");
        ++next;
    }
    return sum;
}

} // namespace

nubOsalTime_struct parseUtc(const std::string& text) { return parseTime(text, false); }

nubOsalTime_struct parseLocal(const std::string& text) { return parseTime(text, true); }

nubOsalTime_struct parseSpan(const std::string& text)
{
    static const std::regex offset(R"(([+-])(\d\d):?(\d\d))");
    std::smatch match;
    if (std::regex_match(text, match, offset))
        return makeTime(offsetSeconds(text, match, 1), 0);

    std::string_view magnitude = text;
    const bool negative = magnitude.substr(0, 1) == "-";
    if (negative || magnitude.substr(0, 1) == "+")
        magnitude.remove_prefix(1);
    if (magnitude == "0")
        return makeTime(0, 0);
    const nubOsalTime_struct span = parseMagnitude(text, magnitude, spanExpected);
    return negative ? negated(span) : span;
}

std::chrono::microseconds parseDuration(const std::string& text)
{
    constexpr std::int64_t longest = 366 * 86400; // added to a clock's time, it cannot overflow
    constexpr char tooLong[] = "is longer than a year";
    static const std::regex decimal(R"(0*(\d+)(?:\.(\d{1,6}))?s?)");
    std::smatch match;
    // Matching recurses for each character; no valid duration is longer than this.
    const bool inSeconds = text.size() <= 64 && std::regex_match(text, match, decimal);
    if (inSeconds && match.length(1) > 8) // perhaps too many digits for an int as well
        fail(text, tooLong);
    const nubOsalTime_struct duration = inSeconds
                                            ? makeTime(number(match[1]), microseconds(match[2]))
                                            : parseMagnitude(text, text, durationExpected);
    if (duration.seconds > longest)
        fail(text, tooLong);
    return std::chrono::seconds(duration.seconds) +
           std::chrono::microseconds(duration.microseconds);
}

std::string formatUtc(const nubOsalTime_struct& time)
{
    const std::string decimals = std::to_string(microsecondsPerSecond + time.microseconds);
    return absl::FormatCivilTime(absl::CivilSecond() + time.seconds) +
           (time.microseconds == 0 ? "Z" : '.' + decimals.substr(1) + 'Z');
}

} // namespace chronal::tools
