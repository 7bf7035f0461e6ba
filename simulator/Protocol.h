#ifndef CHRONAL_SIM_PROTOCOL_H
#define CHRONAL_SIM_PROTOCOL_H

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <chronal/MessageRecords.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>

#include "api-chronal-record-text.h"
#include "api-chronal-service-identifiers.h"

/// The messages that the time service and its clients exchange, named after the operations and
/// callbacks of chronal::UserAdapter.
namespace chronal::sim {

// The columns are name, record, resource, operation and kind. cmdLocaltimeAt and cmdUTCTimeAt send
// the same message, cmdTimeAt.
#define CHRONAL_SIM_MESSAGES(ROW)                                                                  \
    ROW(cmdRefTimeSet, chronalMsgCmdRefTimeData_t, resourceRefTime, operationSet, kindCommand)     \
    ROW(cmdRefLocalTimeSet, chronalMsgCmdRefTimeData_t, resourceRefLocalTime, operationSet,        \
        kindCommand)                                                                               \
    ROW(cmdRefTimeFetch, chronalMsgCmdRefTimeId_t, resourceRefTime, operationFetch, kindCommand)   \
    ROW(cmdNextTimeDeviationChangeSet, chronalMsgCmdRefTimeData_t, resourceDeviation,              \
        operationSet, kindCommand)                                                                 \
    ROW(cmdSendDaylightsavingInfo, chronalMsgCmdRefTimeData_t, resourceDaylightSavingInfo,         \
        operationSet, kindCommand)                                                                 \
    ROW(cmdNextTimeDeviationChangeFetch, chronalMsgCmdRefTimeId_t, resourceDeviation,              \
        operationFetch, kindCommand)                                                               \
    ROW(cmdRefTimeSubscribe, chronalMsgCmdRefTimeId_t, resourceRefTime, operationSubscribe,        \
        kindCommand)                                                                               \
    ROW(cmdRefTimeUnsubscribe, chronalMsgCmdRefTimeId_t, resourceRefTime, operationUnsubscribe,    \
        kindCommand)                                                                               \
    ROW(cmdRefTimeLock, chronalMsgCmdRefTimeId_t, resourceRefTime, operationLock, kindCommand)     \
    ROW(cmdRefTimeUnlock, chronalMsgCmdRefTimeId_t, resourceRefTime, operationUnlock, kindCommand) \
    ROW(cmdRefTimeAt, chronalMsgCmdRefTimeData_t, resourceRefTime, operationAt, kindCommand)       \
    ROW(cmdTimeAt, chronalMsgCmdTimeAtData_t, resourceDeviation, operationAt, kindCommand)         \
    ROW(cmdDateTimeSettingsSet, chronalMsgDateTime_t, resourceDateTimeSettings, operationSet,      \
        kindCommand)                                                                               \
    ROW(cmdTimezoneSyncEnableSet, chronalMsgDateTime_t, resourceTimezoneSync, operationSet,        \
        kindCommand)                                                                               \
    ROW(cmdDateTimeNtpSet, chronalMsgNtpData_t, resourceNtp, operationSet, kindCommand)            \
    ROW(cmdDateTimeNtpStart, chronalCmdDummy_t, resourceNtp, operationStart, kindCommand)          \
    ROW(cmdDateTimeAutoTimeSet, chronalMsgAutoTime_t, resourceAutoTime, operationSet, kindCommand) \
    ROW(cmdDateTimeSettingsFetch, chronalMsgReplyResult_t, resourceDateTimeSettings,               \
        operationFetch, kindCommand)                                                               \
    ROW(cmdTimezoneSet, chronalMsgTimezone_t, resourceTimezone, operationSet, kindCommand)         \
    ROW(cmdTimezoneFetch, chronalMsgReplyResult_t, resourceTimezone, operationFetch, kindCommand)  \
    ROW(cmdTimeInit, chronalMsgAutoTime_t, resourceTimeInit, operationInit, kindCommand)           \
    ROW(replyResult, chronalMsgReplyResult_t, resourceResult, operationInfo, kindReply)            \
    ROW(replyTimeRefInfo, chronalMsgReplyTime_t, resourceRefTime, operationInfo, kindReply)        \
    ROW(replyTimeRefAt, chronalMsgReplyTime_t, resourceRefTime, operationAt, kindReply)            \
    ROW(replyTimeAt, chronalMsgReplyTime_t, resourceDeviation, operationAt, kindReply)             \
    ROW(replyUtcDeviationInfo, chronalMsgReplyTime_t, resourceDeviation, operationInfo, kindReply) \
    ROW(replyDateTimeSettingsInfo, chronalMsgDateTime_t, resourceDateTimeSettings, operationInfo,  \
        kindReply)                                                                                 \
    ROW(replyTimezoneInfo, chronalMsgTimezone_t, resourceTimezone, operationInfo, kindReply)       \
    ROW(notifyCurrentTime, chronalMsgReplyTime_t, resourceCurrentTime, operationInfo,              \
        kindNotification)                                                                          \
    ROW(notifyDeviationChange, chronalMsgReplyTime_t, resourceDeviation, operationInfo,            \
        kindNotification)                                                                          \
    ROW(notifyTimezoneChange, chronalMsgTimezone_t, resourceTimezone, operationInfo,               \
        kindNotification)                                                                          \
    ROW(notifyDtvTimeChange, chronalMsgDtvTime_t, resourceDtvTime, operationInfo,                  \
        kindNotification)                                                                          \
    ROW(notifyDSTChange, chronalMsgDST_t, resourceDst, operationInfo, kindNotification)

using detail::copyText;
using detail::readText;

/// A message that carries a `Record`.
template <class Record>
struct Message : fabric::host::MessageType
{
};

#define CHRONAL_SIM_DECLARE(name, record, resource, operation, kind)                               \
    inline constexpr Message<record> name{                                                         \
        {#name, detail::resource, detail::operation, detail::kind, &__nub_EndianTable_##record}};
CHRONAL_SIM_MESSAGES(CHRONAL_SIM_DECLARE)
#undef CHRONAL_SIM_DECLARE

/// All messages and the service's id.
const fabric::host::MessageCatalogue& catalogue();

/// Returns the name of a message, or null if it is not in the catalogue. A command has the name of
/// the operation that sends it, so cmdTimeAt has one of two names.
const char* nameOf(const fabric::SerializableMessageEvent& message);

/// Every name that nameOf() may return for a command.
std::vector<std::string> commandNames();

/// A message without sender and ids, which can be sent any number of times.
struct Content
{
    fabric::MsgMeta meta;
    boost::shared_ptr<fabric::SerializableMessageData> data;
};

/// Makes the content of a message; `fill` gets its zero-filled record.
template <class Record, class Fill>
Content compose(const Message<Record>& message, Fill fill)
{
    Content content = {
        {catalogue().serviceId, message.resourceId, message.operationId, message.kind},
        fabric::SerializableMessageData::create(sizeof(Record), *message.table)};
    fill(*static_cast<Record*>(content.data->payload));
    return content;
}

} // namespace chronal::sim

#endif
