#ifndef FABRIC_HOST_LINK_H
#define FABRIC_HOST_LINK_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>
#include <sys/un.h>

#include <fabric/Export.h>

namespace boost {
namespace asio {
class io_context;
}
} // namespace boost

namespace fabric {
namespace host {

/// One encoded message, header included.
using FrameBytes = std::vector<std::uint8_t>;

/// A non-owning view of a frame's bytes.
struct FrameView
{
    FrameView(const std::uint8_t* bytes, std::size_t count) : data(bytes), size(count) {}
    FrameView(const FrameBytes& bytes) : data(bytes.data()), size(bytes.size()) {}

    const std::uint8_t* data;
    std::size_t size;
};

/// Receives a link's reports, always on the session's loop. It must not call the link from inside a
/// report, except for send().
class LinkListener
{
public:
    virtual void linkUp() = 0;
    /// The link could not be opened; `error` is a positive error number. It may retry on its own.
    virtual void linkFailed(int error) = 0;
    /// The link was up and went down; `reason` is 0 for an orderly close, else an error number. No
    /// frame of that connection follows. The link may come up again on its own.
    virtual void linkDown(int reason) = 0;
    /// Returning false refuses the frame and takes the link down with EBADMSG; std::bad_alloc does
    /// so with ENOMEM. The bytes are unchecked, and valid until the call returns.
    virtual bool frameReceived(FrameView frame) = 0;

protected:
    ~LinkListener() {}
};

/// The client's end of a connection to a service. It carries whole frames without interpreting
/// them, so that a session works over any transport. The session calls everything except send() on
/// its loop.
class FABRIC_API Link
{
public:
    virtual ~Link();

    /// Starts connecting and reports the outcome to `listener`, possibly before it returns. One
    /// thread runs `loop`. Both arguments outlive the connection. Throws std::bad_alloc or
    /// std::system_error, leaving the link closed.
    virtual void open(boost::asio::io_context& loop, LinkListener& listener) = 0;

    /// Delivers the frames received so far, sends the queued ones for up to a second, and closes
    /// the connection without a report. A debug line counts the frames that were not sent.
    virtual void close() = 0;

    /// Sends or queues a copy of a frame. Returns 0 or a negative error number, for example
    /// -ENOTCONN, or -EAGAIN when the queue is full. Never blocks. Thread-safe.
    virtual int send(FrameView frame) = 0;

    /// Returns true if the link retries after linkFailed() and linkDown(); false by default.
    virtual bool reconnects() const noexcept;
};

/// The longest path of a Unix-domain socket in bytes, without the NUL.
constexpr std::size_t longestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

/// Creates a link to the service that listens at a Unix-domain socket. While open, the link
/// connects whenever the service is reachable, and reports only the first of consecutive equal
/// failures. The service must run as this process's user, root or `trustedUser`; otherwise the link
/// fails with EPERM.
FABRIC_API std::unique_ptr<Link> newSocketLink(const std::string& path,
                                               uid_t trustedUser = static_cast<uid_t>(-1));

} // namespace host
} // namespace fabric

#endif
