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

/// An application's access to the device's time service: derive, override the callbacks of
/// interest, send commands.
///
/// Life: construct; setServiceInterface() once; then the middleware reports the connection, any
/// number of times up and down; commands at any time after setServiceInterface(); destroy, after
/// the middleware has been told to make no more reports. The application and component objects and
/// the service interface are not owned and outlive the adapter.
///
/// Times are {seconds, microseconds}: absolute ones since 1970-01-01 00:00:00 UTC, deviations as
/// signed spans from UTC to local time (see chronal::Helpers, also for the two markers that stand
/// for an invalid and for an unknown deviation).
class CHRONAL_API UserAdapter : public fabric::StatePart, public fabric::ClientInterface
{
public:
    /// Throws only what the middleware's constructors throw.
    UserAdapter(fabric::AbstractApplication& app, fabric::AbstractComponent& comp);

    /// Drops what is still registered with the middleware; sends nothing and calls no callback.
    /// Destroy the adapter when no connection report or message can be under way to it.
    ~UserAdapter() override = 0;

    /// Reports of the middleware, called through fabric::ClientInterface on its dispatch thread. An
    /// application that overrides one calls it from its override: onServiceConnected() registers
    /// the handlers of all replies and notifications, onServiceDisconnected() drops them.
    ///
    /// The reasons are the middleware's numbers. Those of the host platform are positive error
    /// numbers (errno), or 0 for a connection that was closed in good order; fabric-host/Session.h
    /// lists them. A connection reported before setServiceInterface() registers nothing. Exceptions
    /// of the middleware pass through; what has been registered by then stays registered.
    void onServiceConnectionFailed(int reason) override;
    void onServiceDisconnected(int reason) override;
    void onServiceConnected() override;

protected:
    /// Replies and notifications. Each callback is called on the middleware's dispatch thread, with
    /// the connection up, and only if the application overrides it. Commands may be sent from
    /// inside; the adapter may not be destroyed there.
    ///
    /// `ids` are those of the received message: a reply carries the ids that sending its command
    /// filled in. Everything passed by reference is valid until the callback returns: copy what is
    /// to be kept. Values arrive as the service sent them, unchecked. An exception passes through
    /// to the middleware.
    ///
    /// The adapter does not look at `ids`. It passes on every reply that its component receives,
    /// also to commands of another adapter there, and every notification that its application
    /// receives. The host platform delivers each message to all adapters of a session.
    ///
    /// A reply may be delivered before its command has returned. A thread other than the dispatch
    /// thread therefore sends and keeps the ids under a lock, and the callback compares under the
    /// same lock:
    ///
    ///     std::lock_guard<std::mutex> lock(mutex); // the thread that sends
    ///     cmdTimezoneFetch(asked);
    ///
    ///     std::lock_guard<std::mutex> lock(mutex); // onReplyTimezoneInfo()
    ///     if (ids == asked) ...
    ///
    /// To make ids and to compare them is the middleware's to offer; the host platform offers it.
    ///
    /// A command sent from inside a callback needs no lock for this: its reply is delivered on the
    /// same thread, after the callback has returned.
    ///
    /// Which message answers which command, and what a result, a flag or a value means, is the
    /// service's matter; what is said of it here holds for the simulated one.
    ///
    /// Their order is part of the binary interface and closed: applications append virtual
    /// functions of their own. Each is exported by name, because an override is told by its
    /// address.

    /// The outcome of a command that has no other answer, or of any command that the service has
    /// refused: 0, or a negative error number such as -EBUSY.
    CHRONAL_API virtual void onReplyResult(const fabric::MsgIds& ids, int result);

    /// Answers cmdRefTimeFetch(): the times of one source. `flag` tells whether the source has a
    /// valid time; without one the times are zero and the deviation is the unknown one. `value` is
    /// the number that the source was last set with, 0 at first.
    CHRONAL_API virtual void
    onReplyTimeRefInfo(const fabric::MsgIds& ids, const nubOsalTime_struct& utcDeviation,
                       const nubOsalTime_struct& utcTime, const nubOsalTime_struct& localTime,
                       const ReferenceTimeId& refTimeId, bool flag, int value);

    /// The current time of a source subscribed to with cmdRefTimeSubscribe().
    ///
    /// The source is not named, and every adapter of the application is called, whichever has
    /// subscribed: nothing says whose time it is once the application has subscribed to a second
    /// source. It can subscribe to one only. Or it can take the notification, or a timer of its
    /// own, merely as the occasion for cmdRefTimeFetch(), whose reply names the source. On the host
    /// platform each session is an application of its own, so one session for each source is a
    /// third way.
    ///
    /// `flag` is 1 or 0 and has the meaning that it has in onReplyTimeRefInfo(), as has `value`.
    /// The value tells sources apart if each is set with a number of its own and nobody else sets
    /// them.
    CHRONAL_API virtual void onNotifyCurrentTime(const fabric::MsgIds& ids,
                                                 const nubOsalTime_struct& utcDeviation,
                                                 const nubOsalTime_struct& utcTime,
                                                 const nubOsalTime_struct& localTime, int flag,
                                                 int value);

