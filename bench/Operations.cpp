#include "Operations.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>
#include <fabric-host/Frame.h>
#include <fabric/Twine.h>

#include "../tests/support/NullMiddleware.h"
#include "Floor.h"
#include "FloorFrames.h"
#include "Samples.h"

namespace bench {
namespace {

using namespace fabric::host;

constexpr std::uint32_t serviceId = 1;

class BareAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
    ~BareAdapter() override = default;
};

/// Overrides the callbacks that are measured.
class OverridingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
    ~OverridingAdapter() override = default;

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
desk::NullComponent component;
desk::NullApplication application(holder);
desk::NullService service;

template <typename Adapter>
struct Ready : Adapter
{
    Ready() : Adapter(application, component) { this->setServiceInterface(&service); }
};

Ready<BareAdapter> bare;
Ready<OverridingAdapter> overriding;
fabric::MsgIds ids;

fabric::SerializableMessageEvent arrived(const nubEndianTable_t& table, const std::string& text)
{
    const auto data = fabric::SerializableMessageData::create(table.size, table);
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        if (entry->code >> 16 != nubEndianRecord ||
            entry->argument.table != &__nub_EndianTable_nubDeserString_t)
            continue;
        nubDeserString_t string = {static_cast<std::uint32_t>(text.size()),
                                   static_cast<char*>(std::malloc(text.size() + 1))};
        if (!string.chars)
            throw std::bad_alloc();
        std::memcpy(string.chars, text.c_str(), text.size() + 1);
        std::memcpy(static_cast<char*>(data->payload) + (entry->code & 0xffff), &string,
                    sizeof(string));
    }
    return {{serviceId, 1, 2, 0}, {-1, 2}, data};
}

FrameBytes encoded(const fabric::SerializableMessageEvent& event, const MessageCatalogue& catalogue)
{
    FrameBytes frame;
    std::string reason;
    encodeFrame(event, catalogue, frame, reason);
    return frame;
}

/// A message of one kind as it arrives.
struct Sample
{
    explicit Sample(const nubEndianTable_t& table, const std::string& text = longZone)
        : event(arrived(table, text)),
          type{"message", 1, 2, 0, &table},
          catalogue(serviceId, &type, 1),
          frame(encoded(event, catalogue))
    {
    }

    const fabric::SerializableMessageEvent event;
    const MessageType type;
    MessageCatalogue catalogue;
    const FrameBytes frame;
};

const nubEndianEntry_t noEntries[] = {{0, nubEndianArgument_t(std::uintptr_t(0xffffffff))}};
const nubEndianTable_t emptyTable = {sizeof(std::uint32_t), noEntries};

const Sample nothing(emptyTable); ///< a record without fields
const Sample dummy(__nub_EndianTable_chronalCmdDummy_t);
const Sample dst(__nub_EndianTable_chronalMsgDST_t);
const Sample dtvTime(__nub_EndianTable_chronalMsgDtvTime_t);
const Sample timezoneShort(__nub_EndianTable_chronalMsgTimezone_t, shortZone);
const Sample timezoneLong(__nub_EndianTable_chronalMsgTimezone_t);
const Sample autoTime(__nub_EndianTable_chronalMsgAutoTime_t);
const Sample ntpData(__nub_EndianTable_chronalMsgNtpData_t);
const Sample dateTime(__nub_EndianTable_chronalMsgDateTime_t, shortZone);
const Sample replyResult(__nub_EndianTable_chronalMsgReplyResult_t);
const Sample replyTime(__nub_EndianTable_chronalMsgReplyTime_t);
const Sample timeAtData(__nub_EndianTable_chronalMsgCmdTimeAtData_t);
const Sample refTimeData(__nub_EndianTable_chronalMsgCmdRefTimeData_t);
const Sample refTimeId(__nub_EndianTable_chronalMsgCmdRefTimeId_t);

