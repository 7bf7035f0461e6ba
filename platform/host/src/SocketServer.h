#ifndef FABRIC_HOST_SOCKET_SERVER_H
#define FABRIC_HOST_SOCKET_SERVER_H

#include <initializer_list>
#include <memory>
#include <string>

#include <fabric-host/Service.h>
#include <fabric/Export.h>

#include "ServiceServer.h"

namespace fabric {
namespace host {

/// Makes a service reachable for other processes of the same user, over a Unix-domain socket.
///
/// A client that sends what is no command of the service is disconnected, and so is one that does
/// not read while 1024 messages wait for it. Of more than 256 clients at a time the last ones are
/// disconnected at once. Each time a debug line tells why.
class FABRIC_API SocketServer
{
public:
    /// Listens at `path` from now on; serves when run() is called. `service` outlives the server.
    /// The `stopSignals` do what stop() does; they are caught from now on. Throws
    /// std::runtime_error that names the path and what is wrong: see SocketFile.
    SocketServer(Service& service, const std::string& path,
                 std::initializer_list<int> stopSignals = {});
    ~SocketServer();

    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    /// Serves on this thread until the server is stopped. Once.
    void run();

    /// Removes the socket, lets the clients have what waits for them, for a second at most, and
    /// makes run() return; told twice, it does not wait. Any thread.
    void stop();

    /// Any thread.
    ServerCounters counters() const noexcept;

private:
    class Impl;
    const std::unique_ptr<Impl> impl;
};

} // namespace host
} // namespace fabric

#endif
