#include "Floor.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "FloorMiddleware.h"
#include "Samples.h"
#include <chronal/MessageRecords.h>

namespace bench {
namespace floors {
namespace {

void* checked(void* block)
{
    if (!block)
        throw std::bad_alloc();
    return block;
}

Count* created(std::size_t size, Release releaseStrings)
{
    void* const record = checked(std::calloc(1, size));
    Owner* const owner = new Owner{releaseStrings, record, 0, nullptr};
    return new Count{nullptr, {1}, {1}, owner};
}

void handOver(fabric::MsgIds& ids, Count* count)
{
    count->acquire();
    Event* const event =
        new Event{nullptr, {service->serviceId(), 1, 2, 0}, {-1, 2}, {}, count->owner, count};
    if (application->sendEvent(ids, 0, event) < 0)
        std::abort();
    count->release();
}

template <typename Record>
Record& recordOf(const Count& count)
{
    return *static_cast<Record*>(count.owner->record);
}

void set(nubDeserString_t& field, const char* chars, std::size_t length)
{
    field.length = static_cast<std::uint32_t>(length);
    field.chars = static_cast<char*>(checked(std::malloc(length + 1)));
    std::memcpy(field.chars, chars, length);
    field.chars[length] = '\0';
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
    return {nullptr, {1, 1, 2, 2}, {-1, 2}, {}, count->owner, count};
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

// Frames: the header's words and the record's, each swapped in its place.

template <typename Word>
std::uint8_t* put(std::uint8_t* out, Word word)
{
    word = sizeof(Word) == 8
               ? static_cast<Word>(__builtin_bswap64(static_cast<std::uint64_t>(word)))
               : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
    std::memcpy(out, &word, sizeof(word));
    return out + sizeof(word);
}

template <typename Word>
const std::uint8_t* get(const std::uint8_t* in, Word& word)
{
    std::memcpy(&word, in, sizeof(word));
    word = sizeof(Word) == 8
               ? static_cast<Word>(__builtin_bswap64(static_cast<std::uint64_t>(word)))
               : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
    return in + sizeof(word);
}

std::uint8_t* put(std::uint8_t* out, const nubOsalTime_struct& from)
{
    return put(put(out, from.seconds), from.microseconds);
}

const std::uint8_t* get(const std::uint8_t* in, nubOsalTime_struct& to)
{
    return get(get(in, to.seconds), to.microseconds);
}

std::uint8_t* putHeader(std::vector<std::uint8_t>& frame, std::size_t size)
{
    frame.resize(size);
    std::uint8_t* out = put(frame.data(), static_cast<std::uint32_t>(size));
    for (std::uint32_t word = 0; word < 8; ++word)
        out = put(out, word);
    return out;
}

std::vector<std::uint8_t> encoded(const chronalMsgCmdRefTimeData_t& record,
                                  std::vector<std::uint8_t> frame)
{
    std::uint8_t* out = put(putHeader(frame, 36 + 56), std::int32_t{record.refTimeId});
    out = put(out, record.time1);
    out = put(out, record.time2);
    out = put(out, record.value);
    out = put(out, record.time3);
    put(out, record.time4);
    return frame;
}

std::vector<std::uint8_t> encoded(const std::string& text, const nubOsalTime_struct& when,
                                  std::vector<std::uint8_t> frame)
{
    std::uint8_t* out =
        put(putHeader(frame, 36 + 4 + text.size() + 12), static_cast<std::uint32_t>(text.size()));
    std::memcpy(out, text.data(), text.size());
    put(out + text.size(), when);
    return frame;
}

chronalMsgCmdRefTimeData_t timesRecord;
std::vector<std::uint8_t> timesFrame = encoded(timesRecord, {});
std::vector<std::uint8_t> zoneFrame = encoded(longZone, time, {});

/// The message that a frame's header and its record make, at once released.
void deliver(const std::uint8_t* header, Count* count)
{
    Event* const event = new Event{nullptr, {}, {}, {}, count->owner, count};
    header = get(header + 4, event->identity.serviceId);
    header = get(header, event->identity.resourceId);
    header = get(header, event->identity.operationId);
    event->identity.kind = *header;
    header = get(header + 4, event->sender.node);
    header = get(header, event->sender.componentId);
    header = get(header, event->ids.originId);
    get(header, event->ids.messageId);
    keep(*event);
    event->count->release();
    delete event;
}

std::int32_t milliseconds(const nubOsalTime_struct& from)
{
    return from.microseconds / 1000;
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

void encodeTimes()
{
    keep(timesRecord);
    timesFrame = encoded(timesRecord, std::move(timesFrame));
    keep(timesFrame);
}

void encodeZone()
{
    zoneFrame = encoded(longZone, time, std::move(zoneFrame));
    keep(zoneFrame);
}

void decodeTimes()
{
    Count* const count = created(sizeof(chronalMsgCmdRefTimeData_t), releaseNothing);
    auto& record = recordOf<chronalMsgCmdRefTimeData_t>(*count);
    std::int32_t word;
    const std::uint8_t* in = get(timesFrame.data() + 36, word);
    record.refTimeId = static_cast<chronal::referenceTimeId_enum>(word);
    in = get(in, record.time1);
    in = get(in, record.time2);
    in = get(in, record.value);
    in = get(in, record.time3);
    get(in, record.time4);
    deliver(timesFrame.data(), count);
}

void decodeZone()
{
    Count* const count = created(sizeof(chronalMsgTimezone_t), releaseZone);
    auto& record = recordOf<chronalMsgTimezone_t>(*count);
    std::uint32_t length;
    const std::uint8_t* const in = get(zoneFrame.data() + 36, length);
    set(record.timezone, reinterpret_cast<const char*>(in), length);
    get(in + length, record.time);
    deliver(zoneFrame.data(), count);
}

// Texts: the snprintf() calls alone, without the string that they make together; a marker has none.

void printMarker()
{
    keep(std::string("DEVIATION_UNKNOWN"));
}

void printShortSpan()
{
    print("%is", shortSpan.seconds);
}

void printLongSpan()
{
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
    const std::time_t seconds = static_cast<std::time_t>(time.seconds);
    std::tm date;
    gmtime_r(&seconds, &date);
    std::array<char, 127> text;
    std::snprintf(text.data(), text.size(), "'%04i-%02i-%02i %02i:%02i:%02i.%03i'",
                  date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min,
                  date.tm_sec, milliseconds(time));
    keep(text);
}

} // namespace floors
} // namespace bench
