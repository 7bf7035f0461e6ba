#include <chronal/UserAdapter.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <type_traits>

#include <boost/shared_ptr.hpp>

#include <chronal/MessageRecords.h>
#include <fabric/Arg1Method.h>
#include <fabric/Event.h>
#include <nub/Debug.h>
#include <nub/Endian.h>

#include "api-chronal-endian-tables.h"
#include "api-chronal-record-text.h"
#include "api-chronal-service-identifiers.h"

namespace chronal {

using namespace detail;

namespace {

/// The source file, as debug lines name it.
constexpr char sourceName[] = "api-chronal-service-adapter";

/// Asks the platform whether lines with a debug code are wanted, and keeps the chunk to write one.
class DebugCheck
{
public:
    explicit DebugCheck(DebugCode code)
        : chunk_{code, 0, 0}, enabled_(nubDebugCheckLevelGetFabricAndChunk(&chunk_) != 0)
    {
    }

    explicit operator bool() const { return enabled_; }
    const nubDebugChunk_t* chunk() const { return &chunk_; }

private:
    nubDebugChunk_t chunk_;
    bool enabled_;
};

constexpr std::int32_t wireBool(bool value) { return value ? 1 : 0; }

/// Replaces both fields by their two's-complement negation, each on its own.
void negate(nubOsalTime_struct& time)
{
    time.seconds = static_cast<std::int64_t>(-static_cast<std::uint64_t>(time.seconds));
    time.microseconds = static_cast<std::int32_t>(-static_cast<std::uint32_t>(time.microseconds));
}

/// Fills the record that sets the UTC or local time of a source.
void fillRefTime(chronalMsgCmdRefTimeData_t& record, const nubOsalTime_struct& time1,
                 const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId, int value,
                 bool negated)
{
    record.refTimeId = refTimeId.id;
    record.time1 = time1;
    if (negated)
        negate(record.time1);
    record.value = value;
    record.time2 = time2;
}

struct Command;

} // namespace

namespace detail {

/// The adapter's only friend.
class CommandSender
{
public:
    /// Fills a record from the arguments of a command; may throw.
    using FillRecord = void (*)(void* record, const void* arguments);

    /// Sends one message. Not a template: compiled once for all commands, because code size is a
    /// cost on a device.
    static void send(UserAdapter& adapter, fabric::MsgIds& ids, const Command& command,
                     const nubEndianTable_t& table, FillRecord fillRecord, const void* arguments);
};

} // namespace detail

namespace {

/// Everything about a command that is known at compile time. Each command has a constant of this
/// type, so that a call passes only its address. The name is stored as characters, because a
/// pointer to them would have to be relocated when the library is loaded.
struct Command
{
    /// By default, `caller` is the name of the function that has the constant.
    constexpr Command(ResourceId resource, OperationId operation,
                      const char* caller = __builtin_FUNCTION())
        : identity{0, resource, operation, kindCommand}, name{}
    {
        // A name that does not fit is written past the end. A constant expression may not do that,
        // so such a command does not compile.
        for (std::size_t i = 0; caller[i] != '\0'; ++i)
            name[i] = caller[i];
    }

    /// Sends a `Record`. `fill` is called once with the zero-filled record, or not at all if the
    /// adapter has no service interface.
    template <typename Record, typename Fill>
    void send(UserAdapter& adapter, fabric::MsgIds& ids, const Fill& fill) const
    {
        CommandSender::send(
            adapter, ids, *this, endianTableOf<Record>(),
            [](void* record, const void* arguments) {
                (*static_cast<const Fill*>(arguments))(*static_cast<Record*>(record));
            },
            &fill);
    }

