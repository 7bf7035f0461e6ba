#ifndef FABRIC_HOST_SOCKET_PATH_H
#define FABRIC_HOST_SOCKET_PATH_H

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "../base/Log.h"
#include "FrameStream.h"

namespace fabric::host {

/// Accepts connections at a Unix-domain socket. Use it on the loop's thread only.
class SocketListener : public std::enable_shared_from_this<SocketListener>
{
public:
    /// Listens at `path`, for this user only. After start() each connection is passed to
    /// `accepted`, which may throw. The directory must exist. A stale socket is replaced; a socket
    /// in use, or a file that is not a socket, is left alone. Throws std::runtime_error that names
    /// the path and the cause.
    SocketListener(boost::asio::io_context& loop, const std::string& path,
                   std::function<void(Socket)> accepted);
    ~SocketListener() { removeFile(); }

    /// Call it once; a shared_ptr must own the listener.
    void start() { awaitConnection(); }

    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    /// Stops listening and removes the socket. finish() first accepts the connections that wait, so
    /// that they can be closed in good order.
    void finish();
    void close();

private:
    void removeFile() noexcept;
    void awaitConnection();
    bool accept();
    void failed(int error);

    boost::asio::io_context& loop_;
    const std::string path_;
    const std::function<void(Socket)> accepted_;
    Socket socket_;
    dev_t device_ = 0; ///< identifies the file, like the next, so that no other is removed
    ino_t inode_ = 0;  ///< 0 once the file has been removed
    OperationMemory memory_;
    LoopTimer retry_;
    RateLimitedLog errorLog_;
};

} // namespace fabric::host

#endif
