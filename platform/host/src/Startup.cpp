#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Service.h>
#include <fabric-host/Session.h>
#include <fabric-host/SocketPath.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "MemoryLink.h"
#include "SocketLink.h"

namespace fabric {
namespace host {
namespace {

/// The one that the sessions of this process share, for as long as there are any.
std::shared_ptr<ServiceThread> sharedService()
{
    static std::mutex mutex;
    static std::weak_ptr<ServiceThread> running;

    const std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<ServiceThread> service = running.lock();
    if (!service) {
        service = std::make_shared<ServiceThread>(createService());
        running = service;
    }
    return service;
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
    std::unique_ptr<Link> link;
    if (path.empty())
        link = std::make_unique<MemoryLink>(sharedService());
    else
        link = std::make_unique<SocketLink>(socketAt(path));
    return std::make_unique<Session>(std::move(link), serviceCatalogue());
}

} // namespace host
} // namespace fabric
