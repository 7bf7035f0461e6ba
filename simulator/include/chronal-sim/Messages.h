#ifndef CHRONAL_SIM_MESSAGES_H
#define CHRONAL_SIM_MESSAGES_H

#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <chronal/MessageRecords.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>
#include <nub/Osal.h>

/// The messages that the time service and its clients exchange, named after the operations and
/// callbacks of chronal::UserAdapter.
namespace chronal {
namespace sim {

/// A message that carries a `Payload`.
template <class Payload>
struct Message : fabric::host::MessageType
{
    typedef Payload Record; ///< the record that it carries
};

extern const Message<chronalMsgCmdRefTimeData_t> cmdRefTimeSet, cmdRefLocalTimeSet,
    cmdNextTimeDeviationChangeSet, cmdSendDaylightsavingInfo, cmdRefTimeAt;
extern const Message<chronalMsgCmdRefTimeId_t> cmdRefTimeFetch, cmdNextTimeDeviationChangeFetch,
    cmdRefTimeSubscribe, cmdRefTimeUnsubscribe, cmdRefTimeLock, cmdRefTimeUnlock;
extern const Message<chronalMsgCmdTimeAtData_t> cmdTimeAt; ///< of cmdUTCTimeAt(), cmdLocaltimeAt()
extern const Message<chronalMsgDateTime_t> cmdDateTimeSettingsSet, cmdTimezoneSyncEnableSet;
extern const Message<chronalMsgNtpData_t> cmdDateTimeNtpSet;
extern const Message<chronalCmdDummy_t> cmdDateTimeNtpStart;
extern const Message<chronalMsgAutoTime_t> cmdDateTimeAutoTimeSet, cmdTimeInit;
extern const Message<chronalMsgReplyResult_t> cmdDateTimeSettingsFetch, cmdTimezoneFetch;
extern const Message<chronalMsgTimezone_t> cmdTimezoneSet;

extern const Message<chronalMsgReplyResult_t> replyResult;
extern const Message<chronalMsgReplyTime_t> replyTimeRefInfo, replyTimeRefAt, replyTimeAt,
    replyUtcDeviationInfo;
extern const Message<chronalMsgDateTime_t> replyDateTimeSettingsInfo;
extern const Message<chronalMsgTimezone_t> replyTimezoneInfo;

extern const Message<chronalMsgReplyTime_t> notifyCurrentTime, notifyDeviationChange;
extern const Message<chronalMsgTimezone_t> notifyTimezoneChange;
extern const Message<chronalMsgDtvTime_t> notifyDtvTimeChange;
extern const Message<chronalMsgDST_t> notifyDSTChange;

/// All messages and the service's id.
const fabric::host::MessageCatalogue& catalogue();

/// Returns the type of a message, or null if it is not in the catalogue.
const fabric::host::MessageType* typeOf(const fabric::SerializableMessageEvent& message);

/// Returns the name of a message, or null if it is not in the catalogue. A command has the name of
/// the operation that sends it, so cmdTimeAt has one of two names.
const char* nameOf(const fabric::SerializableMessageEvent& message);

/// Every name that nameOf() may return for a command.
std::vector<std::string> commandNames();

/// A time or a span as text. Records do not distinguish them: what lies within a hundred hours of
/// 1970 is printed as a span, which it nearly always is.
std::string timeText(const nubOsalTime_struct& time);

/// A message of the catalogue as one line: its name, its ids, and the fields of its record by name.
/// Characters that a terminal would interpret are escaped.
std::string messageText(const fabric::SerializableMessageEvent& message);

/// A message without sender and ids, which can be sent any number of times.
struct Content
{
    fabric::MsgMeta meta;                                    ///< its identity
    boost::shared_ptr<fabric::SerializableMessageData> data; ///< shared by all events
};

/// Makes an event of a content, as the service sends it.
std::unique_ptr<fabric::SerializableMessageEvent> newEvent(const Content& content,
                                                           const fabric::MsgIds& ids);

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

} // namespace sim
} // namespace chronal

#endif
