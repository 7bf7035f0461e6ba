#ifndef CHRONAL_TESTING_DESK_H
#define CHRONAL_TESTING_DESK_H

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#if __cplusplus >= 201703L
#define CHRONAL_NODISCARD [[nodiscard]]
#else
#define CHRONAL_NODISCARD
#endif

#include <chronal-sim/Messages.h>
#include <chronal-testing/Command.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Session.h>
#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/ClientInterface.h>
#include <fabric/MsgMeta.h>
#include <fabric/ServiceInterface.h>

namespace chronal {
namespace testing {

/// Ends what a function of Desk has begun. Must be destroyed before the desk; scopes of the same
/// kind in the reverse order of their creation.
class CHRONAL_NODISCARD Scope
{
public:
    /// Calls `end` in its destructor.
    explicit Scope(std::function<void()> end) : end_(std::move(end)) {}
    /// Leaves `other` without anything to end.
    Scope(Scope&& other) noexcept : end_(nullptr) { end_.swap(other.end_); }
    ~Scope()
    {
        if (end_)
            end_();
    }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    std::function<void()> end_;
};

/// A session with the simulated time service for the tests of an application: no threads, no
/// sockets, no sleeping.
///
/// Between the application and the service lie the codec and the dispatcher of a host's session, so
/// that whatever passes here passes with chronal-simd. But a message or report is delivered only
/// inside run(), runOne(), runUntilIdle(), advance() or advanceTo(), and time stands still except
/// in the last two.
///
/// The session connects by itself, at the first delivery, and again after each loss. All calls come
/// from one thread. The functions that deliver must not be called inside a callback; that throws
/// std::logic_error, there and from the delivery in progress. An exception of a callback is counted
/// in session().counters(), as in a running application.
///
/// Commands are named after the functions of chronal::UserAdapter, for example "cmdTimezoneSet".
/// Another name throws std::invalid_argument.
class Desk
{
public:
    /// Starts a service in this zone at this UTC, which notifies subscribers once a period. Throws
    /// std::invalid_argument for an unknown zone, a time outside the years 1970 to 9999, or a
    /// period that is not between 1 ms and a day.
    explicit Desk(const std::string& zone = "UTC", const Time& start = utc("2026-01-01T00:00:00Z"),
                  std::chrono::milliseconds notificationPeriod = std::chrono::seconds(1));

    /// Everything that refers to the desk must be gone, except for attached clients.
    ~Desk();

    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    fabric::AbstractApplication& application(); ///< for the constructor of an adapter
    fabric::AbstractComponent& component();     ///< likewise
    fabric::ServiceInterface& service();        ///< for chronal::UserAdapter::setServiceInterface()
    fabric::host::Session& session();           ///< to disconnect, and for its counters

    /// Reports the connection to a client, as the middleware does, until the end of the scope.
    Scope attach(fabric::ClientInterface& client);

    /// Delivers one message or report, or begins to connect. Returns false if there is nothing to
    /// do.
    bool runOne();

    /// Delivers what waits, but not what that causes. Returns the number of messages and reports.
    std::size_t run();

    /// Delivers until nothing waits. Returns the number of messages and reports. Throws
    /// std::runtime_error if what waits causes more than 10 000 others.
    std::size_t runUntilIdle();

    /// The service's UTC. After the year 9999 it goes on in 1970.
    Time now() const;

    /// Sets the service's UTC, as if somebody had set the clock: nothing falls due on the way.
    void setTime(const Time& time);

    /// Lets time pass. Whatever falls due on the way is delivered at its moment, in order; nothing
    /// waits afterwards. Throws std::invalid_argument for a negative span, or more than a century
    /// in the life of the desk; setTime() goes further.
    void advance(std::chrono::microseconds span);
    /// Does the same up to a time. Throws std::invalid_argument for a time in the past.
    void advanceTo(const Time& time);

    /// The commands that the middleware has accepted, in the order in which they were sent.
    const std::vector<Command>& commands() const;
    void forgetCommands(); ///< empties commands()

    // Errors of answers and of sendEvent() are negative numbers, those of reports are positive.
    // Another number throws std::invalid_argument, as does a message of the wrong kind.

    /// Has the service answer a command with this result instead of carrying it out.
    Scope refuse(const std::string& command, int error);

    /// Loses a command: it is neither carried out nor answered.
    Scope ignore(const std::string& command);

    /// Delays the answer to a command, which is carried out at once. Answers that are delayed when
    /// the scope ends still come late. Throws std::invalid_argument like advance().
    Scope delay(const std::string& command, std::chrono::microseconds span);

    /// Has the service answer a command with this message, the right one or not, instead of
    /// carrying it out. The record's fields have the order of chronal/MessageRecords.h.
    template <class Record>
    Scope answer(const std::string& command, const sim::Message<Record>& message,
                 const typename sim::Message<Record>::Record& record)
    {
        return answerWith(command, message, &record);
    }

    /// Sends a reply with the ids of a command. Throws std::logic_error without a connection.
    template <class Record>
    void reply(const fabric::MsgIds& ids, const sim::Message<Record>& message,
               const typename sim::Message<Record>::Record& record)
    {
        inject(&ids, message, &record);
    }
    /// Sends a notification, also only with a connection.
    template <class Record>
    void notify(const sim::Message<Record>& message,
                const typename sim::Message<Record>::Record& record)
    {
        inject(nullptr, message, &record);
    }

    /// Breaks the connection, if there is one: everything in flight is lost, and clients get this
    /// reason, which is 0 for an orderly end. After that, the session connects again.
    void drop(int reason = ECONNRESET);

    /// Has attempts to connect fail. An existing connection stays up.
    Scope unreachable(int error = ECONNREFUSED);

    /// Has the middleware refuse every command with this negative error number.
    Scope refuseToSend(int error = -EAGAIN);

private:
    Scope answerWith(const std::string& command, const fabric::host::MessageType& message,
                     const void* record);
    void inject(const fabric::MsgIds* ids, const fabric::host::MessageType& message,
                const void* record);

    class Impl;
    const std::unique_ptr<Impl> impl_;
};

} // namespace testing
} // namespace chronal

#endif