    fabric::MsgMeta identity; ///< without the service id, which is asked for at each send
    char name[32];            ///< the function that sends it, for debug lines
};

// The two sends that several commands share are compiled once. They take their arguments in the
// order in which the commands have them in registers.

/// Sends a `Record` that is all zero.
template <typename Record>
[[gnu::noinline]] void sendEmpty(UserAdapter& adapter, fabric::MsgIds& ids, const Command& command)
{
    command.send<Record>(adapter, ids, [](Record&) {});
}

/// Sends a record that holds only a source.
[[gnu::noinline]] void sendSource(UserAdapter& adapter, fabric::MsgIds& ids, const Command& command,
                                  const ReferenceTimeId& refTimeId)
{
    command.send<chronalMsgCmdRefTimeId_t>(adapter, ids,
                                           [&](auto& record) { record.refTimeId = refTimeId.id; });
}

} // namespace

void detail::CommandSender::send(UserAdapter& adapter, fabric::MsgIds& ids, const Command& command,
                                 const nubEndianTable_t& table, FillRecord fillRecord,
                                 const void* arguments)
{
    if (!adapter.serviceInterface) {
        if (DebugCheck debug{debugCommandError})
            nubDebugOutput0(debug.chunk(),
                            "%s:%d:%s(): Unable to send command, not yet connected.\n", sourceName,
                            __LINE__, command.name);
        return;
    }

    const boost::shared_ptr<fabric::SerializableMessageData> data =
        fabric::SerializableMessageData::create(table.size, table);
    fillRecord(data->payload, arguments);

    fabric::MsgMeta identity = command.identity;
    identity.serviceId = adapter.serviceInterface->getServiceId();
    const fabric::EndpointId sender = {-1, adapter.component.componentId};
    auto* const event = new fabric::SerializableMessageEvent(identity, sender, data);
    // The middleware owns the event from this call on, even if the call fails.
    const int result = adapter.application.sendEvent(ids, 0, event);
    if (result < 0) {
        if (DebugCheck debug{debugCommandError})
            nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Error sending message event: %d.\n",
                            sourceName, __LINE__, command.name, result);
    }
}

void UserAdapter::cmdRefTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId,
                                int value, bool negate)
{
    static constexpr Command command(resourceRefTime, operationSet);
    command.send<chronalMsgCmdRefTimeData_t>(*this, ids, [&](auto& record) {
        fillRefTime(record, time1, time2, refTimeId, value, negate);
        if (DebugCheck debug{debugCommand})
            nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Current UTC Time is %lld.\n", sourceName,
                            __LINE__, command.name, static_cast<long long>(time1.seconds));
    });
}

void UserAdapter::cmdRefLocalTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                     const nubOsalTime_struct& time2,
                                     const ReferenceTimeId& refTimeId, int value, bool negate)
{
    static constexpr Command command(resourceRefLocalTime, operationSet);
    command.send<chronalMsgCmdRefTimeData_t>(*this, ids, [&](auto& record) {
        fillRefTime(record, time1, time2, refTimeId, value, negate);
        if (DebugCheck debug{debugCommand})
            nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Current Local Time is %lld.\n", sourceName,
                            __LINE__, command.name, static_cast<long long>(time1.seconds));
    });
}

void UserAdapter::cmdRefTimeFetch(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationFetch);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdNextTimeDeviationChangeSet(fabric::MsgIds& ids,
                                                const nubOsalTime_struct& time1,
                                                const nubOsalTime_struct& time2,
                                                const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceDeviation, operationSet);
    command.send<chronalMsgCmdRefTimeData_t>(*this, ids, [&](auto& record) {
        record.refTimeId = refTimeId.id;
        record.time1 = time1;
        record.time2 = time2;
    });
}

void UserAdapter::cmdSendDaylightsavingInfo(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                            const nubOsalTime_struct& time2,
                                            const nubOsalTime_struct& time3,
                                            const nubOsalTime_struct& time4,
                                            const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceDaylightSavingInfo, operationSet);
    command.send<chronalMsgCmdRefTimeData_t>(*this, ids, [&](auto& record) {
        record.refTimeId = refTimeId.id;
        record.time1 = time1;
        record.time2 = time2;
        record.time3 = time3;
        record.time4 = time4;
    });
}

void UserAdapter::cmdNextTimeDeviationChangeFetch(fabric::MsgIds& ids,
                                                  const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceDeviation, operationFetch);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdRefTimeSubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationSubscribe);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdRefTimeUnsubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationUnsubscribe);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdRefTimeLock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationLock);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdRefTimeUnlock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationUnlock);
    sendSource(*this, ids, command, refTimeId);
}

void UserAdapter::cmdRefTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                               const ReferenceTimeId& refTimeId)
{
    static constexpr Command command(resourceRefTime, operationAt);
    command.send<chronalMsgCmdRefTimeData_t>(*this, ids, [&](auto& record) {
        record.refTimeId = refTimeId.id;
        record.time1 = time1;
    });
}

void UserAdapter::cmdLocaltimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time)
{
    static constexpr Command command(resourceDeviation, operationAt);
    command.send<chronalMsgCmdTimeAtData_t>(*this, ids, [&](auto& record) {
        record.time = time;
        record.isUtc = wireBool(false);
    });
}

