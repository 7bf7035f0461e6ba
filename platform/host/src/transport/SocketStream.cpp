#include <fabric-host/Frame.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>

#include "FrameStream.h"

namespace fabric::host {
namespace {

namespace asio = boost::asio;

/// Holds many frames of typical size; the buffer grows for as long as a longer one needs it.
constexpr std::size_t usualSize = 4096;

/// Carries frames over a socket.
class SocketStream final : public FrameStream
{
public:
    SocketStream(asio::io_context& loop, Socket connected)
        : FrameStream(loop),
          socket_(std::move(connected)),
          input_(usualSize),
          awaitRoom_(loop, [this] { awaitRoom(); })
    {
    }

    int send(FrameView frame) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (sendError_ != 0)
            return -sendError_;
        if (!open_ || finishing_)
            return -ENOTCONN;
        // Send at once if possible, since waking the loop costs more than sending.
        const bool first = queuedFrames_ == 0;
        const std::size_t sent = first ? sendNow(frame.data, frame.size) : 0;
        if (sent == frame.size)
            return 0;
        if (sendError_ != 0)
            return -sendError_;
        if (queuedFrames_ >= maxQueuedFrames || queue_.size() - sent_ + frame.size > maxQueuedBytes)
            return -EAGAIN;
        try {
            queue_.insert(queue_.end(), frame.data + sent, frame.data + frame.size);
        } catch (const std::bad_alloc&) {
            if (sent != 0) // the other end cannot recover from half a frame
                fail(ENOMEM);
            return -ENOMEM;
        }
        ++queuedFrames_;
        if (first) {
            firstEnd_ = queue_.size();
            awaitRoom_.schedule();
        }
        return 0;
    }

    void shutdownSend() override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!open_ || std::exchange(finishing_, true))
            return;
        if (queuedFrames_ == 0)
            ::shutdown(socket_.native_handle(), SHUT_WR);
    }

    std::size_t drain() override
    {
        const auto deadline = std::chrono::steady_clock::now() + lingerTimeout;
        std::chrono::milliseconds left = lingerTimeout;
        const std::lock_guard<std::mutex> lock(mutex_);
        pollfd state = {socket_.native_handle(), POLLIN | POLLOUT, 0};
        std::array<std::uint8_t, usualSize> ignored;
        while (queuedFrames_ != 0 && open_ && sendError_ == 0 && left.count() > 0) {
            ::poll(&state, 1, static_cast<int>(left.count()));
            // The service does not read until its replies are read, so read and discard them. At
            // the end of input, POLLIN would be set forever.
            if ((state.revents & POLLIN) != 0 &&
                ::recv(socket_.native_handle(), ignored.data(), ignored.size(), MSG_DONTWAIT) == 0)
                state.events = POLLOUT;
            sendQueued();
            left = std::chrono::ceil<std::chrono::milliseconds>(deadline -
                                                                std::chrono::steady_clock::now());
        }
        return queuedFrames_;
    }

    void close(int) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!open_.exchange(false))
            return;
        // Also ends the connection for a forked child that still has this descriptor.
        ::shutdown(socket_.native_handle(), SHUT_RDWR);
        boost::system::error_code ignored;
        socket_.close(ignored);
    }

    bool isCongested() override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return queuedFrames_ != 0 && sendError_ == 0;
    }

    bool isOpen() const noexcept override { return open_; }

