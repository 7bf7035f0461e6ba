#include "SocketStream.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>

#include "Frame.h"
#include "Inbox.h"

namespace fabric {
namespace host {
namespace {

namespace asio = boost::asio;

/// Room for many frames of the usual size; a longer one gets more.
constexpr std::size_t usualInput = 4096;

std::size_t lengthOfFrame(const std::uint8_t* start) noexcept
{
    return std::size_t{start[0]} << 24 | std::size_t{start[1]} << 16 | std::size_t{start[2]} << 8 |
           std::size_t{start[3]};
}

} // namespace

SocketStream::SocketStream(Socket connected) : socket(std::move(connected)), input(usualInput) {}

void SocketStream::startReading()
{
    read();
}

void SocketStream::read()
{
    socket.async_read_some(
        asio::buffer(&input[filled], input.size() - filled),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t count) {
            self->received(error, count);
        });
}

void SocketStream::received(const boost::system::error_code& error, std::size_t count)
{
    if (!open)
        return;
    if (error)
        return end(error == asio::error::eof ? reasonOfEnd() : error.value());
    filled += count;
    try {
        takeFrames();
    } catch (const std::bad_alloc&) {
        end(ENOMEM);
    }
}

void SocketStream::takeFrames()
{
    std::size_t wanted = sizeof(std::uint32_t); // to get on
    std::size_t taken = 0;
    while (filled - taken >= wanted) {
        const std::uint8_t* const start = &input[taken];
        const std::size_t length = lengthOfFrame(start);
        const bool possible = isFrameLength(length);
        if (possible && length > filled - taken) {
            wanted = length;
            break;
        }
        const std::uint8_t* const behind = possible ? start + length : &input[0] + filled;
        const int error = frameReceived(FrameBytes(start, behind));
        if (!open)
            return;
        if (error != 0)
            return end(error);
        if (!possible)
            return end(EBADMSG);
        taken += length;
    }

    filled -= taken;
    std::memmove(&input[0], &input[0] + taken, filled);
    if (input.size() < wanted)
        input.resize(wanted);
    read();
}

/// At the end of what the other end has sent. One that has died leaves nothing of its socket; one
/// that only has nothing more to say still has the other direction open.
int SocketStream::reasonOfEnd()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (sendError != 0)
        return sendError;
    pollfd state = {socket.native_handle(), 0, 0};
    const bool gone = ::poll(&state, 1, 0) != 0 && (state.revents & POLLHUP) != 0;
    return gone || filled != 0 ? ECONNRESET : 0;
}

int SocketStream::send(const FrameBytes& frame)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!open || finishing)
        return -ENOTCONN;
    if (sendError != 0)
        return -sendError;
    if (outgoing.size() >= maxQueuedFrames)
        return -EAGAIN;
    // At once, if the socket takes it: waking the other thread up costs more than sending.
    const bool first = outgoing.empty();
    if (first && sendRest(frame))
        return 0;
    if (sendError != 0)
        return -sendError;
    try {
        outgoing.push_back(frame);
        if (!first)
            return 0;
        asio::post(socket.get_executor(), [self = shared_from_this()] {
            const std::lock_guard<std::mutex> again(self->mutex);
            self->awaitRoom();
        });
        return 0;
    } catch (const std::bad_alloc&) {
        if (first) // a part of it may have gone
            abandon(ENOMEM);
        return -ENOMEM;
    }
}

/// Sends what the socket takes of the frame that is under way. True when all of it has gone.
bool SocketStream::sendRest(const FrameBytes& frame)
{
    while (sentOfFirst < frame.size()) {
        const ssize_t sent = ::send(socket.native_handle(), &frame[sentOfFirst],
                                    frame.size() - sentOfFirst, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0) {
            if (errno != EAGAIN)
                abandon(errno);
            return false;
        }
        sentOfFirst += static_cast<std::size_t>(sent);
    }
    sentOfFirst = 0;
    return true;
}

bool SocketStream::sendFirst()
{
    if (!sendRest(outgoing.front()))
        return false;
    outgoing.pop_front();
    return true;
}

/// Sends no more. Reading goes on to the end of what has already come, and that ends the
/// connection.
void SocketStream::abandon(int error) noexcept
{
    sendError = error;
    ::shutdown(socket.native_handle(), SHUT_RDWR);
}

void SocketStream::awaitRoom()
{
    if (!open)
        return;
    const auto send = [self = shared_from_this()](const boost::system::error_code& error) {
        const std::lock_guard<std::mutex> lock(self->mutex);
        if (!error && self->open)
            self->sendQueued();
    };
    try {
        socket.async_wait(Socket::wait_write, send);
    } catch (const std::bad_alloc&) {
        abandon(ENOMEM);
    }
}

void SocketStream::sendQueued()
{
    while (!outgoing.empty() && sendFirst())
        continue;
    if (sendError != 0)
        return;
    if (!outgoing.empty())
        awaitRoom();
    else if (finishing)
        ::shutdown(socket.native_handle(), SHUT_WR);
}

void SocketStream::finish()
{
    const std::lock_guard<std::mutex> lock(mutex);
    finishing = true;
    if (open && outgoing.empty())
        ::shutdown(socket.native_handle(), SHUT_WR);
}

std::size_t SocketStream::flush()
{
    typedef std::chrono::steady_clock Clock;
    const auto deadline = Clock::now() + longestFarewell;
    std::chrono::milliseconds left = longestFarewell;
    const std::lock_guard<std::mutex> lock(mutex);
    pollfd state = {socket.native_handle(), POLLIN | POLLOUT, 0};
    while (!outgoing.empty() && sendError == 0 && left.count() > 0) {
        ::poll(&state, 1, static_cast<int>(left.count()));
        // Answers in the way of the other end are read, and lost. The end of them would be there to
        // read for ever.
        if ((state.revents & POLLIN) != 0 &&
            ::recv(socket.native_handle(), &input[0], input.size(), MSG_DONTWAIT) == 0)
            state.events = POLLOUT;
        while (!outgoing.empty() && sendFirst())
            continue;
        left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    }
    return outgoing.size();
}

void SocketStream::close()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!open)
        return;
    open = false;
    outgoing.clear();
    // Also for a child process that has been forked off with this end.
    ::shutdown(socket.native_handle(), SHUT_RDWR);
    boost::system::error_code ignored;
    socket.close(ignored);
}

void SocketStream::end(int reason)
{
    if (!open)
        return;
    close();
    ended(reason);
}

void SocketStream::breakOff(int reason) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (open && sendError == 0)
        abandon(reason);
}

} // namespace host
} // namespace fabric
