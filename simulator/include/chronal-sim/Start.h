#ifndef CHRONAL_SIM_START_H
#define CHRONAL_SIM_START_H

#include <sys/types.h>

#include <memory>
#include <string>

#include <fabric-host/Session.h>

namespace chronal {
namespace sim {

/// Selects the service that a session talks to.
struct StartOptions
{
    /// Sets `socket`.
    StartOptions(const std::string& place = std::string()) : socket(place) {}

    /// The Unix-domain socket of a service in another process, or the directory that contains it as
    /// chronal.sock. If empty, the environment variable CHRONAL_SOCKET is used; if that is empty or
    /// not set, the service is simulated inside this process.
    std::string socket;

    /// A user whose service is trusted, besides this process's own user and root. The default is
    /// the user id, in decimal digits, in the environment variable CHRONAL_SOCKET_UID, if any.
    uid_t trustedUser = static_cast<uid_t>(-1);
};

/// Returns a session with the time service, not yet connected. Link chronal::devkit to use it.
/// Sessions whose service is simulated inside this process share one service.
///
/// From connect() to disconnect(), a session over a socket connects whenever the service can be
/// reached. While it cannot, clients get a report that the connection failed, and another only when
/// the error number changes. They also get a report when a connection is lost or restored.
///
/// The reasons in these reports are error numbers. For a failed connection: ENOENT or ECONNREFUSED
/// if no service listens, EACCES if this user may not connect, EPERM if the service runs as a user
/// that is not trusted, or another error of the attempt to connect. For a lost connection: 0 if
/// either side closed it in good order, ECONNRESET or EPIPE if the service died without closing the
/// connection or has dropped this client, EBADMSG after a malformed frame, and in memory ENOBUFS if
/// callbacks were so slow that no further notification could be queued.
///
/// Throws std::invalid_argument for a CHRONAL_SOCKET_UID that is not a user id, std::bad_alloc, and
/// std::system_error if the process cannot get another thread or descriptor.
std::unique_ptr<fabric::host::Session> start(const StartOptions& options = StartOptions());

/// Returns the path of chronal.sock in `place` if that is a directory or ends with a slash, and
/// `place` itself otherwise.
std::string socketAt(const std::string& place);

} // namespace sim
} // namespace chronal

#endif
