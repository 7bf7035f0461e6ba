#ifndef CHRONAL_SIM_WIRE_TIME_H
#define CHRONAL_SIM_WIRE_TIME_H

#include <optional>

#include <nub/Osal.h>

#include "ZoneRules.h"

/// Conversion of the times in records. The readers accept any words and return nullopt for a value
/// that is out of range.
namespace chronal::sim {

/// Absolute times from 1970 to calendarEnd, normalised or not.
std::optional<Utc> readUtc(const nubOsalTime_struct& time);
std::optional<Local> readLocal(const nubOsalTime_struct& time);

/// A span up to largestDeviation either way.
std::optional<Span> readDeviation(const nubOsalTime_struct& span);

/// Returns true if the deviation that accompanies a time is neither zero nor a marker.
bool isAnnounced(const nubOsalTime_struct& deviation);

/// Normalised: the microseconds are not negative.
nubOsalTime_struct wireTime(Utc time);
nubOsalTime_struct wireTime(Local time);

/// In span form: seconds and microseconds have the same sign.
nubOsalTime_struct wireSpan(Span span);

} // namespace chronal::sim

#endif