void UserAdapter::cmdUTCTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time)
{
    static constexpr Command command(resourceDeviation, operationAt);
    command.send<chronalMsgCmdTimeAtData_t>(*this, ids, [&](auto& record) {
        record.time = time;
        record.isUtc = wireBool(true);
    });
}

void UserAdapter::cmdDateTimeSettingsSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                         const nubOsalTime_struct& time2,
                                         const nubOsalTime_struct& time3,
                                         const nubOsalTime_struct& time4, const int& value,
                                         const std::string& text)
{
    static constexpr Command command(resourceDateTimeSettings, operationSet);
    command.send<chronalMsgDateTime_t>(*this, ids, [&](auto& record) {
        record.time1 = time1;
        record.time2 = time2;
        record.time3 = time3;
        record.time4 = time4;
        record.value = value;
        copyText(record.text, text);
        record.flag1 = -1;
        record.flag2 = -1;
    });
}

void UserAdapter::cmdTimezoneSyncEnableSet(fabric::MsgIds& ids, const int& timezoneSyncEnable)
{
    static constexpr Command command(resourceTimezoneSync, operationSet);
    command.send<chronalMsgDateTime_t>(*this, ids, [&](auto& record) {
        record.timezoneSyncEnable = timezoneSyncEnable;
        if (DebugCheck debug{debugCommand})
            nubDebugOutput0(debug.chunk(), "%s:%d:%s(): User set timezone sync enable = %d.\n",
                            sourceName, __LINE__, command.name, timezoneSyncEnable);
    });
}

void UserAdapter::cmdDateTimeNtpSet(fabric::MsgIds& ids, const std::string& text, const bool& flag)
{
    static constexpr Command command(resourceNtp, operationSet);
    command.send<chronalMsgNtpData_t>(*this, ids, [&](auto& record) {
        copyText(record.text, text);
        record.flag = wireBool(flag);
    });
}

void UserAdapter::cmdDateTimeNtpStart(fabric::MsgIds& ids)
{
    static constexpr Command command(resourceNtp, operationStart);
    sendEmpty<chronalCmdDummy_t>(*this, ids, command);
}

void UserAdapter::cmdDateTimeAutoTimeSet(fabric::MsgIds& ids, const bool& autoTime)
{
    static constexpr Command command(resourceAutoTime, operationSet);
    command.send<chronalMsgAutoTime_t>(*this, ids,
                                       [&](auto& record) { record.autoTime = wireBool(autoTime); });
}

void UserAdapter::cmdDateTimeSettingsFetch(fabric::MsgIds& ids)
{
    static constexpr Command command(resourceDateTimeSettings, operationFetch);
    sendEmpty<chronalMsgReplyResult_t>(*this, ids, command);
}

void UserAdapter::cmdTimezoneSet(fabric::MsgIds& ids, const std::string& timezone)
{
    static constexpr Command command(resourceTimezone, operationSet);
    command.send<chronalMsgTimezone_t>(*this, ids,
                                       [&](auto& record) { copyText(record.timezone, timezone); });
}

void UserAdapter::cmdTimezoneFetch(fabric::MsgIds& ids)
{
    static constexpr Command command(resourceTimezone, operationFetch);
    sendEmpty<chronalMsgReplyResult_t>(*this, ids, command);
}

void UserAdapter::cmdTimeInit(fabric::MsgIds& ids)
{
    static constexpr Command command(resourceTimeInit, operationInit);
    sendEmpty<chronalMsgAutoTime_t>(*this, ids, command);
}

