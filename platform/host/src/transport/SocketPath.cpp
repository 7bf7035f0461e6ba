#include "SocketPath.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "../base/Guarded.h"

namespace fabric::host {
namespace {

namespace asio = boost::asio;
using Protocol = Socket::protocol_type;

/// Other services hold the lock for a moment only, unless stopped while they hold it.
constexpr std::chrono::seconds longestLock(1);
constexpr std::chrono::milliseconds lockRetry(10);

/// Delays accepting after a shortage of descriptors or memory, so that the loop does not spin.
constexpr std::chrono::milliseconds retryAfter(100);

/// Throws every failure to listen.
[[noreturn]] void fail(const std::string& path, const std::string& what)
{
    throw std::runtime_error(path + ": " + what);
}

[[noreturn]] void fail(const std::string& path, int error) { fail(path, std::strerror(error)); }

/// Keeps this user's services from replacing the same socket at the same time. The lock is a file
/// beside the socket, since anyone who may read the directory could lock the directory itself. It
/// has no effect if another kind of file has its name.
class PathLock
{
public:
    explicit PathLock(const std::string& socket) : name_(socket + ".lock")
    {
        const auto deadline = std::chrono::steady_clock::now() + longestLock;
        while (const int error = acquire()) {
            if (error != EWOULDBLOCK)
                fail(socket,
                     std::string("cannot create a file in its directory: ") + std::strerror(error));
            if (std::chrono::steady_clock::now() >= deadline)
                fail(socket, "another service is starting here and takes more than a second");
            std::this_thread::sleep_for(lockRetry);
        }
    }
    ~PathLock()
    {
        if (file_ < 0)
            return;
        ::unlink(name_.c_str());
        ::close(file_);
    }

    PathLock(const PathLock&) = delete;
    PathLock& operator=(const PathLock&) = delete;

private:
    /// Returns 0 or an error number: EWOULDBLOCK while another service holds the lock.
    int acquire() noexcept
    {
        const int file = ::open(name_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (file < 0)
            return errno == EACCES || errno == ELOOP || errno == EISDIR ? 0 : errno;
        struct stat mine = {};
        struct stat named = {};
        const bool isLock = ::fstat(file, &mine) == 0 && S_ISREG(mine.st_mode) &&
                            mine.st_uid == ::geteuid() && mine.st_size == 0;
        // The previous holder may have removed the file.
        if (isLock && ::flock(file, LOCK_EX | LOCK_NB) == 0 &&
            ::lstat(name_.c_str(), &named) == 0 && named.st_ino == mine.st_ino)
            file_ = file;
        else
            ::close(file);
        return isLock && file_ < 0 ? EWOULDBLOCK : 0;
    }

    const std::string name_;
    int file_ = -1;
};

/// Hands a new descriptor over to a socket. Throws the error that errno names if it is negative.
Socket adopt(asio::io_context& loop, int descriptor)
{
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category());
    try {
        return Socket(loop, Protocol(), descriptor);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

/// Opens the socket close-on-exec, since a child that inherited it would keep the connection open.
Socket newSocket(asio::io_context& loop)
{
    return adopt(loop, ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// Connects without blocking. Throws std::system_error, with EAGAIN if the service's accept queue
/// is full, or std::bad_alloc.
Socket connectTo(const std::string& path, asio::io_context& loop)
{
    if (path.size() > longestSocketPath)
        throw std::system_error(ENAMETOOLONG, std::generic_category());
    const Protocol::endpoint service(path);
    Socket socket = newSocket(loop);
    // If the accept queue is full, Asio would wait for the socket and report a connection.
    if (::connect(socket.native_handle(), service.data(), static_cast<socklen_t>(service.size())))
        throw std::system_error(errno, std::generic_category());
    return socket;
}

void removeStale(const std::string& path)
{
    struct stat found = {};
    if (::lstat(path.c_str(), &found) == 0 && !S_ISSOCK(found.st_mode))
        fail(path, "is there already and is not a socket");
    asio::io_context io;
    int error = 0;
    callGuarded([&] { connectTo(path, io); }, [&](const char*) { error = currentError(ENOMEM); });
    if (error == 0 || error == EAGAIN)
        fail(path, "in use by a running service");
    if (error == ECONNREFUSED && ::unlink(path.c_str()) != 0)
        error = errno;
    if (error != ECONNREFUSED && error != ENOENT)
        fail(path, error);
}

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
    const auto connect = [path, trustedUser](asio::io_context& loop) {
        Socket socket = connectTo(path, loop);
        if (!isTrusted(socket.native_handle(), trustedUser, path))
            throw std::system_error(EPERM, std::generic_category());
        return newSocketStream(loop, std::move(socket));
    };
    return newStreamLink(connect, true);
}

SocketListener::SocketListener(asio::io_context& loop, const std::string& path,
                               std::function<void(Socket)> accepted)
    : loop_(loop), path_(path), accepted_(std::move(accepted)), socket_(loop), retry_(loop, [this] {
          awaitConnection();
      })
{
    if (path_.empty())
        fail(path_, "the path of the socket is empty");
    if (path_.size() > longestSocketPath)
        fail(path_, "the path of a socket has at most " + std::to_string(longestSocketPath) +
                        " characters");

    const PathLock lock(path_);
    removeStale(path_);
    callGuarded([this] { socket_ = newSocket(loop_); },
                [this](const char*) { fail(path_, currentError(ENOMEM)); });
    const int socket = socket_.native_handle();
    const Protocol::endpoint here(path_);
    // bind() gives the file the socket's mode, so other users can never open it.
    if (::fchmod(socket, S_IRUSR | S_IWUSR) != 0 ||
        ::bind(socket, here.data(), static_cast<socklen_t>(here.size())) != 0)
        fail(path_, errno);
    struct stat made = {};
    if (::lstat(path_.c_str(), &made) != 0 || ::listen(socket, SOMAXCONN) != 0) {
        const int failure = errno;
        ::unlink(path_.c_str());
        fail(path_, failure);
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
}

void SocketListener::removeFile() noexcept
{
    struct stat found = {};
    if (::lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_)
        ::unlink(path_.c_str());
    inode_ = 0; // it may soon be that of another service's socket
}

void SocketListener::finish()
{
    removeFile(); // nothing more can connect
    while (socket_.is_open() && accept()) {
    }
    close();
}

void SocketListener::close()
{
    removeFile();
    retry_.cancel();
    boost::system::error_code ignored;
    socket_.close(ignored);
}

void SocketListener::awaitConnection()
{
    if (!socket_.is_open())
        return;
    socket_.async_wait(Socket::wait_read,
                       preallocated(memory_, [self = shared_from_this()](const auto&) {
                           if (!self->socket_.is_open())
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
    const int descriptor = ::accept4(socket_.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0)
        return false;
    const auto welcome = [&] { accepted_(adopt(loop_, descriptor)); };
    callGuarded(welcome,
                [this](const char* what) { errorLog_.log("cannot serve a client", what); });
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
