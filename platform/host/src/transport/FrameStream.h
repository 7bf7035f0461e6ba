#ifndef FABRIC_HOST_FRAME_STREAM_H
#define FABRIC_HOST_FRAME_STREAM_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include <fabric-host/Link.h>

#include "../base/Loop.h"

namespace fabric::host {

/// Limits the send queue in one direction of a connection. An application may well send a thousand
/// commands in one burst; the bytes hold four frames of maximum size.
constexpr std::size_t maxQueuedFrames = 1024;
constexpr std::size_t maxQueuedBytes = 256 * 1024;

/// Limits how long an orderly close waits for the other end to read what is queued.
constexpr std::chrono::seconds lingerTimeout(1);

/// Receives what arrives over a stream. Called on the stream's loop.
class FrameListener
{
public:
    /// Returning false refuses the frame and ends the connection with EBADMSG; std::bad_alloc ends
    /// it with ENOMEM. `frame` is unchecked, and valid until the call returns.
    virtual bool frameReceived(FrameView frame) = 0;

    /// Returns true if the next frame may come. After false, reading pauses; see resume().
    virtual bool mayRead() { return true; }

    /// The stream's turn is over; other streams come next.
    virtual void turnEnded() {}

    /// The connection has ended; `reason` is 0 if the other end closed it in good order. No frame
    /// follows. Not called after close().
    virtual void ended(int reason) = 0;

protected:
    ~FrameListener() {}
};

/// One end of a connection that carries frames. Use it on its loop's thread only, except for
/// send(). A shared_ptr must own it.
class FrameStream : public std::enable_shared_from_this<FrameStream>
{
public:
    virtual ~FrameStream() = default;

    FrameStream(const FrameStream&) = delete;
    FrameStream& operator=(const FrameStream&) = delete;

    /// Starts reading. `listener` must live until the connection ends or close(). Call it once.
    void start(FrameListener& listener);

    /// Resumes reading after FrameListener::mayRead() has returned false.
    void resume() noexcept { turn_.schedule(); }

    /// Returns true while too much waits for the other end to read it. Afterwards the stream takes
    /// a turn.
    virtual bool isCongested() = 0;

    /// Sends or queues a copy of the frame. Returns 0 or a negative error number: -ENOTCONN,
    /// -EAGAIN if the queue is full, -ENOMEM, or the error that broke the connection. Never blocks.
    /// Thread-safe.
    virtual int send(FrameView frame) = 0;

    /// Accepts no more frames, and signals the end of the stream after the queued ones.
    virtual void shutdownSend() = 0;

    /// Waits until the queue has been sent, for lingerTimeout at most. Returns the number of frames
    /// left in it.
    virtual std::size_t drain() = 0;

    /// Delivers the frames received so far. Called before close().
    void deliverReceived();

    /// Closes the connection without a report to the listener. The other end receives `reason` if
    /// the transport can carry it.
    virtual void close(int reason) = 0;

    virtual bool isOpen() const noexcept = 0;

protected:
    explicit FrameStream(boost::asio::io_context& loop) : turn_(loop, [this] { takeTurn(); }) {}

    /// Sets `frame` to the next received frame, valid until the next call. Returns false if there
    /// is none yet.
    virtual bool nextFrame(FrameView& frame) = 0;

    /// Calls takeTurn() when more arrives, or ends the connection if nothing more will.
    virtual void awaitInput() = 0;

    /// Delivers the frames that have arrived, for a short time, so that other streams on the loop
    /// get their turn.
    void takeTurn();

    /// Closes the connection with a report to the listener.
    void end(int reason);

    LoopTask turn_; ///< calls takeTurn()

private:
    FrameListener* listener_ = nullptr;
};

using Socket = boost::asio::local::stream_protocol::socket;

std::shared_ptr<FrameStream> newSocketStream(boost::asio::io_context& loop, Socket connected);

/// Creates the two ends of a connection in memory: the client's and the service's. Thread-safe.
/// The caller may destroy an end on this thread until either has sent something.
std::pair<std::shared_ptr<FrameStream>, std::shared_ptr<FrameStream>>
newMemoryStreams(boost::asio::io_context& clientLoop, boost::asio::io_context& serviceLoop);

/// Connects to a service. Throws std::bad_alloc or std::system_error.
using Connector = std::function<std::shared_ptr<FrameStream>(boost::asio::io_context& loop)>;

/// Creates a link over the streams of a connector. A link that `reconnects` does so for as long as
/// it is open.
std::unique_ptr<Link> newStreamLink(Connector connector, bool reconnects);

} // namespace fabric::host

#endif
