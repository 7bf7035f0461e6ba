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
struct MessageCatalogue;

/// How often something happened since the session was made; each count starts again from 0 where
/// size_t ends.
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
    /// attached already stays attached once.
    void attach(ClientInterface& client);

    /// Ends the reports to `client`. If the connection stands, the client is told first that it is
    /// gone, on the dispatch thread, with reason 0. When it has returned, no report is running or
    /// will come; called inside a callback of that client, too, it returns when the client has been
    /// told. A client that is not attached is ignored.
    void detach(ClientInterface& client);

    /// Opens the connection, also one that was lost; returns at once, the clients are told the
    /// outcome. Nothing happens if it stands already, or if it is lost and its link tries again on
    /// its own.
    void connect();

    /// Closes the connection; the clients are told, with reason 0. What has been received by then
    /// is still delivered first; nothing is delivered after the report. Commands sent by then still
    /// reach the service: a service that does not take them is waited for, for a second at most,
    /// and a debug line tells how many were given up.
    void disconnect();

    SessionCounters counters() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

/// Keeps a client attached for a scope. Declare it after the client, so that reports end before
/// the client is destroyed.
class Attachment
{
public:
    Attachment(Session& hostSession, ClientInterface& attached)
        : session(hostSession), client(attached)
    {
        session.attach(client);
    }
    ~Attachment() { session.detach(client); }

    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

private:
    Session& session;
    ClientInterface& client;
};

struct StartOptions
{
    /// The Unix-domain socket of a service in another process, or the folder that has it as
    /// chronal.sock. Empty: what the environment variable CHRONAL_SOCKET says; where that is empty,
    /// too, the service is simulated inside this process.
    std::string socket;
};

/// A session, not yet connected, with the default service. Link chronal::devkit for it. Sessions of
/// one process that have the service inside share one.
///
/// Over a socket the session connects whenever the service can be reached, from connect() to
/// disconnect(): when the service comes late, clients are told that the connection failed, and once
/// more only if the error number changes; when it goes, they are told so, and later that it is
/// back.
///
/// Reasons that clients get are error numbers. Of a connection that failed: ENOENT or ECONNREFUSED
/// where no service listens, EACCES where this user may not, and whatever else connecting says. Of
/// one that has gone: 0 when either side ended it in good order, ECONNRESET or EPIPE when the
/// service is gone without, EBADMSG after a malformed frame of it, ENOBUFS when callbacks were so
/// slow that the session's queue was full.
std::unique_ptr<Session> start(const StartOptions& options = StartOptions());

} // namespace host
} // namespace fabric

#endif
