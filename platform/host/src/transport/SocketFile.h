#ifndef FABRIC_HOST_SOCKET_FILE_H
#define FABRIC_HOST_SOCKET_FILE_H

#include <sys/types.h>

#include <string>

#include <boost/asio/local/stream_protocol.hpp>

namespace fabric::host {

/// Connects, without ever waiting: a service that does not accept has failed with EAGAIN. Returns 0
/// or a positive error number.
int connectTo(const std::string& path, boost::asio::local::stream_protocol::socket& socket);

/// The name of a listening socket in the file system, for as long as the object lives.
class SocketFile
{
public:
    /// Listens at `path`, for this user alone. The directory has to exist. A socket left behind by
    /// a service that is gone is replaced; a socket in use, and whatever is not a socket, stays.
    /// Throws std::runtime_error that names the path and what is wrong.
    SocketFile(const std::string& path, boost::asio::local::stream_protocol::acceptor& acceptor);

    /// Removes the socket, unless another one has taken its place.
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
