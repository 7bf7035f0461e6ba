#include "Floor.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "FloorMiddleware.h"
#include "Samples.h"
#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>

namespace bench {
namespace floors {
namespace {

void handOver(fabric::MsgIds& ids, Count* count)
{
    count->acquire();
    Event* const event = new Event({service->serviceId(), 1, 2, 0}, {-1, 2}, count);
    if (application->sendEvent(ids, 0, event) < 0)
        std::abort();
    count->release();
}

void releaseNothing(std::uint32_t, const fabric::MsgMeta*, const nubEndianTable_t*, void*) {}

void releaseZone(std::uint32_t, const fabric::MsgMeta*, const nubEndianTable_t*, void* record)
{
    std::free(static_cast<chronalMsgTimezone_t*>(record)->timezone.chars);
}

/// A message as it arrives, made once.
template <typename Record>
Event arrived(const std::string* text, nubDeserString_t Record::*field)
{
    Count* const count = created(sizeof(Record), releaseNothing);
    if (text)
        set(recordOf<Record>(*count).*field, text->data(), text->size());
    return {{1, 1, 2, 2}, {-1, 2}, count};
}

Event timeEvent = arrived<chronalMsgReplyTime_t>(nullptr, nullptr);
Event settingsEvent = arrived(&shortZone, &chronalMsgDateTime_t::text);
Event shortZoneEvent = arrived(&shortZone, &chronalMsgTimezone_t::timezone);
Event longZoneEvent = arrived(&longZone, &chronalMsgTimezone_t::timezone);

/// Holds the payload of an event while `body` reads its record. An event may come without either.
template <typename Record, typename Body>
inline int held(const Event& event, const Body& body)
{
    Count* const count = event.count;
    if (!count)
        return 0;
    count->acquire();
    if (event.owner->record)
        body(*static_cast<const Record*>(event.owner->record));
    count->release();
    return 0;
}

/// Whether the listener has a function of its own in the place of one that does nothing.
inline bool heard(const Listener& listener, std::size_t entry)
{
    return tableOf(listener)[entry] != tableOf(*deaf)[entry];
}

int receiveTime(Listener& listener, const Event& event)
{
    return held<chronalMsgReplyTime_t>(event, [&](const chronalMsgReplyTime_t& record) {
        const nubOsalTime_struct deviation = record.utcDeviation;
        const nubOsalTime_struct utc = record.utcTime;
        const nubOsalTime_struct local = record.localTime;
        const chronal::ReferenceTimeId id = record.refTimeId;
        if (heard(listener, Listener::timeEntry))
            listener.time(event.ids, deviation, utc, local, id, record.flag != 0, record.value);
    });
}

int receiveSettings(Listener& listener, const Event& event)
{
    return held<chronalMsgDateTime_t>(event, [&](const chronalMsgDateTime_t& record) {
        const nubOsalTime_struct all[] = {record.time0, record.time1, record.time2, record.time3,
                                          record.time4};
        const int value = record.value;
        const std::string text(record.text.chars, record.text.length);
        const bool flags[] = {record.flag1 != 0, record.flag2 != 0, record.timezoneSyncEnable != 0};
        if (heard(listener, Listener::settingsEntry))
            listener.settings(event.ids, all[0], all[1], all[2], all[3], all[4], value, text,
                              flags[0], flags[1], flags[2]);
    });
}

int receiveZone(Listener& listener, const Event& event)
{
    return held<chronalMsgTimezone_t>(event, [&](const chronalMsgTimezone_t& record) {
        const std::string name(record.timezone.chars, record.timezone.length);
        const nubOsalTime_struct when = record.time;
        if (heard(listener, Listener::zoneEntry))
            listener.zone(event.ids, name, when);
    });
}

std::int32_t milliseconds(const nubOsalTime_struct& from)
{
    return from.microseconds / 1000;
}

bool isMarker(const nubOsalTime_struct& span)
{
    return nubOsalCompareTime(&span, &chronal::Helpers::deviationInvalid) == 0 ||
           nubOsalCompareTime(&span, &chronal::Helpers::deviationUnknown) == 0;
}

nubOsalTime_struct normalized(nubOsalTime_struct span)
{
    nubOsalNormalizeTime(&span);
    return span;
}

/// Makes the calls of the platform that every span takes which is no marker.
void askAboutSpan(const nubOsalTime_struct& span)
{
    keep(isMarker(span));
    keep(normalized(span));             // for the sign
    keep(normalized(normalized(span))); // for the absolute value, which asks for the sign again
}

/// One piece of a text.
void print(const char* format, std::int64_t number)
{
    std::array<char, 127> piece;
    std::snprintf(piece.data(), piece.size(), format, static_cast<std::int32_t>(number));
    keep(piece);
}

} // namespace

void sendTimes(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
               const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
               const nubOsalTime_struct& time4, const chronal::ReferenceTimeId& id)
{
    Count* const count = created(sizeof(chronalMsgCmdRefTimeData_t), releaseNothing);
    auto& record = recordOf<chronalMsgCmdRefTimeData_t>(*count);
    record.refTimeId = id.id;
    record.time1 = time1;
    record.time2 = time2;
    record.time3 = time3;
    record.time4 = time4;
    handOver(ids, count);
}

void sendSource(fabric::MsgIds& ids, const chronal::ReferenceTimeId& id)
{
    Count* const count = created(sizeof(chronalMsgCmdRefTimeId_t), releaseNothing);
    recordOf<chronalMsgCmdRefTimeId_t>(*count).refTimeId = id.id;
    handOver(ids, count);
}

void sendZone(fabric::MsgIds& ids, const std::string& zone)
{
    Count* const count = created(sizeof(chronalMsgTimezone_t), releaseZone);
    set(recordOf<chronalMsgTimezone_t>(*count).timezone, zone.data(), zone.size());
    handOver(ids, count);
}

void receiveTime()
{
    receiveTime(*hearing, timeEvent);
}

void receiveTimeUnheard()
{
    receiveTime(*deaf, timeEvent);
}

void receiveSettings()
{
    receiveSettings(*hearing, settingsEvent);
}

void receiveSettingsUnheard()
{
    receiveSettings(*deaf, settingsEvent);
}

void receiveShortZone()
{
    receiveZone(*hearing, shortZoneEvent);
}

void receiveShortZoneUnheard()
{
    receiveZone(*deaf, shortZoneEvent);
}

void receiveLongZone()
{
    receiveZone(*hearing, longZoneEvent);
}

void receiveLongZoneUnheard()
{
    receiveZone(*deaf, longZoneEvent);
}

// Texts: the calls of the platform and of snprintf() alone, without the string that they make
// together; a marker has no snprintf().

void printMarker()
{
    if (isMarker(marker))
        keep(std::string("DEVIATION_UNKNOWN"));
}

void printShortSpan()
{
    askAboutSpan(shortSpan);
    print("%is", shortSpan.seconds);
}

void printLongSpan()
{
    askAboutSpan(longSpan);
    const std::int64_t seconds = -longSpan.seconds;
    print("%id", seconds / 86400);
    print(".%02ih", seconds / 3600 % 24);
    print(".%02im", seconds / 60 % 60);
    print(".%02is", seconds % 60);
    print(".%03ims", -milliseconds(longSpan));
    print(".%03ius", -longSpan.microseconds % 1000);
}

void printTime()
{
    keep(normalized(time)); // for the sign
    const nubOsalTime_struct shown = normalized(time);
    const std::time_t seconds = static_cast<std::time_t>(shown.seconds);
    std::tm date;
    gmtime_r(&seconds, &date);
    std::array<char, 127> text;
    std::snprintf(text.data(), text.size(), "'%04i-%02i-%02i %02i:%02i:%02i.%03i'",
                  date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min,
                  date.tm_sec, milliseconds(shown));
    keep(text);
}

} // namespace floors
} // namespace bench
