#ifndef FABRIC_HOST_SOCKET_FILE_H
#define FABRIC_HOST_SOCKET_FILE_H

#include <sys/types.h>

#include <string>

#include <boost/asio/local/stream_protocol.hpp>

namespace fabric::host {

/// Connects without blocking. Returns 0 or a positive error number: EAGAIN if the service's accept
/// queue is full.
int connectTo(const std::string& path, boost::asio::local::stream_protocol::socket& socket);

/// Owns the file of a listening socket.
class SocketFile
{
public:
    /// Listens at `path`, for this user only. The directory must exist. A stale socket is replaced;
    /// a socket in use, or a file that is not a socket, is left alone. Throws std::runtime_error
    /// that names the path and the cause.
    SocketFile(const std::string& path, boost::asio::local::stream_protocol::acceptor& acceptor);

    /// Removes the socket, unless another file has replaced it.
    ~SocketFile();

    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

private:
    void removeStale() const;
    int listen(boost::asio::local::stream_protocol::acceptor& acceptor);

    const std::string name_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace fabric::host

#endif
