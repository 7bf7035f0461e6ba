#ifndef CHRONAL_HELPERS_H
#define CHRONAL_HELPERS_H

#include <string>

#include <chronal/Export.h>
#include <chronal/ReferenceTimeId.h>
#include <nub/Osal.h>

namespace chronal {

/// Arithmetic on signed time spans, and text for spans, times and sources. The functions have no
/// state: any thread may call them at any time, also from inside a callback. Only those that return
/// a string throw, and only std::bad_alloc.
///
/// A span is seconds + microseconds / 1000000 seconds. In span form, microseconds lies between
/// -999999 and 999999 and the two fields do not have opposite signs: minus one and a half seconds
/// is {-1, -500000}. Arguments need not be in span form. At the ends of the range of `seconds`,
/// arithmetic wraps in two's complement.
namespace Helpers {

/// Marks a deviation as invalid: {-360000, 0}, which is -100 hours.
extern CHRONAL_API const nubOsalTime_struct deviationInvalid;
/// Marks a deviation as unknown: {-360001, 0}.
extern CHRONAL_API const nubOsalTime_struct deviationUnknown;

/// Brings `*span` into span form. Its value stays the same.
CHRONAL_API void normalizeTimeSpan(nubOsalTime_struct* span);

/// Returns true if the span is below zero.
CHRONAL_API bool isNegativeTimeSpan(const nubOsalTime_struct& span);

/// Replaces `*span` by its absolute value, in span form. The lowest number of seconds has no
/// absolute value and stays as it is.
CHRONAL_API void absTimeSpan(nubOsalTime_struct* span);

/// Returns the name of the source: "INVAL", "RTC", "NTP", "DVB", "TTX" or "ATSC", or "<unknown>"
/// for any other value.
CHRONAL_API std::string getRefTimeStr(const referenceTimeId_enum& source);

/// Returns the span as text: a sign, and the units from the largest that the span reaches down to
/// the last that is not zero, such as "+1d.01h", "-30m", "+5s.250ms" or "+0us". The two markers
/// give "DEVIATION_INVALID" and "DEVIATION_UNKNOWN". The number of days is cut to 32 bits.
CHRONAL_API std::string getTimeSpanStr(const nubOsalTime_struct& span);

/// Returns an absolute time (since 1970-01-01 00:00:00 UTC) as UTC date and time with milliseconds,
/// in single quotes: "'2023-11-14 22:13:20.123'". A negative time gives the text of a span. A time
/// that gmtime_r() cannot represent, or whose year does not fit in an int, gives "<out of range>".
/// On a target with a 32-bit time_t, only the low 32 bits of the seconds are used.
CHRONAL_API std::string getTimeStr(const nubOsalTime_struct& time);

} // namespace Helpers
} // namespace chronal

#endif
