#ifndef FABRIC_HOST_FRAME_STREAM_H
#define FABRIC_HOST_FRAME_STREAM_H

#include <chrono>
#include <cstddef>
#include <memory>

#include <boost/asio/io_context.hpp>

#include <fabric-host/Link.h>

#include "../base/LoopTask.h"

namespace fabric::host {

/// Bounds of what waits to be sent in one direction of a connection. The bytes hold the longest
/// frame four times; a thousand commands are a burst that an application may well send at once.
constexpr std::size_t maxQueuedFrames = 1024;
constexpr std::size_t maxQueuedBytes = 256 * 1024;

/// How long an end that closes in good order waits for the other one to take what is queued.
constexpr std::chrono::seconds lingerTimeout(1);

/// Is told, on the stream's loop, what arrives over a stream.
class FrameListener
{
public:
    /// False refuses the frame, which ends the connection with EBADMSG; std::bad_alloc ends it with
    /// ENOMEM. `frame` is valid until the call returns; it need not be a frame at all.
    virtual bool frameReceived(FrameView frame) = 0;

    /// Whether the next frame may come. After false none comes before FrameStream::resume().
    virtual bool mayRead() { return true; }

    /// No more frames come before others have had their turn.
    virtual void turnEnded() {}

    /// The connection has ended; `reason` is 0 if the other end closed it in good order. The last
    /// call; none follows close().
    virtual void ended(int reason) = 0;

protected:
    ~FrameListener() {}
};

/// One end of a connection that carries frames. Belongs to the thread that runs its loop, except
/// for send(). Always owned by a shared_ptr.
class FrameStream : public std::enable_shared_from_this<FrameStream>
{
public:
    enum Flow
    {
        freeFlow, ///< reads whatever arrives
        throttled ///< reads nothing while what it sent waits to be taken
    };

    virtual ~FrameStream() = default;

    FrameStream(const FrameStream&) = delete;
    FrameStream& operator=(const FrameStream&) = delete;

    /// Has the loop read from now on; `listener` outlives the connection or close(). Once.
    void start(FrameListener& listener);

    /// The listener may read again.
    void resume() noexcept { turn_.schedule(); }

    /// Whether what was sent waits to be taken. A throttled stream takes a turn when it has gone.
    virtual bool isCongested() = 0;

    /// Sends or queues a copy of the frame: 0, or a negative error number: -ENOTCONN, -EAGAIN when
    /// the queue is full, -ENOMEM, or why the other end cannot be reached any more. Never blocks.
    /// Any thread.
    virtual int send(FrameView frame) = 0;

    /// Sends no more, and tells the other end so once everything queued has gone.
    virtual void shutdownSend() = 0;

    /// Waits until the other end has taken what is queued, for lingerTimeout at most. Returns how
    /// many frames it has not taken.
    virtual std::size_t drain() = 0;

    /// Hands over all that has arrived by now, before close().
    void deliverReceived();

    /// Ends the connection without a report here. `reason` is for the other end, if the transport
    /// can tell it.
    virtual void close(int reason) = 0;

    virtual bool isOpen() const noexcept = 0;

protected:
    FrameStream(boost::asio::io_context& loop, Flow flow)
        : flow_(flow), turn_(loop, [this] { takeTurn(); })
    {
    }

    /// Gives `frame` the next one that has arrived, valid until the next call; false if there is
    /// none yet.
    virtual bool nextFrame(FrameView& frame) = 0;

    /// Calls takeTurn() when more has arrived, or ends the connection if nothing more will.
    virtual void awaitInput() = 0;

    /// Hands over the frames that have arrived, for a short time: other streams on the loop have
    /// their turn in between.
    void takeTurn();

    /// Closes, with a report here.
    void end(int reason);

    const Flow flow_;
    LoopTask turn_; ///< takes another turn

private:
    FrameListener* listener_ = nullptr;
};

} // namespace fabric::host

#endif
