#include <chronal/Helpers.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>

namespace chronal {
namespace Helpers {

// Constants, so that they hold their values already when other libraries are being initialised.
constexpr nubOsalTime_struct deviationInvalid = {-360000, 0};
constexpr nubOsalTime_struct deviationUnknown = {-360001, 0};

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;

/// Appends one number, printed as `format` says.
void append(std::string& text, const char* format, std::uint64_t number)
{
    std::array<char, 127> piece;
    // Days beyond 32 bits are cut, all other numbers are small.
    std::snprintf(piece.data(), piece.size(), format, static_cast<std::int32_t>(number));
    text += piece.data();
}

/// Appends the milliseconds, and the microseconds if there are any.
void appendFraction(std::string& text, const char* millisecondFormat, std::uint64_t microseconds)
{
    append(text, millisecondFormat, microseconds / 1000);
    if (microseconds % 1000 != 0)
        append(text, ".%03ius", microseconds % 1000);
}

/// A unit of time, as the first one of a span and as a later one.
struct Unit
{
    std::uint64_t seconds;
    const char* first;
    const char* later;
};

constexpr Unit units[] = {
    {86400, "%id", ""},
    {3600, "%ih", ".%02ih"},
    {60, "%im", ".%02im"},
    {1, "%is", ".%02is"},
};

/// The span without its sign: the largest unit that it reaches, then each smaller one down to the
/// last that is not zero.
void appendMagnitude(std::string& text, std::uint64_t seconds, std::uint64_t microseconds)
{
    bool begun = false;
    for (const Unit& unit : units) {
        if (begun && seconds == 0 && microseconds == 0)
            return;
        if (begun || seconds >= unit.seconds) {
            append(text, begun ? unit.later : unit.first, seconds / unit.seconds);
            seconds %= unit.seconds;
            begun = true;
        }
    }
    if (begun && microseconds != 0)
        appendFraction(text, ".%03ims", microseconds);
    else if (!begun && microseconds >= 1000)
        appendFraction(text, "%ims", microseconds);
    else if (!begun)
        append(text, "%ius", microseconds);
}

} // namespace

void normalizeTimeSpan(nubOsalTime_struct* span)
{
    nubOsalNormalizeTime(span);
    if (span->seconds < 0 && span->microseconds > 0) {
        span->seconds += 1;
        span->microseconds -= microsecondsPerSecond;
    }
}

bool isNegativeTimeSpan(const nubOsalTime_struct& span)
{
    nubOsalTime_struct normalized = span;
    normalizeTimeSpan(&normalized);
    return normalized.seconds < 0 || normalized.microseconds < 0;
}

void absTimeSpan(nubOsalTime_struct* span)
{
    normalizeTimeSpan(span);
    if (isNegativeTimeSpan(*span)) {
        span->seconds = static_cast<std::int64_t>(-static_cast<std::uint64_t>(span->seconds));
        span->microseconds = -span->microseconds;
    }
}

std::string getRefTimeStr(const referenceTimeId_enum& source)
{
    switch (source) {
    case referenceTimeInvalid:
        return "INVAL";
    case referenceTimeRtc:
        return "RTC";
    case referenceTimeNtp:
        return "NTP";
    case referenceTimeDvb:
        return "DVB";
    case referenceTimeTeletext:
        return "TTX";
    case referenceTimeAtsc:
        return "ATSC";
    }
    return "<unknown>";
}

std::string getTimeSpanStr(const nubOsalTime_struct& span)
{
    if (nubOsalCompareTime(&span, &deviationInvalid) == 0)
        return "DEVIATION_INVALID";
    if (nubOsalCompareTime(&span, &deviationUnknown) == 0)
        return "DEVIATION_UNKNOWN";

    std::string text = isNegativeTimeSpan(span) ? "-" : "+";
    nubOsalTime_struct magnitude = span;
    absTimeSpan(&magnitude);
    // As unsigned numbers: the absolute value of the most negative span fits there only.
    appendMagnitude(text, static_cast<std::uint64_t>(magnitude.seconds),
                    static_cast<std::uint64_t>(magnitude.microseconds));
    return text;
}

std::string getTimeStr(const nubOsalTime_struct& time)
{
    if (isNegativeTimeSpan(time))
        return getTimeSpanStr(time);

    nubOsalTime_struct normalized = time;
    nubOsalNormalizeTime(&normalized);
    const std::time_t seconds = static_cast<std::time_t>(normalized.seconds);
    std::tm date;
    if (!gmtime_r(&seconds, &date) || date.tm_year > std::numeric_limits<int>::max() - 1900)
        return "<out of range>";

    std::array<char, 127> text;
    std::snprintf(text.data(), text.size(), "'%04i-%02i-%02i %02i:%02i:%02i.%03i'",
                  date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min,
                  date.tm_sec, normalized.microseconds / 1000);
    return text.data();
}

} // namespace Helpers
} // namespace chronal
