#include "Operations.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

#include "Floor.h"
#include "Frame.h"
#include "Samples.h"

namespace bench {

namespace {

using namespace fabric::host;

constexpr std::uint32_t serviceId = 1;

// The middleware that does nothing but what it must.

class NullService : public fabric::ServiceInterface
{
public:
    std::uint32_t getServiceId() override { return serviceId; }
};

class NullComponent : public fabric::AbstractComponent
{
public:
    NullComponent() : AbstractComponent(2) {}
    int addEventHandler(const fabric::MsgMeta&, int, const fabric::EventHandler&) override
    {
        return 0;
    }
    void removeEventHandler(int) override {}
};

class NullApplication : public fabric::AbstractApplication
{
public:
    using AbstractApplication::AbstractApplication;
    int addEventHandler(const fabric::MsgMeta&, int, const fabric::EventHandler&) override
    {
        return 0;
    }
    int sendEvent(fabric::MsgIds&, int, fabric::SerializableMessageEvent* event) override
    {
        delete event;
        return 0;
    }
};

/// Hears nothing.
class DeafAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
    ~DeafAdapter() override = default;
};

/// Hears what is received here.
class HearingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
    ~HearingAdapter() override = default;

protected:
    void onReplyTimeRefInfo(const fabric::MsgIds&, const nubOsalTime_struct& deviation,
                            const nubOsalTime_struct&, const nubOsalTime_struct&,
                            const chronal::ReferenceTimeId&, bool, int) override
    {
        keep(deviation);
    }
    void onReplyDateTimeSettingsInfo(const fabric::MsgIds&, const nubOsalTime_struct& time0,
                                     const nubOsalTime_struct&, const nubOsalTime_struct&,
                                     const nubOsalTime_struct&, const nubOsalTime_struct&,
                                     const int&, const std::string&, const bool&, const bool&,
                                     const bool&) override
    {
        keep(time0);
    }
    void onReplyTimezoneInfo(const fabric::MsgIds&, const std::string& zone,
                             const nubOsalTime_struct&) override
    {
        keep(zone);
    }
};

fabric::StateHolder holder;
NullComponent component;
NullApplication application(holder);
NullService service;

template <typename Adapter>
struct Ready : Adapter
{
    Ready() : Adapter(application, component) { this->setServiceInterface(&service); }
};

Ready<DeafAdapter> deaf;
Ready<HearingAdapter> hearing;
fabric::MsgIds ids;

/// A message as it arrives.
template <typename Record>
fabric::SerializableMessageEvent arrived(const nubEndianTable_t& table,
                                         nubDeserString_t Record::*field, const std::string& text)
{
    const auto data = fabric::SerializableMessageData::create(sizeof(Record), table);
    if (field) {
        const std::size_t length = text.size();
        char* const chars = static_cast<char*>(std::malloc(length + 1));
        std::memcpy(chars, text.c_str(), length + 1);
        static_cast<Record*>(data->payload)->*field = {static_cast<std::uint32_t>(length), chars};
    }
    return {{serviceId, 1, 2, 0}, {-1, 2}, data};
}

const fabric::SerializableMessageEvent timeEvent =
    arrived<chronalMsgReplyTime_t>(__nub_EndianTable_chronalMsgReplyTime_t, nullptr, "");
const fabric::SerializableMessageEvent settingsEvent =
    arrived(__nub_EndianTable_chronalMsgDateTime_t, &chronalMsgDateTime_t::text, shortZone);
const fabric::SerializableMessageEvent shortZoneEvent =
    arrived(__nub_EndianTable_chronalMsgTimezone_t, &chronalMsgTimezone_t::timezone, shortZone);
const fabric::SerializableMessageEvent longZoneEvent =
    arrived(__nub_EndianTable_chronalMsgTimezone_t, &chronalMsgTimezone_t::timezone, longZone);
const fabric::SerializableMessageEvent timesEvent =
    arrived<chronalMsgCmdRefTimeData_t>(__nub_EndianTable_chronalMsgCmdRefTimeData_t, nullptr, "");

FrameBytes encoded(const fabric::SerializableMessageEvent& event)
{
    FrameBytes frame;
    encodeFrame(event, frame);
    return frame;
}

FrameBytes target;
const FrameBytes timesFrame = encoded(timesEvent);
const FrameBytes zoneFrame = encoded(longZoneEvent);

void encode(const fabric::SerializableMessageEvent& event)
{
    encodeFrame(event, target);
    keep(target);
}

void decode(const FrameBytes& frame, const nubEndianTable_t& table)
{
    const MessageType type = {"message", 1, 2, 0, &table};
    std::string reason;
    keep(*decodeFrame(frame, {serviceId, &type, 1}, reason));
}

void putTime()
{
    const std::time_t seconds = static_cast<std::time_t>(time.seconds);
    std::tm date;
    gmtime_r(&seconds, &date);
    std::ostringstream out;
    out << std::put_time(&date, "'%Y-%m-%d %H:%M:%S.") << std::setw(3) << std::setfill('0')
        << time.microseconds / 1000 << '\'';
    keep(out.str());
}

void print(const nubOsalTime_struct& span)
{
    keep(chronal::Helpers::getTimeSpanStr(span));
}

} // namespace

// clang-format off
const Operation operations[] = {
    {"send/80-byte", [] { deaf.cmdSendDaylightsavingInfo(ids, time, time, time, time, source); }, [] { floors::sendTimes(ids, time, time, time, time, source); }, nullptr},
    {"send/4-byte", [] { deaf.cmdRefTimeFetch(ids, source); }, [] { floors::sendSource(ids, source); }, nullptr},
    {"send/string", [] { deaf.cmdTimezoneSet(ids, longZone); }, [] { floors::sendZone(ids, longZone); }, nullptr},
    {"receive/64-byte", [] { hearing.callReplyTimeRefInfo(timeEvent); }, floors::receiveTime, nullptr},
    {"receive/64-byte-unheard", [] { deaf.callReplyTimeRefInfo(timeEvent); }, floors::receiveTimeUnheard, nullptr},
    {"receive/104-byte", [] { hearing.callReplyDateTimeSettingsInfo(settingsEvent); }, floors::receiveSettings, nullptr},
    {"receive/short-string", [] { hearing.callReplyTimezoneInfo(shortZoneEvent); }, floors::receiveShortZone, nullptr},
    {"receive/long-string", [] { hearing.callReplyTimezoneInfo(longZoneEvent); }, floors::receiveLongZone, nullptr},
    {"receive/long-string-unheard", [] { deaf.callReplyTimezoneInfo(longZoneEvent); }, floors::receiveLongZoneUnheard, nullptr},
    {"encode/80-byte", [] { encode(timesEvent); }, floors::encodeTimes, nullptr},
    {"encode/string", [] { encode(longZoneEvent); }, floors::encodeZone, nullptr},
    {"decode/80-byte", [] { decode(timesFrame, __nub_EndianTable_chronalMsgCmdRefTimeData_t); }, floors::decodeTimes, nullptr},
    {"decode/string", [] { decode(zoneFrame, __nub_EndianTable_chronalMsgTimezone_t); }, floors::decodeZone, nullptr},
    {"text/short-span", [] { print(shortSpan); }, floors::printShortSpan, nullptr},
    {"text/long-span", [] { print(longSpan); }, floors::printLongSpan, nullptr},
    {"text/time", [] { keep(chronal::Helpers::getTimeStr(time)); }, floors::printTime, putTime},
};
// clang-format on
const std::size_t operationCount = sizeof(operations) / sizeof(operations[0]);

} // namespace bench
