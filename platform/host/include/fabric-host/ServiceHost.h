#ifndef FABRIC_HOST_SERVICE_HOST_H
#define FABRIC_HOST_SERVICE_HOST_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Counts events since the host was created.
struct ServiceCounters
{
    std::uint64_t framesRefused;  ///< malformed, or not a command of the service
    std::uint64_t clientsDropped; ///< by the service, or for bad frames, not reading, no memory
};

/// Makes a service reachable in memory for sessions of this process, over a Unix-domain socket for
/// other processes of the same user, or both. One loop serves all clients, on the thread that calls
/// run() or, after start(), on a thread of the host's own.
///
/// No client can hold up the others: each is read from in short turns, and not while it leaves its
/// replies unread. A client whose commands notify others also waits for them to catch up, for up to
/// 250 ms. A client is disconnected if it sends anything but a command of the service, or if 1024
/// messages or 256 KiB are queued for it. Connections beyond 256 clients are closed at once. A
/// debug line gives the reason.
class FABRIC_API ServiceHost
{
public:
    /// `service` outlives the host.
    explicit ServiceHost(Service& service);

    /// Stops the thread that start() created, as stop() does, and waits for its end.
    ~ServiceHost();

    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /// Listens at `path`, for this user only, until the host stops. Call it once, before run() or
    /// start(). The directory must exist. A stale socket is replaced; a socket in use, or a file
    /// that is not a socket, is left alone. Throws std::runtime_error that names the path and the
    /// cause.
    void listen(const std::string& path);

    /// Serves on the calling thread until the host is stopped. Call it once, and not after start().
    void run();

    /// Serves on a thread of the host's own. Call it once, and not after run().
    void start();

    /// Runs `call` on the service's thread, between two operations of the service, unless the host
    /// is stopped before. Thread-safe. Throws std::bad_alloc.
    void post(std::function<void()> call);

    /// Shuts the service down: removes the socket, and sends what is queued for up to a second. A
    /// second call does not wait for that. Thread-safe.
    void stop() noexcept;

    /// Thread-safe.
    ServiceCounters counters() const noexcept;

private:
    friend FABRIC_API std::unique_ptr<Link> newMemoryLink(std::shared_ptr<ServiceHost> host);
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

/// Creates a link to a service in this process. The link keeps the host alive. Thread-safe.
FABRIC_API std::unique_ptr<Link> newMemoryLink(std::shared_ptr<ServiceHost> host);

} // namespace host
} // namespace fabric

#endif
