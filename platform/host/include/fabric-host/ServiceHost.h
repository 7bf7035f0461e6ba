#ifndef FABRIC_HOST_SERVICE_HOST_H
#define FABRIC_HOST_SERVICE_HOST_H

#include <cstdint>
#include <memory>
#include <string>

#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/Export.h>

namespace fabric {
namespace host {

/// How often something happened since the host was made.
struct ServiceCounters
{
    std::uint64_t framesRefused;  ///< malformed, or not a command of the service
    std::uint64_t clientsDropped; ///< for a refused frame, for not reading, or by the service
};

/// Makes a service reachable: for sessions of this process in memory, for other processes of the
/// same user over a Unix-domain socket, or both. One loop serves all clients; it is run by run(),
/// or by a thread of the host's own after start().
///
/// No client can hold up the others: each is read from in short turns, and not at all while its
/// answers wait to be taken, nor, for a quarter of a second at most, while others have to catch up
/// with what it has them notified of. One that sends anything but a command of the service is
/// disconnected, and so is one for which 1024 notifications or 256 KiB wait. Of more than 256
/// clients the last ones are disconnected at once. A debug line tells why.
class FABRIC_API ServiceHost
{
public:
    /// `service` outlives the host.
    explicit ServiceHost(Service& service);

    /// Stops a thread that start() has made, as stop() does, and waits for its end.
    ~ServiceHost();

    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /// Listens at `path`, for this user alone, until the host stops. The directory has to exist. A
    /// socket left behind by a service that is gone is replaced; a socket in use, and whatever is
    /// not a socket, stays. Before run() or start(). Throws std::runtime_error that names the path
    /// and what is wrong.
    void listen(const std::string& path);

    /// Serves on this thread until the host is stopped. Once; not after start().
    void run();

    /// Serves on a thread of the host's own. Once; not after run().
    void start();

    /// Ends the service in good order: removes the socket, and lets the clients have what waits for
    /// them, for a second at most; told twice, it does not wait. Any thread.
    void stop() noexcept;

    /// Any thread.
    ServiceCounters counters() const noexcept;

private:
    friend FABRIC_API std::unique_ptr<Link> newMemoryLink(std::shared_ptr<ServiceHost> host);
    class MemoryLink;
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

/// A link to a service of this process, which keeps the host alive. Any thread.
FABRIC_API std::unique_ptr<Link> newMemoryLink(std::shared_ptr<ServiceHost> host);

} // namespace host
} // namespace fabric

#endif
