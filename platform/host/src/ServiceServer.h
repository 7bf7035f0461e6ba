#ifndef FABRIC_HOST_SERVICE_SERVER_H
#define FABRIC_HOST_SERVICE_SERVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/Export.h>

namespace fabric {
namespace host {

/// A transport's end of the connection to one client. Called on the service's thread.
class Peer
{
public:
    virtual ~Peer() {}

    /// False when the client cannot take the frame; the server drops it then. Never blocks.
    virtual bool deliver(const FrameBytes& frame) = 0;

    /// Ends the connection; `reason` is an error number. The server has forgotten the client.
    virtual void drop(int reason) = 0;
};

/// How often something happened since the server was made.
struct ServerCounters
{
    std::uint64_t framesRefused;  ///< malformed, or no commands
    std::uint64_t clientsDropped; ///< for not reading or for a refused frame, or by the service
};

/// What every transport does for a service: gives its clients numbers, makes messages of their
/// frames and frames of its messages. Not for use by two threads at a time.
class FABRIC_API ServiceServer final : private ServiceOutlet
{
public:
    /// `hostedService` outlives the server or its last call.
    explicit ServiceServer(Service& hostedService);
    ~ServiceServer();

    ServiceServer(const ServiceServer&) = delete;
    ServiceServer& operator=(const ServiceServer&) = delete;

    /// Once, before all others.
    void start();

    ClientId connected(std::shared_ptr<Peer> peer);
    /// The client is gone. Ignored for one that the server has dropped.
    void disconnected(ClientId client);
    /// False for a frame that was refused. Ignored for a client that the server has dropped.
    bool frameReceived(ClientId client, const FrameBytes& frame);

    /// The service hears of it by the end of the next runDue(), if not before.
    void drop(ClientId client, int reason, const char* why);

    /// Does what is due; returns when to call again at the latest.
    Service::TimePoint runDue();

    /// Any thread.
    ServerCounters counters() const noexcept { return {framesRefused, clientsDropped}; }

private:
    void send(ClientId client, std::unique_ptr<SerializableMessageEvent> event) override;
    void drop(ClientId client, int reason) override;

    bool toFrame(const SerializableMessageEvent& event, FrameBytes& frame) const;
    bool receive(ClientId client, const FrameBytes& frame);
    bool refuse(ClientId client, const char* reason);
    template <typename Call>
    bool callService(const char* operation, Call call);
    void tellDropped();

    Service& service;
    FrameBytes outgoing; // its memory serves one frame after the other
    std::unordered_map<ClientId, std::shared_ptr<Peer>> clients;
    std::vector<ClientId> dropped; // the service has not heard of it yet
    ClientId lastClient = 0;
    std::atomic<std::size_t> framesRefused{0};
    std::atomic<std::size_t> clientsDropped{0};
};

} // namespace host
} // namespace fabric

#endif