/// The same by hand.
namespace by_hand {

floors::Frames<chronalCmdDummy_t, &chronalCmdDummy_t::dummy> dummy;
floors::Frames<chronalMsgDST_t, &chronalMsgDST_t::dst> dst;
floors::Frames<chronalMsgDtvTime_t, &chronalMsgDtvTime_t::dtvTime> dtvTime;
floors::Frames<chronalMsgTimezone_t, &chronalMsgTimezone_t::timezone, &chronalMsgTimezone_t::time>
    timezone;
floors::Frames<chronalMsgAutoTime_t, &chronalMsgAutoTime_t::autoTime> autoTime;
floors::Frames<chronalMsgNtpData_t, &chronalMsgNtpData_t::text, &chronalMsgNtpData_t::flag> ntpData;
floors::Frames<chronalMsgDateTime_t, &chronalMsgDateTime_t::time0, &chronalMsgDateTime_t::time1,
               &chronalMsgDateTime_t::time2, &chronalMsgDateTime_t::time3,
               &chronalMsgDateTime_t::time4, &chronalMsgDateTime_t::value,
               &chronalMsgDateTime_t::text, &chronalMsgDateTime_t::flag1,
               &chronalMsgDateTime_t::flag2, &chronalMsgDateTime_t::timezoneSyncEnable>
    dateTime(shortZone);
floors::Frames<chronalMsgReplyResult_t, &chronalMsgReplyResult_t::result> replyResult;
floors::Frames<chronalMsgReplyTime_t, &chronalMsgReplyTime_t::refTimeId,
               &chronalMsgReplyTime_t::utcTime, &chronalMsgReplyTime_t::utcDeviation,
               &chronalMsgReplyTime_t::localTime, &chronalMsgReplyTime_t::flag,
               &chronalMsgReplyTime_t::value>
    replyTime;
floors::Frames<chronalMsgCmdTimeAtData_t, &chronalMsgCmdTimeAtData_t::time,
               &chronalMsgCmdTimeAtData_t::isUtc>
    timeAtData;
floors::Frames<chronalMsgCmdRefTimeData_t, &chronalMsgCmdRefTimeData_t::refTimeId,
               &chronalMsgCmdRefTimeData_t::time1, &chronalMsgCmdRefTimeData_t::time2,
               &chronalMsgCmdRefTimeData_t::value, &chronalMsgCmdRefTimeData_t::time3,
               &chronalMsgCmdRefTimeData_t::time4>
    refTimeData;
floors::Frames<chronalMsgCmdRefTimeId_t, &chronalMsgCmdRefTimeId_t::refTimeId> refTimeId;

} // namespace by_hand

FrameBytes target;

template <const Sample& sample>
void encode()
{
    std::string reason;
    encodeFrame(sample.event, sample.catalogue, target, reason);
    keep(target);
}

template <const Sample& sample>
void decode()
{
    std::string reason;
    keep(*decodeFrame(sample.frame, sample.catalogue, reason));
}

template <auto& frames>
void encodeByHand()
{
    frames.encode();
}

template <auto& frames>
void decodeByHand()
{
    frames.decode();
}

/// Makes the call of the middleware that the release of a message takes.
template <const Sample& sample>
void release()
{
    const fabric::MsgMeta identity = {0xFFFFFFFFU, 0, 0, 0xFF};
    const fabric::SerializableMessageData& data = *sample.event.data;
    fabricTwineDeserReleaseMessage(0, &identity, data.endianTable, data.payload);
}

void print(const nubOsalTime_struct& span) { keep(chronal::Helpers::getTimeSpanStr(span)); }

} // namespace

