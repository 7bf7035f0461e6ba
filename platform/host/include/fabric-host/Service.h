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

/// Names one connected application to a service; never used twice in the life of a server.
typedef std::uint32_t ClientId;

/// The road from a service to its clients. Called on the service's thread only.
class ClientSender
{
public:
    /// Sends a reply or notification to one client and destroys the event. The event's ids travel
    /// as they are. A client that cannot take it is disconnected; the service hears of that through
    /// Service::clientDisconnected(), after the call in progress. An event for a client that is
    /// gone, or that is not in the catalogue, goes nowhere.
    virtual void send(ClientId client, std::unique_ptr<SerializableMessageEvent> event) = 0;

    /// Ends the connection to a client, which is told the error number `reason` if its transport
    /// carries one. The service hears of it as above. Ignored for a client that is gone.
    virtual void drop(ClientId client, int reason) = 0;

protected:
    ~ClientSender() {}
};

/// A service that the host platform can make reachable. All its operations are called on one
/// thread, one at a time; it needs no lock and starts no thread of its own. An exception out of an
/// operation is reported as a debug line; the service and its clients live on. Only a client is
/// disconnected that could not be told to the service, or for whose command there was no memory.
class FABRIC_API Service
{
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    virtual ~Service();

    /// The same object every time; outlives the service.
    virtual const MessageCatalogue& catalogue() const = 0;

    /// The outlet stays valid until the service is destroyed. Called once, first.
    virtual void start(ClientSender& outlet) = 0;

    virtual void clientConnected(ClientId client) = 0;
    virtual void clientDisconnected(ClientId client) = 0;

    /// A command of a client. Its identity is in the catalogue, its record is complete and in host
    /// byte order, its strings hold exactly their length and a NUL; the values are whatever the
    /// client sent.
    virtual void commandReceived(ClientId client, const SerializableMessageEvent& command) = 0;

    /// Does what is due and returns the time at which it wants to be called again at the latest;
    /// TimePoint::max() for never. Called after the operations above as well, once for those that
    /// were waiting together, and possibly for no reason; each call may return a later time.
    virtual TimePoint runDue() = 0;
};

} // namespace host
} // namespace fabric

#endif
