#ifndef CHRONAL_HELPERS_H
#define CHRONAL_HELPERS_H

#include <string>

#include <chronal/Export.h>
#include <chronal/ReferenceTimeId.h>
#include <nub/Osal.h>

namespace chronal {

/// Arithmetic on signed time spans, and times as text. Free of state; any thread may call any of
/// them at any time, also inside a callback.
///
/// A span has the value seconds + microseconds / 1000000 seconds. It is in span form when
/// microseconds lies between -999999 and 999999 and the two fields never have opposite signs:
/// minus one and a half seconds is {-1, -500000}. At the ends of the range of `seconds` the
/// arithmetic wraps in two's complement.
namespace Helpers {

/// Stands in a deviation field for a deviation that is invalid: {-360000, 0}, -100 hours.
extern CHRONAL_API const nubOsalTime_struct deviationInvalid;
/// Stands in a deviation field for a deviation that is not known: {-360001, 0}.
extern CHRONAL_API const nubOsalTime_struct deviationUnknown;

/// Brings `*span` into span form, in place.
CHRONAL_API void normalizeTimeSpan(nubOsalTime_struct* span);

/// Whether the span is below zero. It need not be in span form.
CHRONAL_API bool isNegativeTimeSpan(const nubOsalTime_struct& span);

/// Replaces `*span` by its absolute value, in span form. The most negative number of seconds has
/// none and stays as it is.
CHRONAL_API void absTimeSpan(nubOsalTime_struct* span);

/// The source's name: "INVAL", "RTC", "NTP", "DVB", "TTX" or "ATSC"; "<unknown>" for any other
/// value.
CHRONAL_API std::string getRefTimeStr(const referenceTimeId_enum& source);

/// The span as text: a sign, then the units from the largest one reached down to the last one that
/// is not zero: "+1d.01h", "-30m", "+5s.250ms", "+0us". The two deviation markers give
/// "DEVIATION_INVALID" and "DEVIATION_UNKNOWN". Days are shown as a 32-bit number.
CHRONAL_API std::string getTimeSpanStr(const nubOsalTime_struct& span);

/// The absolute time (since 1970-01-01 00:00:00 UTC) as UTC date and time with milliseconds, in
/// single quotes: "'2023-11-14 22:13:20.123'". A negative one is rendered as a span. A time that
/// the C library's calendar cannot represent, or whose year is no int, gives "<out of range>".
/// Where time_t has 32 bits, only the low 32 bits of the seconds count.
CHRONAL_API std::string getTimeStr(const nubOsalTime_struct& time);

} // namespace Helpers
} // namespace chronal

#endif
