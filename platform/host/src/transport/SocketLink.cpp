#include <fabric-host/Link.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "../base/Log.h"
#include "SocketListener.h"
#include "SocketStream.h"
#include "StreamLink.h"

namespace fabric::host {
namespace {

bool isTrusted(int socket, uid_t trustedUser, const std::string& path)
{
    ucred service = {};
    socklen_t size = sizeof(service);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &service, &size) != 0)
        return false;
    if (service.uid == ::geteuid() || service.uid == 0 || service.uid == trustedUser)
        return true;
    log(logError, "fabric-host: the service at %s runs as user %u, which is not trusted\n",
        path.c_str(), unsigned{service.uid});
    return false;
}

} // namespace

std::unique_ptr<Link> newSocketLink(const std::string& path, uid_t trustedUser)
{
    const auto connect = [path, trustedUser](boost::asio::io_context& loop) {
        SocketStream::Socket socket(loop);
        int error = connectTo(path, socket);
        if (error == 0 && !isTrusted(socket.native_handle(), trustedUser, path))
            error = EPERM;
        if (error != 0)
            throw std::system_error(error, std::generic_category());
        return std::make_shared<SocketStream>(loop, std::move(socket));
    };
    return newStreamLink(connect, true);
}

} // namespace fabric::host