namespace {

/// Returns a copy of a field of a received record. A string is returned as std::string.
template <typename Record, typename Field>
auto decode(const void* payload, Field Record::*field)
{
    const Field& value = static_cast<const Record*>(payload)->*field;
    if constexpr (std::is_same_v<Field, nubDeserString_t>)
        return readText(value);
    else
        return value;
}

/// The adapter's own virtual table. C++ has no name for it, so this is its mangled one.
extern "C" CHRONAL_API const void* const adapterTable[] __asm__("_ZTVN7chronal11UserAdapterE");

/// The words of a virtual table before its first entry: offset to top and type information.
constexpr std::size_t tableHeader = 2;

/// Some targets set this bit in a pointer to a virtual member function, which is otherwise the
/// offset of the function's entry.
constexpr std::uintptr_t virtualBit = 1;

/// Tells whether the application overrides `callback`: then the object's virtual table has another
/// entry for it than the adapter's. An application can have copies of the adapter's defaults, if it
/// is built with link-time optimisation or loaded with RTLD_LOCAL as a second binary. They count as
/// overrides, and calling them does nothing.
template <typename Callback>
bool isOverridden(const UserAdapter& adapter, Callback callback)
{
    std::uintptr_t offset;
    std::memcpy(&offset, &callback, sizeof(offset));
    const std::size_t entry = (offset & ~virtualBit) / sizeof(void*);

    const void* const* table;
    std::memcpy(&table, static_cast<const void*>(&adapter), sizeof(table));
    return table[entry] != adapterTable[tableHeader + entry];
}

/// Calls `callback` with copies of the fields, in the order of its parameters.
template <auto callback, auto... fields>
void deliver(UserAdapter& adapter, const fabric::MsgIds& ids, const void* payload)
{
    // The fields are decoded first and the override is checked last, so that a record that cannot
    // be decoded throws the same exception in every application.
    const auto callIfOverridden = [&](const auto&... arguments) {
        if (isOverridden(adapter, callback))
            (adapter.*callback)(ids, arguments...);
    };
    callIfOverridden(decode(payload, fields)...);
}

/// Holds the payload while `deliverRecord` reads it. Not a template: compiled once for all
/// receivers.
int receive(UserAdapter& adapter, const fabric::SerializableMessageEvent& event,
            void (*deliverRecord)(UserAdapter&, const fabric::MsgIds&, const void*))
{
    const boost::shared_ptr<fabric::SerializableMessageData> data = event.data;
    if (data && data->payload)
        deliverRecord(adapter, event.ids, data->payload);
    return 0;
}

} // namespace

int UserAdapter::callReplyResult(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyResult, &chronalMsgReplyResult_t::result>);
}

int UserAdapter::callReplyTimeRefInfo(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyTimeRefInfo, &chronalMsgReplyTime_t::utcDeviation,
                           &chronalMsgReplyTime_t::utcTime, &chronalMsgReplyTime_t::localTime,
                           &chronalMsgReplyTime_t::refTimeId, &chronalMsgReplyTime_t::flag,
                           &chronalMsgReplyTime_t::value>);
}

int UserAdapter::callReplyTimeRefAt(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyTimeRefAt, &chronalMsgReplyTime_t::utcTime,
                           &chronalMsgReplyTime_t::localTime, &chronalMsgReplyTime_t::refTimeId>);
}

int UserAdapter::callReplyTimeAt(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyTimeAt, &chronalMsgReplyTime_t::utcTime,
                           &chronalMsgReplyTime_t::localTime>);
}

int UserAdapter::callReplyUtcDeviationInfo(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyUtcDeviationInfo,
                           &chronalMsgReplyTime_t::utcDeviation, &chronalMsgReplyTime_t::utcTime,
                           &chronalMsgReplyTime_t::localTime, &chronalMsgReplyTime_t::refTimeId>);
}

int UserAdapter::callReplyDateTimeSettingsInfo(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyDateTimeSettingsInfo, &chronalMsgDateTime_t::time0,
                           &chronalMsgDateTime_t::time1, &chronalMsgDateTime_t::time2,
                           &chronalMsgDateTime_t::time3, &chronalMsgDateTime_t::time4,
                           &chronalMsgDateTime_t::value, &chronalMsgDateTime_t::text,
                           &chronalMsgDateTime_t::flag1, &chronalMsgDateTime_t::flag2,
                           &chronalMsgDateTime_t::timezoneSyncEnable>);
}

int UserAdapter::callReplyTimezoneInfo(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onReplyTimezoneInfo, &chronalMsgTimezone_t::timezone,
                           &chronalMsgTimezone_t::time>);
}

int UserAdapter::callNotifyCurrentTime(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onNotifyCurrentTime, &chronalMsgReplyTime_t::utcDeviation,
                           &chronalMsgReplyTime_t::utcTime, &chronalMsgReplyTime_t::localTime,
                           &chronalMsgReplyTime_t::flag, &chronalMsgReplyTime_t::value>);
}

int UserAdapter::callNotifyDeviationChange(const fabric::SerializableMessageEvent& event)
{
    tzset(); // also without an override: the process's local time has to follow
    return receive(
        *this, event,
        deliver<&UserAdapter::onNotifyDeviationChange, &chronalMsgReplyTime_t::utcDeviation,
                &chronalMsgReplyTime_t::utcTime, &chronalMsgReplyTime_t::localTime>);
}

