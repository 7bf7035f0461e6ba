#include <chronal-sim/Start.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <fabric-host/Link.h>
#include <fabric-host/Printable.h>
#include <fabric-host/ServiceHost.h>

#include "TimeService.h"
#include <chronal-sim/Messages.h>

namespace chronal::sim {

namespace {

/// The simulated service, running on a thread of its own.
struct RunningService
{
    RunningService() { host.start(); }

    TimeService service;
    fabric::host::ServiceHost host{service};
};

/// The sessions of this process share one service, which lives as long as any of them.
std::shared_ptr<fabric::host::ServiceHost> sharedService()
{
    static std::mutex mutex;
    static std::weak_ptr<RunningService> running;

    const std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<RunningService> service = running.lock();
    if (!service) {
        service = std::make_shared<RunningService>();
        running = service;
    }
    return std::shared_ptr<fabric::host::ServiceHost>(service, &service->host);
}

std::string environment(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

uid_t trustedUser(const StartOptions& options)
{
    const std::string text = environment("CHRONAL_SOCKET_UID");
    if (options.trustedUser != static_cast<uid_t>(-1) || text.empty())
        return options.trustedUser;
    uid_t user = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, user);
    if (error != std::errc() || rest != end)
        throw std::invalid_argument("CHRONAL_SOCKET_UID: '" + fabric::host::printable(text) +
                                    "' is not a user id; expected for example 1000");
    return user;
}

} // namespace

std::unique_ptr<fabric::host::Session> start(const StartOptions& options)
{
    const std::string place =
        options.socket.empty() ? environment("CHRONAL_SOCKET") : options.socket;
    std::unique_ptr<fabric::host::Link> link =
        place.empty() ? fabric::host::newMemoryLink(sharedService())
                      : fabric::host::newSocketLink(socketAt(place), trustedUser(options));
    return std::make_unique<fabric::host::Session>(std::move(link), catalogue());
}

std::string socketAt(const std::string& place)
{
    const std::filesystem::path path = place;
    std::error_code ignored;
    const bool directory =
        !place.empty() && (!path.has_filename() || std::filesystem::is_directory(path, ignored));
    return directory ? path / "chronal.sock" : path;
}

} // namespace chronal::sim
