#ifndef CHRONAL_USER_ADAPTER_H
#define CHRONAL_USER_ADAPTER_H

#include <string>

#include <chronal/Export.h>
#include <chronal/ReferenceTimeId.h>
#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/ClientInterface.h>
#include <fabric/EventHandlerIdSet.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>
#include <fabric/ServiceInterface.h>
#include <fabric/StatePart.h>
#include <nub/Osal.h>

namespace chronal {

namespace detail {
class CommandSender;
}

/// An application's access to the time service of the device. Derive from this class, override the
/// callbacks that you need, and send commands.
///
/// Call setServiceInterface() once after construction. From then on commands may be sent, and the
/// middleware may report the connection, up and down any number of times. The adapter does not own
/// the application, the component and the service interface; they must outlive it.
///
/// Times are {seconds, microseconds}. An absolute time counts from 1970-01-01 00:00:00 UTC. A
/// deviation is a signed span, local time minus UTC, or one of the two markers in chronal::Helpers
/// for an invalid and an unknown deviation.
class CHRONAL_API UserAdapter : public fabric::StatePart, public fabric::ClientInterface
{
public:
    /// Throws nothing but what the constructors of the middleware throw.
    UserAdapter(fabric::AbstractApplication& app, fabric::AbstractComponent& comp);

    /// Removes all handlers from the middleware. Sends nothing and calls no callback. Before you
    /// destroy the adapter, make sure that the middleware makes no more connection reports to it
    /// and that none is running, nor any callback.
    ~UserAdapter() override = 0;

    /// @name Connection reports
    /// The middleware makes them on its dispatch thread, through
    /// fabric::ClientInterface. An override must call the function that it overrides:
    /// onServiceConnected() registers the handlers of all replies and notifications, and
    /// onServiceDisconnected() removes them. Commands may be sent from inside a report; the adapter
    /// may not be destroyed there.
    ///
    /// `reason` is a number of the middleware. On the host platform it is a positive error number
    /// (errno), or 0 if the connection was closed in good order.
    ///
    /// @{

    /// The service cannot be reached.
    void onServiceConnectionFailed(int reason) override;
    /// The connection has ended; removes the handlers.
    void onServiceDisconnected(int reason) override;
    /// The service can be reached; registers the handlers, unless setServiceInterface() has not
    /// been called. An exception of the middleware passes through, and the handlers registered
    /// before stay registered.
    void onServiceConnected() override;
    /// @}

protected:
    /// @name Replies and notifications
    /// A callback is called only if the application overrides it, on the
    /// dispatch thread of the middleware, while the connection is up. Commands may be sent from
    /// inside a callback; the adapter may not be destroyed there. An exception passes through to
    /// the middleware.
    ///
    /// References are valid until the callback returns, so copy what you keep. Values arrive as the
    /// service sent them, unchecked. Their meaning, and the message that answers a command, are up
    /// to the service; what is said here holds for the simulated service.
    ///
    /// `ids` are the ids of the received message. A reply carries the ids that its command filled
    /// in; a notification has ids of its own. The adapter does not filter: an application with
    /// several adapters on one component gets each reply in all of them, and every adapter of the
    /// application gets each notification. On the host platform, every adapter of a session gets
    /// every message.
    ///
    /// A reply can arrive before the call that sent its command has returned. To tell whether a
    /// reply is the expected one, a thread other than the dispatch thread holds a lock while it
    /// sends the command, and the callback compares the ids under the same lock:
    ///
    ///     std::lock_guard<std::mutex> lock(mutex); // on the sending thread
    ///     cmdTimezoneFetch(asked);
    ///
    ///     std::lock_guard<std::mutex> lock(mutex); // in onReplyTimezoneInfo()
    ///     if (ids == asked) ...
    ///
    /// A command sent from inside a callback needs no lock: its reply is delivered on the same
    /// thread, after the callback has returned. Ids can be created and compared on the host
    /// platform; another middleware may not offer that.
    ///
    /// The callbacks and their order are part of the binary interface. None can be added, because
    /// the virtual functions that applications declare follow them. They are exported, because an
    /// override is detected by its address.
    /// @{

    /// The result of a command that has no other answer, or of any command that the service
    /// refused: 0, or a negative error number such as -EBUSY. Answers cmdRefTimeSet(),
    /// cmdRefLocalTimeSet(), cmdNextTimeDeviationChangeSet(), cmdSendDaylightsavingInfo(),
    /// cmdRefTimeSubscribe(), cmdRefTimeUnsubscribe(), cmdRefTimeLock(), cmdRefTimeUnlock(),
    /// cmdDateTimeSettingsSet(), cmdTimezoneSyncEnableSet(), cmdDateTimeNtpSet(),
    /// cmdDateTimeNtpStart(), cmdDateTimeAutoTimeSet(), cmdTimezoneSet() and cmdTimeInit().
    CHRONAL_API virtual void onReplyResult(const fabric::MsgIds& ids, int result);

