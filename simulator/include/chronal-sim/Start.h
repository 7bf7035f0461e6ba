#ifndef CHRONAL_SIM_START_H
#define CHRONAL_SIM_START_H

#include <sys/types.h>

#include <memory>
#include <string>

#include <fabric-host/Session.h>

namespace chronal {
namespace sim {

/// Which service a session talks to.
struct StartOptions
{
    StartOptions(const std::string& place = std::string()) : socket(place) {}

    /// The Unix-domain socket of a service in another process, or the directory that has it as
    /// chronal.sock. Empty: what the environment variable CHRONAL_SOCKET says; where that is empty,
    /// too, the service is simulated inside this process.
    std::string socket;

    /// A user whose service is trusted, besides this process's own and root. Without it: the user
    /// id that the environment variable CHRONAL_SOCKET_UID gives in decimal digits, or nobody.
    uid_t trustedUser = static_cast<uid_t>(-1);
};

/// A session, not yet connected, with the time service. Link chronal::devkit for it. Sessions of
/// one process that have the service inside share one.
///
/// Over a socket the session connects whenever the service can be reached, from connect() to
/// disconnect(): when the service comes late, clients are told that the connection failed, and once
/// more only if the error number changes; when it goes, they are told so, and later that it is
/// back.
///
/// Reasons that clients get are error numbers. Of a connection that failed: ENOENT or ECONNREFUSED
/// where no service listens, EACCES where this user may not, EPERM where the service runs as a user
/// that is not trusted, and whatever else connecting says. Of one that has gone: 0 when either side
/// ended it in good order, ECONNRESET or EPIPE when the service died without closing the
/// connection or has dropped this client, EBADMSG after a malformed frame, and in memory ENOBUFS
/// when callbacks were so slow that no notification could be queued any more.
///
/// Throws std::invalid_argument for a CHRONAL_SOCKET_UID that is not a user id, std::bad_alloc, and
/// std::system_error when the process cannot have another thread or descriptor.
std::unique_ptr<fabric::host::Session> start(const StartOptions& options = StartOptions());

/// The path of the socket at `place`: chronal.sock in it, if it is a directory or ends with a
/// slash.
std::string socketAt(const std::string& place);

} // namespace sim
} // namespace chronal

#endif
