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

/// How often something happened since the session was made. A count wraps where size_t ends, which
/// on 32-bit hosts is after 4 294 967 295.
struct SessionCounters
{
    std::uint64_t framesSent;
    std::uint64_t framesReceived;
    std::uint64_t framesRefused; ///< malformed, a command, of an identity that the service does not
                                 ///< have, or one for which there was no memory
    std::uint64_t messagesUnhandled; ///< well-formed, but nobody had registered for them
    std::uint64_t exceptionsCaught;  ///< out of callbacks
};

/// What a host application has in the place of the device's middleware: one application with one
/// component, the interface of one service, and one dispatch thread, which delivers connection
/// reports, replies and notifications in order.
///
/// All operations may be called from any thread, also from inside a callback, unless they say
/// otherwise.
///
/// Each session is an application of its own to the service. A reply goes to the session that sent
/// the command, and there to every adapter, as does a notification; both carry no adapter's name.
///
/// The ids of a command are filled in before it goes, so they are known when its reply arrives,
/// which may be before the command has returned. A command that could not be sent leaves {0, 0},
/// which no reply carries.
class FABRIC_API Session
{
public:
    /// A session over `link`. `catalogue` tells the service's messages and outlives the session.
    Session(std::unique_ptr<Link> link, const MessageCatalogue& catalogue);

    /// Closes the connection as disconnect() does, detaches the clients that are still attached and
    /// ends the dispatch thread. Not from inside a callback.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    AbstractApplication& application();
    AbstractComponent& component();
    ServiceInterface& service();

    /// From now on reports the connection to `client`; a connection that already stands is reported
    /// at once, on the dispatch thread. `client` stays alive until it is detached. A client that is
    /// attached already stays attached once. Throws std::bad_alloc, having changed nothing.
    void attach(ClientInterface& client);

    /// Ends the reports to `client`. If the connection stands, the client is told first that it is
    /// gone, on the dispatch thread, with reason 0. When it has returned, no report is running or
    /// will come; called inside a callback of that client, too, it returns when the client has been
    /// told. A client that is not attached is ignored.
    void detach(ClientInterface& client);

    /// Opens the connection, also one that was lost; returns at once, the clients are told the
    /// outcome, a lack of memory or descriptors among it. Nothing happens if it stands already, or
    /// if it is lost and its link tries again on its own.
    void connect() noexcept;

    /// Closes the connection: at once for commands, and for the clients when they are told, with
    /// reason 0. What has been received by then is still delivered first; nothing is delivered
    /// after the report. Commands sent by then still reach the service: a service that does not
    /// take them is waited for, for a second at most, and a debug line tells how many were given
    /// up.
    void disconnect() noexcept;

    SessionCounters counters() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Keeps a client attached for a scope. Declare it after the client, so that reports end before
/// the client is destroyed.
class Attachment
{
public:
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