    /// Answers cmdRefTimeFetch() with the times of the source. `flag` is true if the source has a
    /// valid time; otherwise the times are zero and the deviation is the marker for unknown.
    /// `value` is the number with which the source was last set, initially 0.
    CHRONAL_API virtual void
    onReplyTimeRefInfo(const fabric::MsgIds& ids, const nubOsalTime_struct& utcDeviation,
                       const nubOsalTime_struct& utcTime, const nubOsalTime_struct& localTime,
                       const ReferenceTimeId& refTimeId, bool flag, int value);

    /// The current time of a source that the application has subscribed to with
    /// cmdRefTimeSubscribe(). `flag` (1 or 0) and `value` are those of onReplyTimeRefInfo().
    ///
    /// The notification does not name its source, and every adapter of the application gets it,
    /// also one that has not subscribed. An application that needs the times of several sources
    /// can
    /// - call cmdRefTimeFetch() when a notification or a timer of its own tells it to: the reply
    ///   names the source;
    /// - set each source with another `value`, if nobody else sets them;
    /// - on the host platform, use a session for each source, because a session is an application
    ///   of its own.
    CHRONAL_API virtual void onNotifyCurrentTime(const fabric::MsgIds& ids,
                                                 const nubOsalTime_struct& utcDeviation,
                                                 const nubOsalTime_struct& utcTime,
                                                 const nubOsalTime_struct& localTime, int flag,
                                                 int value);

    /// The deviation from UTC has changed. The adapter has called tzset() before, so the C library
    /// has read the time-zone setting of the process again.
    CHRONAL_API virtual void onNotifyDeviationChange(const fabric::MsgIds& ids,
                                                     const nubOsalTime_struct& utcDeviation,
                                                     const nubOsalTime_struct& utcTime,
                                                     const nubOsalTime_struct& localTime);

    /// The time zone has changed. The adapter has called tzset() before, as for
    /// onNotifyDeviationChange().
    CHRONAL_API virtual void onNotifyTimezoneChange(const fabric::MsgIds& ids,
                                                    const std::string& timezone,
                                                    const nubOsalTime_struct& time);

    /// Answers cmdRefTimeAt() with the UTC and local time that the source shows then.
    CHRONAL_API virtual void onReplyTimeRefAt(const fabric::MsgIds& ids,
                                              const nubOsalTime_struct& utcTime,
                                              const nubOsalTime_struct& localTime,
                                              const ReferenceTimeId& refTimeId);

    /// Answers cmdLocaltimeAt() and cmdUTCTimeAt() with the same moment in UTC and in local time.
    CHRONAL_API virtual void onReplyTimeAt(const fabric::MsgIds& ids,
                                           const nubOsalTime_struct& utcTime,
                                           const nubOsalTime_struct& localTime);

    /// Answers cmdNextTimeDeviationChangeFetch() with the time of the next change and the deviation
    /// after it.
    CHRONAL_API virtual void onReplyUtcDeviationInfo(const fabric::MsgIds& ids,
                                                     const nubOsalTime_struct& utcDeviation,
                                                     const nubOsalTime_struct& utcTime,
                                                     const nubOsalTime_struct& localTime,
                                                     const ReferenceTimeId& refTimeId);

    /// Answers cmdDateTimeSettingsFetch(). `time0` is the UTC time of the real-time clock. `time1`
    /// to `time4` and `value` were set with cmdDateTimeSettingsSet(); the service only stores them.
    /// `text` is the NTP server. `flag1` is true if automatic time is on, `flag2` if NTP is used.
    CHRONAL_API virtual void
    onReplyDateTimeSettingsInfo(const fabric::MsgIds& ids, const nubOsalTime_struct& time0,
                                const nubOsalTime_struct& time1, const nubOsalTime_struct& time2,
                                const nubOsalTime_struct& time3, const nubOsalTime_struct& time4,
                                const int& value, const std::string& text, const bool& flag1,
                                const bool& flag2, const bool& timezoneSyncEnable);

    /// Answers cmdTimezoneFetch() with the time zone and the UTC time of the real-time clock.
    CHRONAL_API virtual void onReplyTimezoneInfo(const fabric::MsgIds& ids,
                                                 const std::string& timezone,
                                                 const nubOsalTime_struct& time);

    /// A broadcast time (digital TV) has arrived.
    CHRONAL_API virtual void onNotifyDtvTimeChange(const fabric::MsgIds& ids,
                                                   const nubOsalTime_struct& dtvTime);