    /// The deviation from UTC has changed; the process's time zone has been re-read (tzset()).
    CHRONAL_API virtual void onNotifyDeviationChange(const fabric::MsgIds& ids,
                                                     const nubOsalTime_struct& utcDeviation,
                                                     const nubOsalTime_struct& utcTime,
                                                     const nubOsalTime_struct& localTime);

    /// The time zone has changed; the process's time zone has been re-read (tzset()).
    CHRONAL_API virtual void onNotifyTimezoneChange(const fabric::MsgIds& ids,
                                                    const std::string& timezone,
                                                    const nubOsalTime_struct& time);

    /// Answers cmdRefTimeAt(): UTC and local time of one source at the time asked for.
    CHRONAL_API virtual void onReplyTimeRefAt(const fabric::MsgIds& ids,
                                              const nubOsalTime_struct& utcTime,
                                              const nubOsalTime_struct& localTime,
                                              const ReferenceTimeId& refTimeId);

    /// Answers cmdLocaltimeAt() and cmdUTCTimeAt(): one moment as UTC and as local time.
    CHRONAL_API virtual void onReplyTimeAt(const fabric::MsgIds& ids,
                                           const nubOsalTime_struct& utcTime,
                                           const nubOsalTime_struct& localTime);

    /// Answers cmdNextTimeDeviationChangeFetch(): when the deviation changes next, and to what.
    CHRONAL_API virtual void onReplyUtcDeviationInfo(const fabric::MsgIds& ids,
                                                     const nubOsalTime_struct& utcDeviation,
                                                     const nubOsalTime_struct& utcTime,
                                                     const nubOsalTime_struct& localTime,
                                                     const ReferenceTimeId& refTimeId);

    /// Answers cmdDateTimeSettingsFetch(): all fields of the settings. `time0` is the RTC's UTC;
    /// the other times and `value` are those of cmdDateTimeSettingsSet(), which nothing interprets;
    /// `text` is the NTP server; `flag1` tells whether the time is automatic, `flag2` whether NTP
    /// is used.
    CHRONAL_API virtual void
    onReplyDateTimeSettingsInfo(const fabric::MsgIds& ids, const nubOsalTime_struct& time0,
                                const nubOsalTime_struct& time1, const nubOsalTime_struct& time2,
                                const nubOsalTime_struct& time3, const nubOsalTime_struct& time4,
                                const int& value, const std::string& text, const bool& flag1,
                                const bool& flag2, const bool& timezoneSyncEnable);

    /// Answers cmdTimezoneFetch(): the zone, and the time that goes with it.
    CHRONAL_API virtual void onReplyTimezoneInfo(const fabric::MsgIds& ids,
                                                 const std::string& timezone,
                                                 const nubOsalTime_struct& time);

    /// A broadcast (digital TV) time has arrived.
    CHRONAL_API virtual void onNotifyDtvTimeChange(const fabric::MsgIds& ids,
                                                   const nubOsalTime_struct& dtvTime);

    /// Daylight saving has begun (`dst` is 1) or ended (0).
    CHRONAL_API virtual void onNotifyDSTChange(const fabric::MsgIds& ids, int dst);

public:
    /// Hands over the service's interface; null leaves the adapter without one. Before the
    /// connection is reported, and before commands are sent from other threads. Once only: a
    /// further call changes nothing and writes a debug line. Takes the state holder's mutex, so it
    /// may not be called with that mutex held.
    void setServiceInterface(fabric::ServiceInterface* service);

    /// Commands. Each sends one message and returns at once; the answer arrives in a callback.
    ///
    /// `ids` is handed to the middleware, which fills it; when it may be read is told with the
    /// callbacks. Arguments are copied, so they need not outlive the call; strings may hold any
    /// characters. Any thread, several at a time, also from inside a callback; no lock is taken.
    ///
    /// Without a service interface nothing is sent and `ids` stays as it was; a message that the
    /// middleware refuses is lost. Both write a debug line (category 203, level 3000), the second
    /// with the middleware's negative number, and are not reported to the caller in any other way;
    /// no reply comes. The host platform leaves {0, 0} in `ids` of a message that it has refused,
    /// as it does with -ENOTCONN where there is no connection; another middleware may leave
    /// anything. A message that was sent is not answered either if the connection is lost before.
    ///
    /// Throws std::bad_alloc, also for a string of 4 GiB and more, and whatever the middleware
    /// throws; nothing has been sent then unless the middleware threw after it took the message.

