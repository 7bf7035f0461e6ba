#ifndef CHRONAL_TOOLS_TIME_TEXT_H
#define CHRONAL_TOOLS_TIME_TEXT_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nub/Osal.h>

#include "ZoneRules.h"

/// Times and spans in the forms that people write. Each function named parse... throws
/// std::invalid_argument with a text that says what was wrong and what is expected.
namespace chronal::tools {

/// A date with or without a time: "2026-03-29", "2026-03-29T01:00Z", "2026-03-29 01:00:00.250",
/// "2026-03-29T03:00:00+02:00", "+0200" or "+02"; "20260329T010000Z"; UTC unless it names an offset
/// or a zone: "2026-03-29T03:00 Europe/Berlin". If that time occurs twice, the earlier is returned
/// and `remarks` says so; if the clocks skip it, it is an error. Or seconds since 1970-01-01:
/// "@1774746000.5". Up to nine decimals; digits after the sixth are ignored. Or "now" by this
/// machine's clock, or a span before or after that: "-1h", "+5min" or "now+5min".
nubOsalTime_struct parseUtc(const std::string& text, std::vector<std::string>* remarks = nullptr);

/// A local time: a date with or without a time, or seconds, with neither "Z" nor an offset or zone.
nubOsalTime_struct parseLocal(const std::string& text);

/// "+1h30m", "-90s", "1d2h", "250ms", as the library prints ("+1d.02h"), as an offset ("+05:30") or
/// by ISO 8601 ("PT1H30M", "-P1DT0.5S"). The two fields never have opposite signs.
nubOsalTime_struct parseSpan(const std::string& text);

/// Seconds, "5" or "0.5", or with the units of a span: "250ms", "2s", "1min", "1h30m", "PT90S". At
/// most a year.
std::chrono::microseconds parseDuration(const std::string& text);

/// "2026-03-29T01:00:00Z", with six decimals unless they are zero.
std::string formatUtc(const nubOsalTime_struct& time);

/// The moments of a local time that occurs twice; or, if the clocks skip it, the moments that are
/// as long before and after the change as it seems to be after and before it.
struct ClockChange
{
    sim::Utc earlier;
    sim::Utc later;
    bool skips;
};

/// Returns nullopt for a local time that occurs once.
std::optional<ClockChange> findClockChange(sim::Local local,
                                           const std::function<sim::Span(sim::Utc)>& deviationAt);

} // namespace chronal::tools

#endif
