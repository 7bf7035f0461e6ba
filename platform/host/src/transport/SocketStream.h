#ifndef FABRIC_HOST_SOCKET_STREAM_H
#define FABRIC_HOST_SOCKET_STREAM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include <boost/asio/local/stream_protocol.hpp>

#include "FrameStream.h"

namespace fabric::host {

/// Frames over a socket.
class SocketStream final : public FrameStream
{
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    SocketStream(boost::asio::io_context& loop, Socket connected, Flow flow);

    int send(FrameView frame) override;
    void shutdownSend() override;
    std::size_t drain() override;
    void close(int reason) override;
    bool isCongested() override;
    bool isOpen() const noexcept override { return state_ != State::closed; }

private:
    enum class State
    {
        open,
        finishing, ///< sends what is queued, and takes no more
        failed,    ///< sends no more, but reads to the end of what has arrived
        closed
    };

    bool nextFrame(FrameView& frame) override;
    void awaitInput() override;

    void received(const boost::system::error_code& error, std::size_t count);
    int reasonOfEnd();
    void roomAvailable(const boost::system::error_code& error);
    void awaitRoom();

    // With the mutex held.
    std::size_t sendNow(const std::uint8_t* bytes, std::size_t size) noexcept;
    bool hasRoomFor(std::size_t size) const noexcept;
    void append(const std::uint8_t* bytes, std::size_t size);
    void sendQueued() noexcept;
    void fail(int error) noexcept;

    Socket socket_;
    std::vector<std::uint8_t> input_;
    std::size_t begin_ = 0;  ///< of what has arrived and has not been handed over
    std::size_t end_ = 0;    ///< of what has arrived
    std::size_t wanted_ = 0; ///< bytes from begin_ on that are needed to go on
    bool reading_ = false;
    OperationMemory readMemory_;

    std::mutex mutex_; ///< guards what follows, and the socket against being closed
    std::atomic<State> state_{State::open};
    int sendError_ = 0;
    std::vector<std::uint8_t> queue_; ///< frames, the first of which may have gone in part
    std::size_t sent_ = 0;            ///< of queue_
    std::size_t queuedFrames_ = 0;
    std::size_t firstEnd_ = 0; ///< of the first queued frame, in queue_
    OperationMemory writeMemory_;
    LoopTask awaitRoom_; ///< waits until the socket takes more
};

} // namespace fabric::host

#endif