    /// Sets a source's UTC time `time1`. With `negate` both fields of `time1` are sent negated.
    void cmdRefTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                       const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId, int value,
                       bool negate);

    /// Sets a source's local time `time1`; otherwise as cmdRefTimeSet().
    void cmdRefLocalTimeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                            const nubOsalTime_struct& time2, const ReferenceTimeId& refTimeId,
                            int value, bool negate);

    /// Asks for a source's times. Answer: onReplyTimeRefInfo().
    void cmdRefTimeFetch(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Announces the next change of the deviation from UTC.
    void cmdNextTimeDeviationChangeSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                       const nubOsalTime_struct& time2,
                                       const ReferenceTimeId& refTimeId);

    /// Announces a daylight-saving period.
    void cmdSendDaylightsavingInfo(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                   const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
                                   const nubOsalTime_struct& time4,
                                   const ReferenceTimeId& refTimeId);

    /// Asks for the next change of the deviation. Answer: onReplyUtcDeviationInfo().
    void cmdNextTimeDeviationChangeFetch(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Asks for a source's time at intervals: onNotifyCurrentTime(), until unsubscribed. With the
    /// simulated service a subscription is the session's and ends with its connection.
    void cmdRefTimeSubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);
    void cmdRefTimeUnsubscribe(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Keeps a source's time from being set, until unlocked.
    void cmdRefTimeLock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);
    void cmdRefTimeUnlock(fabric::MsgIds& ids, const ReferenceTimeId& refTimeId);

    /// Asks for UTC and local time of a source at `time1`. Answer: onReplyTimeRefAt().
    void cmdRefTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                      const ReferenceTimeId& refTimeId);

    /// Asks for UTC and local time at a given local time. Answer: onReplyTimeAt().
    void cmdLocaltimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time);

    /// Asks for UTC and local time at a given UTC time. Answer: onReplyTimeAt().
    void cmdUTCTimeAt(fabric::MsgIds& ids, const nubOsalTime_struct& time);

    /// Sets the date-and-time settings.
    void cmdDateTimeSettingsSet(fabric::MsgIds& ids, const nubOsalTime_struct& time1,
                                const nubOsalTime_struct& time2, const nubOsalTime_struct& time3,
                                const nubOsalTime_struct& time4, const int& value,
                                const std::string& text);

    /// Switches the synchronisation of the time zone; the value is sent unchanged.
    void cmdTimezoneSyncEnableSet(fabric::MsgIds& ids, const int& timezoneSyncEnable);

    /// Configures NTP: server and whether it is used.
    void cmdDateTimeNtpSet(fabric::MsgIds& ids, const std::string& text, const bool& flag);

    /// Starts NTP.
    void cmdDateTimeNtpStart(fabric::MsgIds& ids);

    /// Switches automatic time.
    void cmdDateTimeAutoTimeSet(fabric::MsgIds& ids, const bool& autoTime);

    /// Asks for the settings. Answer: onReplyDateTimeSettingsInfo().
    void cmdDateTimeSettingsFetch(fabric::MsgIds& ids);

    /// Sets the time zone, for example "Europe/Berlin".
    void cmdTimezoneSet(fabric::MsgIds& ids, const std::string& timezone);

    /// Asks for the time zone. Answer: onReplyTimezoneInfo().
    void cmdTimezoneFetch(fabric::MsgIds& ids);

    /// Initialises the time.
    void cmdTimeInit(fabric::MsgIds& ids);

    /// Receivers: what onServiceConnected() registers, one per message. Only the middleware calls
    /// them, on its dispatch thread, with an event of the identity that was registered; it keeps
    /// the event alive until they return. Each decodes the record, calls its callback if that is
    /// overridden, and returns 0. An event without payload calls nothing. An exception of the
    /// callback passes through.
    int callReplyResult(const fabric::SerializableMessageEvent& event);
    int callReplyTimeRefInfo(const fabric::SerializableMessageEvent& event);
    int callReplyTimeRefAt(const fabric::SerializableMessageEvent& event);
    int callReplyTimeAt(const fabric::SerializableMessageEvent& event);
    int callReplyUtcDeviationInfo(const fabric::SerializableMessageEvent& event);
    int callReplyDateTimeSettingsInfo(const fabric::SerializableMessageEvent& event);
    int callReplyTimezoneInfo(const fabric::SerializableMessageEvent& event);
    int callNotifyCurrentTime(const fabric::SerializableMessageEvent& event);
    int callNotifyDeviationChange(const fabric::SerializableMessageEvent& event);
    int callNotifyTimezoneChange(const fabric::SerializableMessageEvent& event);
    int callNotifyDtvTimeChange(const fabric::SerializableMessageEvent& event);
    int callNotifyDSTChange(const fabric::SerializableMessageEvent& event);

private:
    friend class detail::CommandSender;

    fabric::EventHandlerIdSet handlerIds;
    fabric::AbstractApplication& application;
    fabric::AbstractComponent& component;
    fabric::ServiceInterface* serviceInterface;
};

// The callbacks that an application leaves alone.
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
