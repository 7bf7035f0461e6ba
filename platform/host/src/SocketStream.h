#ifndef FABRIC_HOST_SOCKET_STREAM_H
#define FABRIC_HOST_SOCKET_STREAM_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <boost/asio/local/stream_protocol.hpp>

#include <fabric-host/Link.h>

namespace fabric {
namespace host {

/// How long an end that closes in good order waits for the other one to take what is queued.
constexpr std::chrono::seconds longestFarewell(1);

/// One end of a connection that carries frames over a socket. Owned by a shared_ptr; belongs to the
/// thread that runs the socket's io_context, send() apart.
class SocketStream : public std::enable_shared_from_this<SocketStream>
{
public:
    typedef boost::asio::local::stream_protocol::socket Socket;

    explicit SocketStream(Socket connected);

    SocketStream(const SocketStream&) = delete;
    SocketStream& operator=(const SocketStream&) = delete;

    void startReading();

    /// Any thread. 0, or a negative error number: -ENOTCONN, -EAGAIN when the queue is full,
    /// -ENOMEM, or why the other end cannot be reached any more. Never blocks.
    int send(const FrameBytes& frame);

    /// Tells the other end, once all that is queued has gone, that nothing more will come.
    void finish();

    /// Sends what is queued, on whatever thread once none runs the io_context any more: waits for
    /// longestFarewell at most. Returns how many frames have not gone.
    std::size_t flush();

    /// Ends the connection without a report.
    void close();
    /// The same with one.
    void end(int reason);
    /// The same once what has come by then has been read. Any thread.
    void breakOff(int reason) noexcept;

    bool isOpen() const noexcept { return open; }

protected:
    ~SocketStream() = default;

    /// What cannot be a frame comes as well, for the receiver to refuse; the connection ends with
    /// it. Returns 0, or the error number with which the connection is to end.
    virtual int frameReceived(FrameBytes frame) = 0;

    /// The connection has ended; `reason` is 0 if the other end had announced that. Not called
    /// after close().
    virtual void ended(int reason) = 0;

private:
    void read();
    void received(const boost::system::error_code& error, std::size_t count);
    void takeFrames();
    int reasonOfEnd();

    // With the mutex held.
    bool sendRest(const FrameBytes& frame);
    bool sendFirst();
    void abandon(int error) noexcept;
    void awaitRoom();
    void sendQueued();

    Socket socket;
    std::vector<std::uint8_t> input;
    std::size_t filled = 0; // of input

    std::mutex mutex; // guards what follows, and the socket against being closed
    std::atomic<bool> open{true};
    std::deque<FrameBytes> outgoing; // the first is under way
    std::size_t sentOfFirst = 0;
    int sendError = 0;
    bool finishing = false;
};

} // namespace host
} // namespace fabric

#endif
