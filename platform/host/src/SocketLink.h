#ifndef FABRIC_HOST_SOCKET_LINK_H
#define FABRIC_HOST_SOCKET_LINK_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <fabric-host/Link.h>
#include <fabric/Export.h>

namespace fabric {
namespace host {

/// A link to a service in another process, over a Unix-domain socket.
///
/// Opened once, it connects whenever the service can be reached, until it is closed: after a
/// failure, and after the end of a connection, it tries again, first after 50 ms, then after twice
/// as long each time, up to 2 s; a frame from the service starts that anew. Of failures in a row
/// only the first is reported, and each that has another error number. The reasons of linkDown()
/// are those that start() names.
class FABRIC_API SocketLink final : public Link
{
public:
    /// `path` is the socket's name in the file system.
    explicit SocketLink(std::string path);
    ~SocketLink() override;

    void open(LinkListener& listener) override;
    void close() override;
    int send(const FrameBytes& frame) override;
    bool triesAgain() const noexcept override { return true; }
    void frameRefused(std::uint32_t connection) noexcept override;

private:
    class Connector;

    const std::string socketPath;
    std::mutex mutex;
    std::unique_ptr<Connector> connector; // null when closed
};

} // namespace host
} // namespace fabric

#endif
