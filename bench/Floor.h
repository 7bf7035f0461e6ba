#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

#include <string>

#include <chronal/ReferenceTimeId.h>
#include <fabric/MsgMeta.h>
#include <nub/Osal.h>

#include "Operations.h"

/// The cost of the required work by itself, written by hand with nothing around it: for a message
/// the same allocations, virtual calls, copies and releases; for a text the same calls of the
/// platform and of snprintf(). Each function is named after the operation of the library that it is
/// compared with.
namespace bench::floors {

void sendTimes(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
               const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
               const nubOsalTime_struct& time4, const chronal::ReferenceTimeId& id);
void sendSource(fabric::MsgIds& ids, const chronal::ReferenceTimeId& id);
void sendZone(fabric::MsgIds& ids, const std::string& zone);

extern const Function receiveTime;
extern const Function receiveTimeDefault;
extern const Function receiveSettings;
extern const Function receiveSettingsDefault;
extern const Function receiveShortZone;
extern const Function receiveShortZoneDefault;
extern const Function receiveLongZone;
extern const Function receiveLongZoneDefault;

void printMarker();
void printShortSpan();
void printLongSpan();
void printTime();

} // namespace bench::floors

#endif
