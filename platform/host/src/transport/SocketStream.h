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

/// Carries frames over a socket.
class SocketStream final : public FrameStream
{
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    SocketStream(boost::asio::io_context& loop, Socket connected);

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
        finishing, ///< sends what is queued, but accepts no more
        failed,    ///< does not send, but reads what has already arrived
        closed
    };

    bool nextFrame(FrameView& frame) override;
    void awaitInput() override;

    void received(const boost::system::error_code& error, std::size_t count);
    int reasonOfEnd();
    void roomAvailable(const boost::system::error_code& error);
    void awaitRoom();

    // These need the mutex held.
    std::size_t sendNow(const std::uint8_t* bytes, std::size_t size) noexcept;
    bool hasRoomFor(std::size_t size) const noexcept;
    void append(const std::uint8_t* bytes, std::size_t size);
    void sendQueued() noexcept;
    void fail(int error) noexcept;

    Socket socket_;
    std::vector<std::uint8_t> input_;
    std::size_t begin_ = 0;  ///< start of the input not yet delivered
    std::size_t end_ = 0;    ///< end of the input
    std::size_t wanted_ = 0; ///< bytes needed from begin_ on to continue
    bool reading_ = false;
    OperationMemory readMemory_;

    std::mutex mutex_; ///< guards the members below and the closing of socket_
    std::atomic<State> state_{State::open};
    int sendError_ = 0;
    std::vector<std::uint8_t> queue_; ///< frames, the first of which may be partly sent
    std::size_t sent_ = 0;            ///< bytes of queue_ already sent
    std::size_t queuedFrames_ = 0;
    std::size_t firstEnd_ = 0; ///< end of the first queued frame in queue_
    OperationMemory writeMemory_;
    LoopTask awaitRoom_; ///< waits until the socket is writable
};

} // namespace fabric::host

#endif
