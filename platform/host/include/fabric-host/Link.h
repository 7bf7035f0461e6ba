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

/// The bytes of a frame that somebody else keeps.
struct FrameView
{
    FrameView(const std::uint8_t* bytes, std::size_t count) : data(bytes), size(count) {}
    FrameView(const FrameBytes& bytes) : data(bytes.data()), size(bytes.size()) {}

    const std::uint8_t* data;
    std::size_t size;
};

/// What a link reports to its session, always on the session's loop. The listener does not call
/// the link from inside, except for send().
class LinkListener
{
public:
    virtual void linkUp() = 0;
    /// Could not be opened: `error` is a positive error number. The link may try again on its own.
    virtual void linkFailed(int error) = 0;
    /// Was up and is no more; `reason` is 0 for an orderly close, else an error number. Nothing of
    /// that connection comes afterwards. The link may come up again on its own.
    virtual void linkDown(int reason) = 0;
    /// False refuses the frame, and the link goes down with EBADMSG; with ENOMEM after
    /// std::bad_alloc. The bytes are valid until the call returns; they need not be a frame at all.
    virtual bool frameReceived(FrameView frame) = 0;

protected:
    ~LinkListener() {}
};

/// The application's end of a connection to a service: carries whole frames and knows nothing of
/// their contents. This is the seam between the session and a transport.
///
/// The session calls everything but send() on its loop.
class FABRIC_API Link
{
public:
    virtual ~Link();

    /// Starts to connect; the outcome is reported to `listener`, possibly before this returns. One
    /// thread runs `loop`. Both outlive the connection. Throws std::bad_alloc or
    /// std::system_error; the link is not open then.
    virtual void open(boost::asio::io_context& loop, LinkListener& listener) = 0;

    /// Hands over what has been received, lets the service have what is queued, for a second at
    /// most, and goes down without a report; a debug line tells how many frames were given up.
    virtual void close() = 0;

    /// Sends or queues a copy of a frame: 0, or a negative error number (-ENOTCONN, -EAGAIN when
    /// the queue is full, or whatever else keeps it from going). Never blocks. Any thread.
    virtual int send(FrameView frame) = 0;

    /// Whether the link tries again on its own after linkFailed() and linkDown(); false here.
    virtual bool reconnects() const noexcept;
};

/// In characters; what the address of a Unix-domain socket has room for.
constexpr std::size_t longestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

/// A link to the service that listens at a Unix-domain socket. From its opening to its closing it
/// connects whenever the service can be reached, and reports the first of equal failures in a row.
/// The service has to run as this process's user, as root, or as `trustedUser`; another one fails
/// with EPERM.
FABRIC_API std::unique_ptr<Link> newSocketLink(const std::string& path,
                                               uid_t trustedUser = static_cast<uid_t>(-1));

} // namespace host
} // namespace fabric

#endif