    /// Daylight saving time has begun (`dst` is 1) or ended (0).
    CHRONAL_API virtual void onNotifyDSTChange(const fabric::MsgIds& ids, int dst);
    /// @}

public:
    /// Sets the interface of the service. Call it before the connection is reported and before
    /// other threads send commands. It can be set once: a later call writes a debug line and
    /// changes nothing. A null pointer leaves the adapter without an interface. Locks the mutex of
    /// the state holder, so the caller may not hold it.
    void setServiceInterface(fabric::ServiceInterface* service);

    /// @name Commands
    /// Each sends one message and returns at once, without a result; the answer arrives
    /// in a callback. Any number of threads may send at the same time, also from inside a callback
    /// or a connection report. No lock is taken. Arguments are copied; a string may hold any
    /// characters.
    ///
    /// What a command does is up to the service; what is said here holds for the simulated service.
    ///
    /// The middleware fills `ids`. The description of the callbacks says when they may be read.
    ///
    /// A command is lost, and no reply comes, in these cases:
    /// - without a service interface nothing is sent, and `ids` is left as it was;
    /// - if the middleware refuses the message, it decides on `ids`. The host platform sets them to
    ///   {0, 0}, for example without a connection (-ENOTCONN);
    /// - if the connection is lost before the reply arrives.
    /// The first two write a debug line (category 203, level 3000), the second with the error
    /// number of the middleware.
    ///
    /// Commands throw std::bad_alloc, also for a string of 4 GiB or more, and pass on exceptions of
    /// the middleware. Nothing has been sent then, unless the middleware threw after it had taken
    /// the message.
    /// @{

    /// Sets the UTC time of a source to `time1`, with both fields negated if `negate` is true.
    /// `time2` is the deviation of the source; zero or a marker leaves it as it is. `value` is kept
    /// with the source.
    void cmdRefTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                       const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId, int value,
                       bool negate);

