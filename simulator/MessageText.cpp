#include "MessageText.h"

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <fabric-host/Printable.h>

#include "Protocol.h"

namespace chronal::sim {

namespace {

bool isSpan(const nubOsalTime_struct& time)
{
    const std::int64_t most = -Helpers::deviationUnknown.seconds;
    return time.seconds >= -most && time.seconds <= most;
}

std::string text(const nubOsalTime_struct& time)
{
    return isSpan(time) ? Helpers::getTimeSpanStr(time) : Helpers::getTimeStr(time);
}

std::string text(referenceTimeId_enum source)
{
    return Helpers::getRefTimeStr(source) + "(" + std::to_string(source) + ")";
}

std::string text(std::int32_t word) { return std::to_string(word); }

std::string text(const nubDeserString_t& string)
{
    return '"' + fabric::host::printable(readText(string), "\"\\") + '"';
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
#define CHRONAL_SIM_PAYLOAD(name, record, resource, operation, kind) listPayload<record>,
    CHRONAL_SIM_MESSAGES(CHRONAL_SIM_PAYLOAD)
#undef CHRONAL_SIM_PAYLOAD
};

} // namespace

std::string messageText(const fabric::SerializableMessageEvent& message)
{
    const fabric::MsgMeta& meta = message.meta;
    const fabric::host::MessageType* const type =
        catalogue().find(meta.resourceId, meta.operationId, meta.kind);
    if (!type)
        return "unknown message";
    std::string line = std::string(nameOf(message)) + " #" + std::to_string(message.ids.originId) +
                       ":" + std::to_string(message.ids.messageId);
    payloads[type - catalogue().types](line, message.data->payload);
    return line;
}

} // namespace chronal::sim
