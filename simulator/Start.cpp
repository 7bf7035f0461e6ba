#include <fabric-host/Link.h>
#include <fabric-host/ServiceHost.h>
#include <fabric-host/Session.h>
#include <fabric-host/SocketPath.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include "Protocol.h"
#include "TimeService.h"

namespace fabric::host {

namespace {

/// The simulated service on a thread of its own.
struct RunningService
{
    RunningService() { host.start(); }

    chronal::sim::TimeService service;
    ServiceHost host{service};
};

/// The sessions of this process share one, for as long as there are any.
std::shared_ptr<ServiceHost> sharedService()
{
    static std::mutex mutex;
    static std::weak_ptr<RunningService> running;

    const std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<RunningService> service = running.lock();
    if (!service) {
        service = std::make_shared<RunningService>();
        running = service;
    }
    return std::shared_ptr<ServiceHost>(service, &service->host);
}

std::string socketPath(const StartOptions& options)
{
    const char* const fromEnvironment = std::getenv("CHRONAL_SOCKET");
    return options.socket.empty() && fromEnvironment ? fromEnvironment : options.socket;
}

} // namespace

std::unique_ptr<Session> start(const StartOptions& options)
{
    const std::string path = socketPath(options);
    return std::make_unique<Session>(path.empty() ? newMemoryLink(sharedService())
                                                  : newSocketLink(socketAt(path)),
                                     chronal::sim::catalogue());
}

} // namespace fabric::host