// clang-format off
const std::vector<Operation> operations = {
    {"send/80-byte", [] { bare.cmdSendDaylightsavingInfo(ids, time, time, time, time, source); }, [] { floors::sendTimes(ids, time, time, time, time, source); }},
    {"send/4-byte", [] { bare.cmdRefTimeFetch(ids, source); }, [] { floors::sendSource(ids, source); }},
    {"send/string", [] { bare.cmdTimezoneSet(ids, longZone); }, [] { floors::sendZone(ids, longZone); }},

    {"receive/64-byte", [] { overriding.callReplyTimeRefInfo(replyTime.event); }, floors::receiveTime},
    {"receive/64-byte-default", [] { bare.callReplyTimeRefInfo(replyTime.event); }, floors::receiveTimeDefault},
    {"receive/104-byte", [] { overriding.callReplyDateTimeSettingsInfo(dateTime.event); }, floors::receiveSettings},
    {"receive/104-byte-default", [] { bare.callReplyDateTimeSettingsInfo(dateTime.event); }, floors::receiveSettingsDefault},
    {"receive/short-string", [] { overriding.callReplyTimezoneInfo(timezoneShort.event); }, floors::receiveShortZone},
    {"receive/short-string-default", [] { bare.callReplyTimezoneInfo(timezoneShort.event); }, floors::receiveShortZoneDefault},
    {"receive/long-string", [] { overriding.callReplyTimezoneInfo(timezoneLong.event); }, floors::receiveLongZone},
    {"receive/long-string-default", [] { bare.callReplyTimezoneInfo(timezoneLong.event); }, floors::receiveLongZoneDefault},

    {"release/80-byte", release<refTimeData>, nullptr},
    {"release/4-byte", release<refTimeId>, nullptr},

    {"encode/dummy", encode<dummy>, encodeByHand<by_hand::dummy>},
    {"encode/dst", encode<dst>, encodeByHand<by_hand::dst>},
    {"encode/dtv-time", encode<dtvTime>, encodeByHand<by_hand::dtvTime>},
    {"encode/timezone", encode<timezoneLong>, encodeByHand<by_hand::timezone>},
    {"encode/auto-time", encode<autoTime>, encodeByHand<by_hand::autoTime>},
    {"encode/ntp-data", encode<ntpData>, encodeByHand<by_hand::ntpData>},
    {"encode/date-time", encode<dateTime>, encodeByHand<by_hand::dateTime>},
    {"encode/reply-result", encode<replyResult>, encodeByHand<by_hand::replyResult>},
    {"encode/reply-time", encode<replyTime>, encodeByHand<by_hand::replyTime>},
    {"encode/time-at-data", encode<timeAtData>, encodeByHand<by_hand::timeAtData>},
    {"encode/ref-time-data", encode<refTimeData>, encodeByHand<by_hand::refTimeData>},
    {"encode/ref-time-id", encode<refTimeId>, encodeByHand<by_hand::refTimeId>},

    {"decode/nothing", decode<nothing>, nullptr},
    {"decode/dummy", decode<dummy>, decodeByHand<by_hand::dummy>},
    {"decode/dst", decode<dst>, decodeByHand<by_hand::dst>},
    {"decode/dtv-time", decode<dtvTime>, decodeByHand<by_hand::dtvTime>},
    {"decode/timezone", decode<timezoneLong>, decodeByHand<by_hand::timezone>},
    {"decode/auto-time", decode<autoTime>, decodeByHand<by_hand::autoTime>},
    {"decode/ntp-data", decode<ntpData>, decodeByHand<by_hand::ntpData>},
    {"decode/date-time", decode<dateTime>, decodeByHand<by_hand::dateTime>},
    {"decode/reply-result", decode<replyResult>, decodeByHand<by_hand::replyResult>},
    {"decode/reply-time", decode<replyTime>, decodeByHand<by_hand::replyTime>},
    {"decode/time-at-data", decode<timeAtData>, decodeByHand<by_hand::timeAtData>},
    {"decode/ref-time-data", decode<refTimeData>, decodeByHand<by_hand::refTimeData>},
    {"decode/ref-time-id", decode<refTimeId>, decodeByHand<by_hand::refTimeId>},

    {"text/marker", [] { print(marker); }, floors::printMarker},
    {"text/short-span", [] { print(shortSpan); }, floors::printShortSpan},
    {"text/long-span", [] { print(longSpan); }, floors::printLongSpan},
    {"text/time", [] { keep(chronal::Helpers::getTimeStr(time)); }, floors::printTime},
};
// clang-format on

} // namespace bench