private:
    bool nextFrame(FrameView& frame) override
    {
        wanted_ = sizeof(std::uint32_t);
        const std::size_t available = end_ - begin_;
        if (available < wanted_)
            return false;
        const std::uint8_t* const start = &input_[begin_];
        const std::size_t length = lengthOfFrame(start);
        // If the length is invalid, all input is delivered as one frame, which the listener
        // refuses.
        frame = {start, isFrameLength(length) ? length : available};
        if (frame.size > available) {
            wanted_ = frame.size;
            return false;
        }
        begin_ += frame.size;
        return true;
    }

    void awaitInput() override
    {
        if (reading_)
            return;
        end_ -= begin_;
        std::memmove(&input_[0], &input_[begin_], end_);
        begin_ = 0;
        const std::size_t size = std::max(wanted_, usualSize);
        if (size > input_.size() || (size < input_.size() && end_ <= usualSize)) {
            FrameBytes resized(size);
            std::memcpy(&resized[0], &input_[0], end_);
            input_.swap(resized);
        }
        reading_ = true;
        const auto self = std::static_pointer_cast<SocketStream>(shared_from_this());
        socket_.async_read_some(
            asio::buffer(&input_[end_], input_.size() - end_),
            preallocated(readMemory_, [self](const boost::system::error_code& error,
                                             std::size_t count) { self->received(error, count); }));
    }

    void received(const boost::system::error_code& error, std::size_t count)
    {
        reading_ = false;
        if (!open_)
            return;
        if (error)
            return end(error == asio::error::eof ? reasonOfEnd() : error.value());
        end_ += count;
        takeTurn();
    }

    /// Returns the reason for the end of input. A peer that died has closed both directions; one
    /// that called shutdownSend() still reads.
    int reasonOfEnd()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (sendError_ != 0)
            return sendError_;
        pollfd state = {socket_.native_handle(), 0, 0};
        const bool gone = ::poll(&state, 1, 0) != 0 && (state.revents & POLLHUP) != 0;
        return gone || end_ != begin_ ? ECONNRESET : 0;
    }

    void roomAvailable(const boost::system::error_code& error)
    {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (!open_ || error)
                return;
            if (sendError_ == 0)
                sendQueued();
            if (sendError_ == 0 && queuedFrames_ != 0)
                return awaitRoom();
            if (finishing_)
                ::shutdown(socket_.native_handle(), SHUT_WR);
        }
        takeTurn();
    }

    void awaitRoom()
    {
        if (!open_)
            return;
        const auto self = std::static_pointer_cast<SocketStream>(shared_from_this());
        socket_.async_wait(
            Socket::wait_write,
            preallocated(writeMemory_, [self](const boost::system::error_code& error) {
                self->roomAvailable(error);
            }));
    }

    /// Returns how many bytes the socket accepted. Needs the mutex held, like the next two.
    std::size_t sendNow(const std::uint8_t* bytes, std::size_t size) noexcept
    {
        std::size_t sent = 0;
        while (sent < size) {
            const ssize_t count = ::send(socket_.native_handle(), bytes + sent, size - sent,
                                         MSG_DONTWAIT | MSG_NOSIGNAL);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                if (errno != EAGAIN)
                    fail(errno);
                break;
            }
            sent += static_cast<std::size_t>(count);
        }
        return sent;
    }

    void sendQueued() noexcept
    {
        sent_ += sendNow(queue_.data() + sent_, queue_.size() - sent_);
        while (queuedFrames_ != 0 && firstEnd_ <= sent_)
            if (--queuedFrames_ != 0)
                firstEnd_ += lengthOfFrame(&queue_[firstEnd_]);
        if (queuedFrames_ == 0) {
            FrameBytes().swap(queue_); // frees the memory of a burst
            sent_ = 0;
        } else if (sent_ > maxQueuedBytes) {
            queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(sent_));
            firstEnd_ -= sent_;
            sent_ = 0;
        }
    }

    /// Stops sending. Input that has already arrived is still read; its end ends the connection.
    void fail(int error) noexcept
    {
        sendError_ = error;
        ::shutdown(socket_.native_handle(), SHUT_RDWR);
    }

    Socket socket_;
    FrameBytes input_;
    std::size_t begin_ = 0;  ///< start of the input not yet delivered
    std::size_t end_ = 0;    ///< end of the input
    std::size_t wanted_ = 0; ///< bytes needed from begin_ on to continue
    bool reading_ = false;
    OperationMemory readMemory_;

    std::mutex mutex_; ///< guards the members below and the closing of socket_
    std::atomic<bool> open_{true};
    bool finishing_ = false; ///< sends what is queued, but accepts no more
    int sendError_ = 0;      ///< if set, nothing is sent, but what has arrived is still read
    FrameBytes queue_;       ///< frames, the first of which may be partly sent
    std::size_t sent_ = 0;   ///< bytes of queue_ already sent
    std::size_t queuedFrames_ = 0;
    std::size_t firstEnd_ = 0; ///< end of the first queued frame in queue_
    OperationMemory writeMemory_;
    LoopTask awaitRoom_; ///< waits until the socket is writable
};

} // namespace

std::shared_ptr<FrameStream> newSocketStream(asio::io_context& loop, Socket connected)
{
    return std::make_shared<SocketStream>(loop, std::move(connected));
}

} // namespace fabric::host