    /// Sets the local time of a source to `time1`; otherwise like cmdRefTimeSet().
    void cmdRefLocalTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                            const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId,
                            int value, bool negate);

    /// Asks for the times of a source. Answer: onReplyTimeRefInfo().
    void cmdRefTimeFetch(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Announces that the deviation of a source changes to `time2` at the UTC time `time1`.
    void cmdNextTimeDeviationChangeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                       const nubOsalTime_struct& time2,
                                       const ReferenceTimeId& refTimeId);

    /// Announces that daylight saving time lasts from the UTC time `time1` to `time2`, with the
    /// deviation `time4`. Afterwards the deviation is `time3`.
    void cmdSendDaylightsavingInfo(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                   const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
                                   const nubOsalTime_struct& time4,
                                   const ReferenceTimeId& refTimeId);

    /// Asks for the next change of the deviation of a source. Answer: onReplyUtcDeviationInfo().
    void cmdNextTimeDeviationChangeFetch(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Starts onNotifyCurrentTime() for a source. With the simulated service, a subscription
    /// belongs to the session and ends with its connection.
    void cmdRefTimeSubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);
    /// Ends what cmdRefTimeSubscribe() has begun.
    void cmdRefTimeUnsubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Protects the time of a source from being set by anyone, until it is unlocked.
    void cmdRefTimeLock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);
    /// Ends what cmdRefTimeLock() has begun, whoever locked it.
    void cmdRefTimeUnlock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Asks for the UTC and local time of a source at the UTC time `time1`. Answer:
    /// onReplyTimeRefAt().
    void cmdRefTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                      const ReferenceTimeId& refTimeId);

    /// Asks for the UTC time of a local time. Answer: onReplyTimeAt().
    void cmdLocaltimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time);

    /// Asks for the local time of a UTC time. Answer: onReplyTimeAt().
    void cmdUTCTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time);

    /// Sets the date-and-time settings that onReplyDateTimeSettingsInfo() reports; `text` is the
    /// NTP server. Does not change whether automatic time and NTP are on.
    void cmdDateTimeSettingsSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
                                const nubOsalTime_struct& time4, const int& value,
                                const std::string& text);

    /// Switches the synchronisation of the time zone on or off. The value is sent unchanged.
    void cmdTimezoneSyncEnableSet(fabric::MsgIds& ids, const int& timezoneSyncEnable);

    /// Sets the NTP server to `text`, and uses NTP if `flag` is true.
    void cmdDateTimeNtpSet(fabric::MsgIds& ids, const std::string& text, const bool& flag);

    /// Starts NTP: sets the NTP source to the true time.
    void cmdDateTimeNtpStart(fabric::MsgIds& ids);

    /// Switches automatic time on or off.
    void cmdDateTimeAutoTimeSet(fabric::MsgIds& ids, const bool& autoTime);

    /// Asks for the settings. Answer: onReplyDateTimeSettingsInfo().
    void cmdDateTimeSettingsFetch(fabric::MsgIds& ids);

    /// Sets the time zone, for example "Europe/Berlin".
    void cmdTimezoneSet(fabric::MsgIds& ids, const std::string& timezone);

    /// Asks for the time zone. Answer: onReplyTimezoneInfo().
    void cmdTimezoneFetch(fabric::MsgIds& ids);

    /// Initialises the time of all sources and switches automatic time off.
    void cmdTimeInit(fabric::MsgIds& ids);
    /// @}

    /// @name Receivers
    /// The handlers that onServiceConnected() registers. Only the middleware calls them, on its
    /// dispatch thread, each with an event of the identity that it is registered for, and keeps the
    /// event alive until they return. A receiver decodes the record, calls its callback if that is
    /// overridden, and returns 0. It calls nothing for an event without a payload. It throws
    /// std::bad_alloc or std::length_error if a string cannot be decoded, and passes on exceptions
    /// of the callback.
    /// @{

    /// Calls onReplyResult().
    int callReplyResult(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyTimeRefInfo().
    int callReplyTimeRefInfo(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyTimeRefAt().
    int callReplyTimeRefAt(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyTimeAt().
    int callReplyTimeAt(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyUtcDeviationInfo().
    int callReplyUtcDeviationInfo(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyDateTimeSettingsInfo().
    int callReplyDateTimeSettingsInfo(const fabric::SerializableMessageEvent& event);
    /// Calls onReplyTimezoneInfo().
    int callReplyTimezoneInfo(const fabric::SerializableMessageEvent& event);
    /// Calls onNotifyCurrentTime().
    int callNotifyCurrentTime(const fabric::SerializableMessageEvent& event);
    /// Calls tzset() and onNotifyDeviationChange().
    int callNotifyDeviationChange(const fabric::SerializableMessageEvent& event);
    /// Calls tzset() and onNotifyTimezoneChange().
    int callNotifyTimezoneChange(const fabric::SerializableMessageEvent& event);
    /// Calls onNotifyDtvTimeChange().
    int callNotifyDtvTimeChange(const fabric::SerializableMessageEvent& event);
    /// Calls onNotifyDSTChange().
    int callNotifyDSTChange(const fabric::SerializableMessageEvent& event);
    /// @}

private:
    friend class detail::CommandSender;

    fabric::EventHandlerIdSet handlerIds;
    fabric::AbstractApplication& application;
    fabric::AbstractComponent& component;
    fabric::ServiceInterface* serviceInterface;
};

// The defaults do nothing.
inline void UserAdapter::onReplyResult(const fabric::MsgIds&, int) {}
inline void UserAdapter::onReplyTimeRefInfo(const fabric::MsgIds&, const nubOsalTime_struct&,
                                            const nubOsalTime_struct&, const nubOsalTime_struct&,
                                            const ReferenceTimeId&, bool, int)
{
}
inline void UserAdapter::onNotifyCurrentTime(const fabric::MsgIds&, const nubOsalTime_struct&,
                                             const nubOsalTime_struct&, const nubOsalTime_struct&,
                                             int, int)
{
}
inline void UserAdapter::onNotifyDeviationChange(const fabric::MsgIds&, const nubOsalTime_struct&,
                                                 const nubOsalTime_struct&,
                                                 const nubOsalTime_struct&)
{
}
inline void UserAdapter::onNotifyTimezoneChange(const fabric::MsgIds&, const std::string&,
                                                const nubOsalTime_struct&)
{
}
inline void UserAdapter::onReplyTimeRefAt(const fabric::MsgIds&, const nubOsalTime_struct&,
                                          const nubOsalTime_struct&, const ReferenceTimeId&)
{
}
inline void UserAdapter::onReplyTimeAt(const fabric::MsgIds&, const nubOsalTime_struct&,
                                       const nubOsalTime_struct&)
{
}
inline void UserAdapter::onReplyUtcDeviationInfo(const fabric::MsgIds&, const nubOsalTime_struct&,
                                                 const nubOsalTime_struct&,
                                                 const nubOsalTime_struct&, const ReferenceTimeId&)
{
}
inline void UserAdapter::onReplyDateTimeSettingsInfo(
    const fabric::MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
    const nubOsalTime_struct&, const nubOsalTime_struct&, const nubOsalTime_struct&, const int&,
    const std::string&, const bool&, const bool&, const bool&)
{
}
inline void UserAdapter::onReplyTimezoneInfo(const fabric::MsgIds&, const std::string&,
                                             const nubOsalTime_struct&)
{
}
inline void UserAdapter::onNotifyDtvTimeChange(const fabric::MsgIds&, const nubOsalTime_struct&) {}
inline void UserAdapter::onNotifyDSTChange(const fabric::MsgIds&, int) {}

} // namespace chronal

#endif