int UserAdapter::callNotifyTimezoneChange(const fabric::SerializableMessageEvent& event)
{
    tzset(); // also without an override: the process's local time has to follow
    return receive(*this, event,
                   deliver<&UserAdapter::onNotifyTimezoneChange, &chronalMsgTimezone_t::timezone,
                           &chronalMsgTimezone_t::time>);
}

int UserAdapter::callNotifyDtvTimeChange(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event,
                   deliver<&UserAdapter::onNotifyDtvTimeChange, &chronalMsgDtvTime_t::dtvTime>);
}

int UserAdapter::callNotifyDSTChange(const fabric::SerializableMessageEvent& event)
{
    return receive(*this, event, deliver<&UserAdapter::onNotifyDSTChange, &chronalMsgDST_t::dst>);
}

namespace {

/// A message that the adapter receives, and its receiver.
struct Registration
{
    int (UserAdapter::*receiver)(const fabric::SerializableMessageEvent&);
    ResourceId resource;
    OperationId operation;
    MessageKind kind; ///< replies are registered on the component, notifications on the application
};

constexpr Registration registrations[] = {
    {&UserAdapter::callReplyTimeRefInfo, resourceRefTime, operationInfo, kindReply},
    {&UserAdapter::callReplyTimeRefAt, resourceRefTime, operationAt, kindReply},
    {&UserAdapter::callReplyTimeAt, resourceDeviation, operationAt, kindReply},
    {&UserAdapter::callReplyUtcDeviationInfo, resourceDeviation, operationInfo, kindReply},
    {&UserAdapter::callReplyResult, resourceResult, operationInfo, kindReply},
    {&UserAdapter::callReplyDateTimeSettingsInfo, resourceDateTimeSettings, operationInfo,
     kindReply},
    {&UserAdapter::callReplyTimezoneInfo, resourceTimezone, operationInfo, kindReply},
    {&UserAdapter::callNotifyCurrentTime, resourceCurrentTime, operationInfo, kindNotification},
    {&UserAdapter::callNotifyDeviationChange, resourceDeviation, operationInfo, kindNotification},
    {&UserAdapter::callNotifyTimezoneChange, resourceTimezone, operationInfo, kindNotification},
    {&UserAdapter::callNotifyDtvTimeChange, resourceDtvTime, operationInfo, kindNotification},
    {&UserAdapter::callNotifyDSTChange, resourceDst, operationInfo, kindNotification},
};

} // namespace

UserAdapter::UserAdapter(fabric::AbstractApplication& app, fabric::AbstractComponent& comp)
    : fabric::StatePart(app.stateHolder),
      handlerIds(comp),
      application(app),
      component(comp),
      serviceInterface(nullptr)
{
}

UserAdapter::~UserAdapter() = default;

void UserAdapter::setServiceInterface(fabric::ServiceInterface* service)
{
    const ltGuard guard(stateMutex());
    if (serviceInterface) {
        if (DebugCheck debug{debugConnectionError})
            nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Interface pointer already setup.\n",
                            sourceName, __LINE__, __func__);
        return;
    }
    serviceInterface = service;
}

void UserAdapter::onServiceConnectionFailed(int reason)
{
    if (DebugCheck debug{debugConnectionError})
        nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Called: Reason is %d.\n", sourceName, __LINE__,
                        __func__, reason);
}

void UserAdapter::onServiceDisconnected(int reason)
{
    if (DebugCheck debug{debugConnectionError})
        nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Called: Reason is %d.\n", sourceName, __LINE__,
                        __func__, reason);
    handlerIds.reset();
}

void UserAdapter::onServiceConnected()
{
    if (DebugCheck debug{debugConnection})
        nubDebugOutput0(debug.chunk(), "%s:%d:%s(): Called.\n", sourceName, __LINE__, __func__);
    // Without the interface there is no service id for the registrations.
    if (!serviceInterface)
        return;
    for (const Registration& row : registrations) {
        const fabric::MsgMeta key = {serviceInterface->getServiceId(), row.resource, row.operation,
                                     row.kind};
        const fabric::Arg1Method<int, const fabric::Event&> handler(this, row.receiver);
        handlerIds.addHandler(row.kind == kindReply ? component.addEventHandler(key, 0, handler)
                                                    : application.addEventHandler(key, 0, handler));
    }
}

} // namespace chronal
