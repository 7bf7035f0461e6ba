#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

#include <string>

#include <chronal/ReferenceTimeId.h>
#include <fabric/MsgMeta.h>
#include <nub/Osal.h>

/// What the required work costs by itself, written by hand with nothing around it: the same
/// allocations, virtual calls, copies and releases for a message; the same calls of the platform
/// and of snprintf() for a text. Each is named after the operation of the library that it stands
/// beside.
namespace bench {
namespace floors {

void sendTimes(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
               const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
               const nubOsalTime_struct& time4, const chronal::ReferenceTimeId& id);
void sendSource(fabric::MsgIds& ids, const chronal::ReferenceTimeId& id);
void sendZone(fabric::MsgIds& ids, const std::string& zone);

void receiveTime();
void receiveTimeUnheard();
void receiveSettings();
void receiveSettingsUnheard();
void receiveShortZone();
void receiveShortZoneUnheard();
void receiveLongZone();
void receiveLongZoneUnheard();

void printMarker();
void printShortSpan();
void printLongSpan();
void printTime();

} // namespace floors
} // namespace bench

#endif
