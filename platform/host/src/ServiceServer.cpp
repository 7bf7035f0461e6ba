#include "ServiceServer.h"

#include <cerrno>
#include <string>
#include <utility>

#include "Contained.h"
#include "Frame.h"
#include "Log.h"
#include "WorkQueue.h"

namespace fabric {
namespace host {
namespace {

constexpr std::uint8_t kindCommand = 0;

/// When a service that failed to tell is called again.
constexpr std::chrono::seconds retryAfter(1);

} // namespace

ServiceServer::ServiceServer(Service& hostedService) : service(hostedService) {}

ServiceServer::~ServiceServer() = default;

void ServiceServer::start()
{
    callService("start", [this] { service.start(*this); });
    tellDropped();
}

ClientId ServiceServer::connected(std::shared_ptr<Peer> peer)
{
    const ClientId client = ++lastClient;
    clients.emplace(client, std::move(peer));
    callService("clientConnected", [&] { service.clientConnected(client); });
    tellDropped();
    return client;
}

void ServiceServer::disconnected(ClientId client)
{
    if (clients.count(client) != 0) {
        dropped.push_back(client); // first, since it may throw
        clients.erase(client);
    }
    tellDropped();
}

bool ServiceServer::frameReceived(ClientId client, const FrameBytes& frame)
{
    if (clients.count(client) == 0)
        return true;
    bool accepted = false;
    contained([&] { accepted = receive(client, frame); },
              [&](const char* reason) { refuse(client, reason); });
    tellDropped();
    return accepted;
}

Service::TimePoint ServiceServer::runDue()
{
    Service::TimePoint next;
    if (!callService("runDue", [&] { next = service.runDue(); }))
        next = Service::TimePoint::clock::now() + retryAfter;
    tellDropped();
    return next;
}

void ServiceServer::send(ClientId client, std::unique_ptr<SerializableMessageEvent> event)
{
    const auto found = clients.find(client);
    recycle(outgoing);
    if (found == clients.end() || !event || !toFrame(*event, outgoing))
        return;
    if (!found->second->deliver(outgoing))
        drop(client, ENOBUFS, "it does not read");
}

bool ServiceServer::toFrame(const SerializableMessageEvent& event, FrameBytes& frame) const
{
    std::string reason;
    if (event.meta.kind == kindCommand)
        reason = "a command";
    else if (belongsTo(service.catalogue(), event, reason) && encodeFrame(event, frame) != 0)
        reason = "longer than a frame";
    if (!reason.empty())
        log(logTrouble, "fabric-host: message of the service not sent: %s\n", reason.c_str());
    return reason.empty();
}

bool ServiceServer::receive(ClientId client, const FrameBytes& frame)
{
    std::string reason;
    const std::unique_ptr<SerializableMessageEvent> command =
        decodeFrame(frame, service.catalogue(), reason);
    if (!command)
        return refuse(client, reason.c_str());
    if (command->meta.kind != kindCommand)
        return refuse(client, "not a command");
    log(logEveryMessage, "fabric-host: command of client %u: resource %u, operation %u\n", client,
        command->meta.resourceId, command->meta.operationId);
    callService("commandReceived", [&] { service.commandReceived(client, *command); });
    return true;
}

/// Always false.
bool ServiceServer::refuse(ClientId client, const char* reason)
{
    ++framesRefused;
    log(logTrouble, "fabric-host: frame of client %u refused: %s\n", client, reason);
    return false;
}

void ServiceServer::drop(ClientId client, int reason)
{
    drop(client, reason, "by the service");
}

void ServiceServer::drop(ClientId client, int reason, const char* why)
{
    const auto found = clients.find(client);
    if (found == clients.end())
        return;
    dropped.push_back(client);
    const std::shared_ptr<Peer> peer = std::move(found->second);
    clients.erase(found);
    ++clientsDropped;
    log(logTrouble, "fabric-host: client %u dropped: %s\n", client, why);
    peer->drop(reason);
}

/// One call into the service, and no exception out of it: false if there was one.
template <typename Call>
bool ServiceServer::callService(const char* operation, Call call)
{
    return contained(call, [operation](const char* what) {
        log(logTrouble, "fabric-host: exception out of the service's %s: %s\n", operation, what);
    });
}

void ServiceServer::tellDropped()
{
    // What the service does about one may cost it the next.
    while (!dropped.empty()) {
        const ClientId client = dropped.back();
        dropped.pop_back();
        callService("clientDisconnected", [&] { service.clientDisconnected(client); });
    }
}

} // namespace host
} // namespace fabric
