#ifndef FABRIC_HOST_SOCKET_LISTENER_H
#define FABRIC_HOST_SOCKET_LISTENER_H

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include "../base/LoopTimer.h"
#include "../base/RateLimitedLog.h"
#include "SocketFile.h"

namespace fabric::host {

/// Accepts connections at a socket of the file system. Belongs to the loop's thread.
class SocketListener : public std::enable_shared_from_this<SocketListener>
{
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    /// Listens from now on; once started, `accepted` gets the connections and may throw. Throws
    /// std::runtime_error that names the path and what is wrong: see SocketFile.
    SocketListener(boost::asio::io_context& loop, const std::string& path,
                   std::function<void(Socket)> accepted);

    /// Once; the listener is owned by a shared_ptr.
    void start() { awaitConnection(); }

    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    /// Removes the socket.
    void close();

private:
    void awaitConnection();
    void accept();
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
