#ifndef CHRONAL_TOOLS_TIME_TEXT_H
#define CHRONAL_TOOLS_TIME_TEXT_H

#include <chrono>
#include <string>

#include <nub/Osal.h>

/// Times and spans in the forms that people write. Each function throws std::invalid_argument with
/// a text that says what was wrong and what is expected.
namespace chronal::tools {

/// A date with or without a time: "2026-03-29", "2026-03-29T01:00Z", "2026-03-29 01:00:00.250",
/// "2026-03-29T03:00:00+02:00", "+0200" or "+02"; UTC unless it names an offset. Or seconds since
/// 1970-01-01: "@1774746000.5". Up to nine decimals; digits after the sixth are ignored.
nubOsalTime_struct parseUtc(const std::string& text);

/// The same as a local time, which has neither "Z" nor an offset.
nubOsalTime_struct parseLocal(const std::string& text);

/// "+1h30m", "-90s", "1d2h", "250ms", as the library prints ("+1d.02h") or as an offset ("+05:30").
/// The two fields never have opposite signs.
nubOsalTime_struct parseSpan(const std::string& text);

/// Seconds, "5" or "0.5", or with the units of a span: "250ms", "2s", "1min", "1h30m". At most a
/// year.
std::chrono::microseconds parseDuration(const std::string& text);

/// "2026-03-29T01:00:00Z", with six decimals unless they are zero. parseUtc() reads it.
std::string formatUtc(const nubOsalTime_struct& time);

} // namespace chronal::tools

#endif
