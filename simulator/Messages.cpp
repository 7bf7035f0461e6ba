#include <chronal-sim/Messages.h>

#include <iterator>
#include <memory>

#include <chronal/Helpers.h>
#include <fabric-host/Printable.h>

#include "api-chronal-record-text.h"
#include "api-chronal-service-identifiers.h"

namespace chronal::sim {

// The columns are name, resource, operation and kind. cmdLocaltimeAt and cmdUTCTimeAt send the same
// message, cmdTimeAt.
#define CHRONAL_SIM_MESSAGES(ROW)                                                                  \
    ROW(cmdRefTimeSet, resourceRefTime, operationSet, kindCommand)                                 \
    ROW(cmdRefLocalTimeSet, resourceRefLocalTime, operationSet, kindCommand)                       \
    ROW(cmdRefTimeFetch, resourceRefTime, operationFetch, kindCommand)                             \
    ROW(cmdNextTimeDeviationChangeSet, resourceDeviation, operationSet, kindCommand)               \
    ROW(cmdSendDaylightsavingInfo, resourceDaylightSavingInfo, operationSet, kindCommand)          \
    ROW(cmdNextTimeDeviationChangeFetch, resourceDeviation, operationFetch, kindCommand)           \
    ROW(cmdRefTimeSubscribe, resourceRefTime, operationSubscribe, kindCommand)                     \
    ROW(cmdRefTimeUnsubscribe, resourceRefTime, operationUnsubscribe, kindCommand)                 \
    ROW(cmdRefTimeLock, resourceRefTime, operationLock, kindCommand)                               \
    ROW(cmdRefTimeUnlock, resourceRefTime, operationUnlock, kindCommand)                           \
    ROW(cmdRefTimeAt, resourceRefTime, operationAt, kindCommand)                                   \
    ROW(cmdTimeAt, resourceDeviation, operationAt, kindCommand)                                    \
    ROW(cmdDateTimeSettingsSet, resourceDateTimeSettings, operationSet, kindCommand)               \
    ROW(cmdTimezoneSyncEnableSet, resourceTimezoneSync, operationSet, kindCommand)                 \
    ROW(cmdDateTimeNtpSet, resourceNtp, operationSet, kindCommand)                                 \
    ROW(cmdDateTimeNtpStart, resourceNtp, operationStart, kindCommand)                             \
    ROW(cmdDateTimeAutoTimeSet, resourceAutoTime, operationSet, kindCommand)                       \
    ROW(cmdDateTimeSettingsFetch, resourceDateTimeSettings, operationFetch, kindCommand)           \
    ROW(cmdTimezoneSet, resourceTimezone, operationSet, kindCommand)                               \
    ROW(cmdTimezoneFetch, resourceTimezone, operationFetch, kindCommand)                           \
    ROW(cmdTimeInit, resourceTimeInit, operationInit, kindCommand)                                 \
    ROW(replyResult, resourceResult, operationInfo, kindReply)                                     \
    ROW(replyTimeRefInfo, resourceRefTime, operationInfo, kindReply)                               \
    ROW(replyTimeRefAt, resourceRefTime, operationAt, kindReply)                                   \
    ROW(replyTimeAt, resourceDeviation, operationAt, kindReply)                                    \
    ROW(replyUtcDeviationInfo, resourceDeviation, operationInfo, kindReply)                        \
    ROW(replyDateTimeSettingsInfo, resourceDateTimeSettings, operationInfo, kindReply)             \
    ROW(replyTimezoneInfo, resourceTimezone, operationInfo, kindReply)                             \
    ROW(notifyCurrentTime, resourceCurrentTime, operationInfo, kindNotification)                   \
    ROW(notifyDeviationChange, resourceDeviation, operationInfo, kindNotification)                 \
    ROW(notifyTimezoneChange, resourceTimezone, operationInfo, kindNotification)                   \
    ROW(notifyDtvTimeChange, resourceDtvTime, operationInfo, kindNotification)                     \
    ROW(notifyDSTChange, resourceDst, operationInfo, kindNotification)

#define CHRONAL_SIM_TABLE(record)                                                                  \
    constexpr const nubEndianTable_t* tableOf(const record*) { return &__nub_EndianTable_##record; }
CHRONAL_SIM_TABLE(chronalCmdDummy_t)
CHRONAL_SIM_TABLE(chronalMsgDST_t)
CHRONAL_SIM_TABLE(chronalMsgDtvTime_t)
CHRONAL_SIM_TABLE(chronalMsgTimezone_t)
CHRONAL_SIM_TABLE(chronalMsgAutoTime_t)
CHRONAL_SIM_TABLE(chronalMsgNtpData_t)
CHRONAL_SIM_TABLE(chronalMsgDateTime_t)
CHRONAL_SIM_TABLE(chronalMsgReplyResult_t)
CHRONAL_SIM_TABLE(chronalMsgReplyTime_t)
CHRONAL_SIM_TABLE(chronalMsgCmdTimeAtData_t)
CHRONAL_SIM_TABLE(chronalMsgCmdRefTimeData_t)
CHRONAL_SIM_TABLE(chronalMsgCmdRefTimeId_t)
#undef CHRONAL_SIM_TABLE

// Their values are constants, which exist before any code runs.
// NOLINTBEGIN(bugprone-macro-parentheses): the name is declared
#define CHRONAL_SIM_DEFINE(name, resource, operation, kind)                                        \
    constexpr decltype(name) name{{#name, detail::resource, detail::operation, detail::kind,       \
                                   tableOf(static_cast<const decltype(name)::Record*>(nullptr))}};
// NOLINTEND(bugprone-macro-parentheses)
CHRONAL_SIM_MESSAGES(CHRONAL_SIM_DEFINE)
#undef CHRONAL_SIM_DEFINE

namespace {

constexpr char utcTimeAt[] = "cmdUTCTimeAt";
constexpr char localtimeAt[] = "cmdLocaltimeAt";

bool isTimeAt(const fabric::host::MessageType& type)
{
    return type.name == cmdTimeAt.name; // the catalogue's copy shares the pointer
}

bool isSpan(const nubOsalTime_struct& time)
{
    const std::int64_t most = -Helpers::deviationUnknown.seconds;
    return time.seconds >= -most && time.seconds <= most;
}

std::string text(const nubOsalTime_struct& time) { return timeText(time); }

std::string text(referenceTimeId_enum source)
{
    return Helpers::getRefTimeStr(source) + "(" + std::to_string(source) + ")";
}

std::string text(std::int32_t word) { return std::to_string(word); }

std::string text(const nubDeserString_t& string)
{
    return '"' + fabric::host::printable(detail::readText(string), "\"\\") + '"';
}

class Fields
{
public:
    explicit Fields(std::string& line) : line_(line) {}

    template <class Value>
    Fields& operator()(const char* name, const Value& value)
    {
        line_.append(" ").append(name).append("=").append(text(value));
        return *this;
    }

private:
    std::string& line_;
};

void list(Fields field, const chronalCmdDummy_t& record) { field("dummy", record.dummy); }

void list(Fields field, const chronalMsgDST_t& record) { field("dst", record.dst); }

void list(Fields field, const chronalMsgDtvTime_t& record) { field("dtvTime", record.dtvTime); }

void list(Fields field, const chronalMsgTimezone_t& record)
{
    field("timezone", record.timezone)("time", record.time);
}

void list(Fields field, const chronalMsgAutoTime_t& record) { field("autoTime", record.autoTime); }

void list(Fields field, const chronalMsgNtpData_t& record)
{
    field("text", record.text)("flag", record.flag);
}

void list(Fields field, const chronalMsgDateTime_t& record)
{
    field("time0", record.time0)("time1", record.time1)("time2", record.time2);
    field("time3", record.time3)("time4", record.time4)("value", record.value);
    field("text", record.text)("flag1", record.flag1)("flag2", record.flag2);
    field("timezoneSyncEnable", record.timezoneSyncEnable);
}

void list(Fields field, const chronalMsgReplyResult_t& record) { field("result", record.result); }

void list(Fields field, const chronalMsgReplyTime_t& record)
{
    field("refTimeId", record.refTimeId)("utcTime", record.utcTime);
    field("utcDeviation", record.utcDeviation)("localTime", record.localTime);
    field("flag", record.flag)("value", record.value);
}

void list(Fields field, const chronalMsgCmdTimeAtData_t& record)
{
    field("time", record.time)("isUtc", record.isUtc);
}

void list(Fields field, const chronalMsgCmdRefTimeData_t& record)
{
    field("refTimeId", record.refTimeId)("time1", record.time1)("value", record.value);
    field("time2", record.time2)("time3", record.time3)("time4", record.time4);
}

void list(Fields field, const chronalMsgCmdRefTimeId_t& record)
{
    field("refTimeId", record.refTimeId);
}

template <class Record>
void listPayload(std::string& line, const void* payload)
{
    list(Fields(line), *static_cast<const Record*>(payload));
}

// Indexed like the catalogue's types.
constexpr void (*payloads[])(std::string& line, const void* payload) = {
#define CHRONAL_SIM_PAYLOAD(name, resource, operation, kind) listPayload<decltype(name)::Record>,
    CHRONAL_SIM_MESSAGES(CHRONAL_SIM_PAYLOAD)
#undef CHRONAL_SIM_PAYLOAD
};

} // namespace

const fabric::host::MessageCatalogue& catalogue()
{
#define CHRONAL_SIM_NAME(name, resource, operation, kind) name,
    static constexpr fabric::host::MessageType types[] = {CHRONAL_SIM_MESSAGES(CHRONAL_SIM_NAME)};
#undef CHRONAL_SIM_NAME
    static const fabric::host::MessageCatalogue all(29032007, types, std::size(types));
    return all;
}

const fabric::host::MessageType* typeOf(const fabric::SerializableMessageEvent& message)
{
    const fabric::MsgMeta& meta = message.meta;
    return catalogue().find(meta.resourceId, meta.operationId, meta.kind);
}

const char* nameOf(const fabric::SerializableMessageEvent& message)
{
    const fabric::host::MessageType* const type = typeOf(message);
    if (!type || !isTimeAt(*type))
        return type ? type->name : nullptr;
    const auto& record = *static_cast<const chronalMsgCmdTimeAtData_t*>(message.data->payload);
    return record.isUtc ? utcTimeAt : localtimeAt;
}

std::vector<std::string> commandNames()
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < catalogue().count; ++i) {
        const fabric::host::MessageType& type = catalogue().types[i];
        if (isTimeAt(type))
            names.insert(names.end(), {utcTimeAt, localtimeAt});
        else if (type.kind == detail::kindCommand)
            names.emplace_back(type.name);
    }
    return names;
}

std::unique_ptr<fabric::SerializableMessageEvent> newEvent(const Content& content,
                                                           const fabric::MsgIds& ids)
{
    const fabric::EndpointId thisService = {-1, 0};
    auto event =
        std::make_unique<fabric::SerializableMessageEvent>(content.meta, thisService, content.data);
    event->ids = ids;
    return event;
}

std::string timeText(const nubOsalTime_struct& time)
{
    return isSpan(time) ? Helpers::getTimeSpanStr(time) : Helpers::getTimeStr(time);
}

std::string messageText(const fabric::SerializableMessageEvent& message)
{
    const fabric::host::MessageType* const type = typeOf(message);
    if (!type)
        return "unknown message";
    std::string line = std::string(nameOf(message)) + " #" + std::to_string(message.ids.originId) +
                       ":" + std::to_string(message.ids.messageId);
    payloads[type - catalogue().types](line, message.data->payload);
    return line;
}

} // namespace chronal::sim
