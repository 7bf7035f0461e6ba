#ifndef FABRIC_HOST_LINK_H
#define FABRIC_HOST_LINK_H

#include <cstdint>
#include <vector>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// One encoded message, header included (see Frame.h).
typedef std::vector<std::uint8_t> FrameBytes;

/// What a link tells the session that uses it. The calls may come on any thread, one at a time,
/// in order; they neither block nor call back into the link.
class LinkListener
{
public:
    /// Returns a number for the connection, which no other one has.
    virtual std::uint32_t linkUp() = 0;
    /// Could not be opened: `error` is a positive error number. The link may try again on its own.
    virtual void linkFailed(int error) = 0;
    /// Was up and is no more; `reason` is 0 for an orderly close, else an error number. Nothing of
    /// that connection comes afterwards. The link may try to come up again on its own.
    virtual void linkDown(int reason) = 0;
    /// False when the listener's queue is full: the link is to go down with ENOBUFS.
    virtual bool frameReceived(const FrameBytes& frame) = 0;

protected:
    ~LinkListener() {}
};

/// The application's end of a connection to a service: carries whole frames, knows nothing of what
/// is in them. This is the seam between the session and a transport.
class FABRIC_API Link
{
public:
    virtual ~Link();

    /// Starts connecting; the outcome is reported to `listener`, which outlives the link or the
    /// return of close().
    virtual void open(LinkListener& listener) = 0;

    /// Lets the service have what is queued, for a second at most, and goes down without a report;
    /// a debug line tells how many frames had to be given up. When it has returned, the listener is
    /// not called any more.
    virtual void close() = 0;

    /// Queues a copy of a frame for the service: 0, or a negative error number (-ENOTCONN, -EAGAIN
    /// when the queue is full, or what else keeps it from going). Never blocks. Any thread.
    virtual int send(const FrameBytes& frame) = 0;

    /// Whether the link tries again on its own after linkFailed() and linkDown(); false here.
    virtual bool triesAgain() const noexcept;

    /// Tells the link that the listener found a frame of a connection malformed. A link whose other
    /// end may be anybody goes down with EBADMSG, if that connection still stands; it does nothing
    /// here. Any thread.
    virtual void frameRefused(std::uint32_t connection) noexcept;
};

} // namespace host
} // namespace fabric

#endif
