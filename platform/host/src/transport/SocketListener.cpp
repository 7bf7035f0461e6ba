#include "SocketListener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "../base/Guarded.h"
#include "../base/Log.h"

namespace fabric::host {
namespace {

/// Delays accepting after a shortage of descriptors or memory, so that the loop does not spin.
constexpr std::chrono::milliseconds retryAfter(100);

} // namespace

SocketListener::SocketListener(boost::asio::io_context& loop, const std::string& path,
                               std::function<void(Socket)> accepted)
    : loop_(loop),
      accepted_(std::move(accepted)),
      acceptor_(loop),
      file_(std::make_unique<SocketFile>(path, acceptor_)),
      retry_(loop, [this] { awaitConnection(); })
{
    acceptor_.native_non_blocking(true);
}

void SocketListener::finish()
{
    file_ = nullptr; // nothing more can connect
    while (acceptor_.is_open() && accept()) {
    }
    close();
}

void SocketListener::close()
{
    file_ = nullptr;
    retry_.cancel();
    boost::system::error_code ignored;
    acceptor_.close(ignored);
}

void SocketListener::awaitConnection()
{
    if (!acceptor_.is_open())
        return;
    acceptor_.async_wait(Socket::wait_read,
                         preallocated(memory_, [self = shared_from_this()](const auto&) {
                             if (!self->acceptor_.is_open())
                                 return;
                             if (self->accept())
                                 self->awaitConnection();
                             else
                                 self->failed(errno);
                         }));
}

/// Returns false, with errno set, if there is no connection.
bool SocketListener::accept()
{
    const int descriptor = ::accept4(acceptor_.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0)
        return false;
    bool owned = false; // by a socket object
    const auto welcome = [&] {
        Socket socket(loop_);
        socket.assign(Socket::protocol_type(), descriptor);
        owned = true;
        accepted_(std::move(socket));
    };
    callGuarded(welcome,
                [this](const char* what) { errorLog_.log("cannot serve a client", what); });
    if (!owned)
        ::close(descriptor);
    return true;
}

void SocketListener::failed(int error)
{
    // The connection may be gone again by the time it is accepted.
    if (error == EAGAIN || error == EINTR || error == ECONNABORTED)
        return awaitConnection();
    errorLog_.log("cannot accept a client", std::strerror(error));
    retry_.expireAfter(retryAfter);
}

} // namespace fabric::host
