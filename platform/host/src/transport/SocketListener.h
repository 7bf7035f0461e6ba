#ifndef FABRIC_HOST_SOCKET_LISTENER_H
#define FABRIC_HOST_SOCKET_LISTENER_H

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include "../base/Log.h"
#include "../base/LoopTimer.h"
#include "SocketFile.h"

namespace fabric::host {

/// Accepts connections at a Unix-domain socket. Use it on the loop's thread only.
class SocketListener : public std::enable_shared_from_this<SocketListener>
{
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    /// Listens from now on. After start() each connection is passed to `accepted`, which may throw.
    /// Throws std::runtime_error as SocketFile does.
    SocketListener(boost::asio::io_context& loop, const std::string& path,
                   std::function<void(Socket)> accepted);

    /// Call it once; a shared_ptr must own the listener.
    void start() { awaitConnection(); }

    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    /// Stops listening and removes the socket. finish() first accepts the connections that wait, so
    /// that they can be closed in good order.
    void finish();
    void close();

private:
    void awaitConnection();
    bool accept();
    void failed(int error);

    boost::asio::io_context& loop_;
    const std::function<void(Socket)> accepted_;
    boost::asio::local::stream_protocol::acceptor acceptor_;
    std::unique_ptr<SocketFile> file_;
    OperationMemory memory_;
    LoopTimer retry_;
    RateLimitedLog errorLog_;
};

} // namespace fabric::host

#endif
