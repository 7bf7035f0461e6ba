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

namespace bench::floors {
namespace {

void deliverReceived(fabric::MsgIds& ids, ControlBlock* block)
{
    block->acquire();
    Event* const event = new Event({service->serviceId(), 1, 2, 0}, {-1, 2}, block);
    if (application->sendEvent(ids, 0, event) < 0)
        std::abort();
    block->release();
}

void releaseNothing(std::uint32_t, const fabric::MsgMeta*, const nubEndianTable_t*, void*) {}

void releaseZone(std::uint32_t, const fabric::MsgMeta*, const nubEndianTable_t*, void* record)
{
    std::free(static_cast<chronalMsgTimezone_t*>(record)->timezone.chars);
}

/// A message as it arrives.
template <typename Record>
Event arrived(const std::string* text, nubDeserString_t Record::*field)
{
    ControlBlock* const block = created(sizeof(Record), releaseNothing);
    if (text)
        set(recordOf<Record>(*block).*field, text->data(), text->size());
    return {{1, 1, 2, 2}, {-1, 2}, block};
}

Event timeEvent = arrived<chronalMsgReplyTime_t>(nullptr, nullptr);
Event settingsEvent = arrived(&shortZone, &chronalMsgDateTime_t::text);
Event shortZoneEvent = arrived(&shortZone, &chronalMsgTimezone_t::timezone);
Event longZoneEvent = arrived(&longZone, &chronalMsgTimezone_t::timezone);

/// Holds the payload of an event, which may lack it, while `body` reads the record.
template <typename Record, typename Body>
inline int withRecord(const Event& event, const Body& body)
{
    ControlBlock* const block = event.block;
    if (!block)
        return 0;
    block->acquire();
    if (event.owner->record)
        body(*static_cast<const Record*>(event.owner->record));
    block->release();
    return 0;
}

/// Tells whether the listener's class overrides the function, which otherwise does nothing.
inline bool overrides(const Listener& listener, std::size_t entry)
{
    return tableOf(listener)[entry] != tableOf(*bareListener)[entry];
}

int deliverTime(Listener& listener, const Event& event)
{
    return withRecord<chronalMsgReplyTime_t>(event, [&](const chronalMsgReplyTime_t& record) {
        const nubOsalTime_struct deviation = record.utcDeviation;
        const nubOsalTime_struct utc = record.utcTime;
        const nubOsalTime_struct local = record.localTime;
        const chronal::ReferenceTimeId id = record.refTimeId;
        if (overrides(listener, Listener::timeEntry))
            listener.time(event.ids, deviation, utc, local, id, record.flag != 0, record.value);
    });
}

int deliverSettings(Listener& listener, const Event& event)
{
    return withRecord<chronalMsgDateTime_t>(event, [&](const chronalMsgDateTime_t& record) {
        const nubOsalTime_struct all[] = {record.time0, record.time1, record.time2, record.time3,
                                          record.time4};
        const int value = record.value;
        const std::string text(record.text.chars, record.text.length);
        const bool flags[] = {record.flag1 != 0, record.flag2 != 0, record.timezoneSyncEnable != 0};
        if (overrides(listener, Listener::settingsEntry))
            listener.settings(event.ids, all[0], all[1], all[2], all[3], all[4], value, text,
                              flags[0], flags[1], flags[2]);
    });
}

int deliverZone(Listener& listener, const Event& event)
{
    return withRecord<chronalMsgTimezone_t>(event, [&](const chronalMsgTimezone_t& record) {
        const std::string name(record.timezone.chars, record.timezone.length);
        const nubOsalTime_struct when = record.time;
        if (overrides(listener, Listener::zoneEntry))
            listener.zone(event.ids, name, when);
    });
}

template <int (*deliver)(Listener&, const Event&), Listener*& listener, Event& event>
void receive()
{
    deliver(*listener, event);
}

std::int32_t milliseconds(const nubOsalTime_struct& from) { return from.microseconds / 1000; }

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

/// Makes the calls of the platform that the text of every span takes, unless it is a marker.
void askAboutSpan(const nubOsalTime_struct& span)
{
    keep(isMarker(span));
    keep(normalized(span));             // for the sign
    keep(normalized(normalized(span))); // for the absolute value, which takes the sign again
}

/// Formats one piece of a text.
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
    ControlBlock* const block = created(sizeof(chronalMsgCmdRefTimeData_t), releaseNothing);
    auto& record = recordOf<chronalMsgCmdRefTimeData_t>(*block);
    record.refTimeId = id.id;
    record.time1 = time1;
    record.time2 = time2;
    record.time3 = time3;
    record.time4 = time4;
    deliverReceived(ids, block);
}

void sendSource(fabric::MsgIds& ids, const chronal::ReferenceTimeId& id)
{
    ControlBlock* const block = created(sizeof(chronalMsgCmdRefTimeId_t), releaseNothing);
    recordOf<chronalMsgCmdRefTimeId_t>(*block).refTimeId = id.id;
    deliverReceived(ids, block);
}

void sendZone(fabric::MsgIds& ids, const std::string& zone)
{
    ControlBlock* const block = created(sizeof(chronalMsgTimezone_t), releaseZone);
    set(recordOf<chronalMsgTimezone_t>(*block).timezone, zone.data(), zone.size());
    deliverReceived(ids, block);
}

const Function receiveTime = receive<deliverTime, overridingListener, timeEvent>;
const Function receiveTimeDefault = receive<deliverTime, bareListener, timeEvent>;
const Function receiveSettings = receive<deliverSettings, overridingListener, settingsEvent>;
const Function receiveSettingsDefault = receive<deliverSettings, bareListener, settingsEvent>;
const Function receiveShortZone = receive<deliverZone, overridingListener, shortZoneEvent>;
const Function receiveShortZoneDefault = receive<deliverZone, bareListener, shortZoneEvent>;
const Function receiveLongZone = receive<deliverZone, overridingListener, longZoneEvent>;
const Function receiveLongZoneDefault = receive<deliverZone, bareListener, longZoneEvent>;

// Texts: the calls of the platform and of snprintf() alone, without joining the pieces to a string.
// A marker takes no snprintf().

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

} // namespace bench::floors
