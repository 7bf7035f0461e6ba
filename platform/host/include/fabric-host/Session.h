#ifndef FABRIC_HOST_SESSION_H
#define FABRIC_HOST_SESSION_H

#include <cstdint>
#include <memory>
#include <string>

#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/ClientInterface.h>
#include <fabric/Export.h>
#include <fabric/ServiceInterface.h>

namespace fabric {
namespace host {

class Link;
class MessageCatalogue;

/// Counts events since the session was created. On 32-bit hosts a count wraps after 4 294 967 295.
struct SessionCounters
{
    std::uint64_t framesSent;        ///< commands
    std::uint64_t framesReceived;    ///< replies and notifications
    std::uint64_t framesRefused;     ///< malformed, a command, of an unknown identity, or received
                                     ///< when memory was exhausted
    std::uint64_t messagesUnhandled; ///< well-formed, but no handler was registered
    std::uint64_t exceptionsCaught;  ///< thrown by callbacks
};

/// Selects the thread that runs a session's loop and is its dispatch thread.
enum class Dispatch
{
    ownThread, ///< a thread of the session's own
    caller     ///< the one thread that uses the session, which calls poll()
};

/// Replaces the device's middleware on a host: provides one application with one component, the
/// interface of one service, and one dispatch thread, which delivers connection reports, replies
/// and notifications in order.
///
/// All operations may be called from any thread, including inside a callback, unless stated
/// otherwise.
///
/// The service sees each session as a separate client. A reply is delivered to the session that
/// sent the command. Within a session, replies and notifications reach every adapter, since neither
/// names one.
///
/// The ids of a command are set before it is sent, because its reply may arrive before sendEvent()
/// returns. A command that could not be sent leaves {0, 0}, which no reply carries.
class FABRIC_API Session
{
public:
    /// Does not open `link` yet. `catalogue` lists the service's messages and outlives the session.
    Session(std::unique_ptr<Link> link, const MessageCatalogue& catalogue,
            Dispatch dispatch = Dispatch::ownThread);

    /// Closes the connection as disconnect() does, detaches the remaining clients and ends the
    /// dispatch thread. Must not be called inside a callback.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    AbstractApplication& application(); ///< lives as long as the session
    AbstractComponent& component();     ///< likewise
    ServiceInterface& service();        ///< likewise

    /// Reports the connection to `client` from now on. If it is up already, that is reported at
    /// once, on the dispatch thread. `client` must live until it is detached. Ignored for a client
    /// that is attached. Throws std::bad_alloc, having changed nothing.
    void attach(ClientInterface& client);

    /// Ends the reports to `client`. If the connection is up, the client is first notified of its
    /// end, on the dispatch thread, with reason 0. When this returns, no report is running or will
    /// follow; called inside a callback of that client, it returns as soon as the client is
    /// notified. Ignored for a client that is not attached.
    void detach(ClientInterface& client);

    /// Opens the connection, or reopens a lost one. Returns at once; the outcome, including a lack
    /// of memory or descriptors, is reported to the clients. Has no effect on a connection that is
    /// up, or that its link restores on its own.
    void connect() noexcept;

    /// Closes the connection. Further commands fail with -ENOTCONN. Messages received so far are
    /// still delivered, then the clients are notified with reason 0, and nothing is delivered after
    /// that. Queued commands are still sent, for up to a second; a debug line counts those given
    /// up.
    void disconnect() noexcept;

    /// Only with Dispatch::caller: opens and closes the link, and makes the reports and deliveries
    /// that are due, until nothing is. Never waits. Returns true if there was anything to do. Must
    /// not be called inside a callback.
    bool poll();

    SessionCounters counters() const; ///< since the session was created

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Keeps a client attached for a scope. Declare it after the client, so that reports end before
/// the client is destroyed.
class Attachment
{
public:
    /// Attaches `client`. Throws std::bad_alloc.
    Attachment(Session& session, ClientInterface& client) : session_(session), client_(client)
    {
        session_.attach(client_);
    }
    ~Attachment() { session_.detach(client_); }

    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

private:
    Session& session_;
    ClientInterface& client_;
};

} // namespace host
} // namespace fabric

#endif
