#include <chronal/Helpers.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <limits>

namespace chronal::Helpers {

// Constant data, so that they have their values while other libraries are still being initialised.
constexpr nubOsalTime_struct deviationInvalid = {-360000, 0};
constexpr nubOsalTime_struct deviationUnknown = {-360001, 0};

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;

/// The text of a span, to which pieces are appended. The buffer holds the longest text.
class SpanText
{
public:
    explicit SpanText(char sign) : length_(1) { characters_[0] = sign; }

    /// Appends a number, which is cut to 32 bits. Only days can have more.
    void append(const char* format, std::uint64_t number)
    {
        length_ += static_cast<std::size_t>(std::snprintf(characters_ + length_,
                                                          sizeof(characters_) - length_, format,
                                                          static_cast<std::int32_t>(number)));
    }

    std::string text() const { return std::string(characters_, length_); }

private:
    char characters_[127];
    std::size_t length_;
};

/// Appends the milliseconds, and the rest in microseconds unless it is zero.
void appendFraction(SpanText& text, const char* millisecondFormat, std::uint64_t microseconds)
{
    text.append(millisecondFormat, microseconds / 1000);
    if (microseconds % 1000 != 0)
        text.append(".%03ius", microseconds % 1000);
}

/// A unit, with the formats for the largest unit of a span and for the units after it.
struct Unit
{
    std::uint64_t seconds;
    const char* leadingFormat;
    const char* followingFormat;
};

constexpr Unit units[] = {
    {86400, "%id", ""},
    {3600, "%ih", ".%02ih"},
    {60, "%im", ".%02im"},
    {1, "%is", ".%02is"},
};

/// Writes the largest unit that the span reaches, and each smaller one down to the last that is not
/// zero.
std::string spanText(char sign, std::uint64_t seconds, std::uint64_t microseconds)
{
    SpanText text(sign);
    const Unit* unit = std::find_if(std::begin(units), std::end(units),
                                    [=](const Unit& each) { return seconds >= each.seconds; });
    if (unit == std::end(units)) {
        if (microseconds < 1000)
            text.append("%ius", microseconds);
        else
            appendFraction(text, "%ims", microseconds);
        return text.text();
    }

    text.append(unit->leadingFormat, seconds / unit->seconds);
    seconds %= unit->seconds;
    for (++unit; unit != std::end(units) && (seconds != 0 || microseconds != 0); ++unit) {
        text.append(unit->followingFormat, seconds / unit->seconds);
        seconds %= unit->seconds;
    }
    if (microseconds != 0)
        appendFraction(text, ".%03ims", microseconds);
    return text.text();
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
    // Which values equal a marker is up to the platform, so it is asked about every value.
    if (nubOsalCompareTime(&span, &deviationInvalid) == 0)
        return "DEVIATION_INVALID";
    if (nubOsalCompareTime(&span, &deviationUnknown) == 0)
        return "DEVIATION_UNKNOWN";

    const char sign = isNegativeTimeSpan(span) ? '-' : '+';
    nubOsalTime_struct magnitude = span;
    absTimeSpan(&magnitude);
    // Unsigned, because the absolute value of the lowest span does not fit in a signed number.
    return spanText(sign, static_cast<std::uint64_t>(magnitude.seconds),
                    static_cast<std::uint64_t>(magnitude.microseconds));
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

    char text[127];
    const int length =
        std::snprintf(text, sizeof(text), "'%04i-%02i-%02i %02i:%02i:%02i.%03i'",
                      date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min,
                      date.tm_sec, normalized.microseconds / 1000);
    return std::string(text, static_cast<std::size_t>(length));
}

} // namespace chronal::Helpers
