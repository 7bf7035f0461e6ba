#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Service.h>
#include <fabric-host/Session.h>

#include <memory>
#include <mutex>

#include "MemoryLink.h"

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

} // namespace

std::unique_ptr<Session> start()
{
    return std::make_unique<Session>(std::make_unique<MemoryLink>(sharedService()),
                                     serviceCatalogue());
}

} // namespace host
} // namespace fabric
