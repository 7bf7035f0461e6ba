#ifndef FABRIC_HOST_SERVICE_H
#define FABRIC_HOST_SERVICE_H

#include <chrono>
#include <cstdint>
#include <memory>

#include <fabric-host/MessageCatalogue.h>
#include <fabric/Export.h>
#include <fabric/SerializableMessage.h>

namespace fabric {
namespace host {

/// Identifies one connected client to a service. An id is not reused while the host lives.
typedef std::uint32_t ClientId;

/// Sends a service's messages to its clients. Called on the service's thread only.
class ClientSender
{
public:
    /// Sends a reply or notification with unchanged ids to one client and destroys the event. If it
    /// cannot be queued, the client is disconnected, which Service::clientDisconnected() reports
    /// after the call in progress. An event that is not in the catalogue, or is for a disconnected
    /// client, is discarded.
    virtual void send(ClientId client, std::unique_ptr<SerializableMessageEvent> event) = 0;

    /// Closes the connection to a client, passing on the error number `reason` if the transport can
    /// carry it. The service is notified as above. Ignored for a disconnected client.
    virtual void drop(ClientId client, int reason) = 0;

protected:
    ~ClientSender() {}
};

/// A service that a ServiceHost makes reachable. Its operations are called on one thread, one at a
/// time, so it needs no locks or threads of its own. An exception from an operation is written as a
/// debug line, and the host continues. It costs a client its connection only if clientConnected()
/// threw it, or if memory ran out for the client's command.
class FABRIC_API Service
{
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    virtual ~Service();

    /// Returns the same object every time; it outlives the service.
    virtual const MessageCatalogue& catalogue() const = 0;

    /// Called once, before the operations below. `outlet` is valid while the host lives.
    virtual void start(ClientSender& outlet) = 0;

    virtual void clientConnected(ClientId client) = 0;
    virtual void clientDisconnected(ClientId client) = 0;

    /// Handles a client's command. Its identity is in the catalogue, its record is complete and in
    /// host byte order, and each string has `length` characters and a NUL. The values are
    /// unchecked.
    virtual void commandReceived(ClientId client, const SerializableMessageEvent& command) = 0;

    /// Does the work that is due. Returns the latest time for the next call, which replaces that of
    /// the previous one; TimePoint::max() means never. Also called after the operations above, once
    /// per batch, and possibly when nothing is due.
    virtual TimePoint runDue() = 0;
};

} // namespace host
} // namespace fabric

#endif
