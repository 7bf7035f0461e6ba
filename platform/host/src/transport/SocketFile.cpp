#include "SocketFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include <boost/asio/io_context.hpp>

#include <fabric-host/Link.h>

#include "../base/Guarded.h"

namespace fabric::host {
namespace {

namespace asio = boost::asio;
using Protocol = asio::local::stream_protocol;

/// Other services hold the lock for a moment only, unless stopped while they hold it.
constexpr std::chrono::seconds longestLock(1);
constexpr std::chrono::milliseconds lockRetry(10);

/// Throws every failure of SocketFile.
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

/// Opens the socket close-on-exec, since a child that inherited it would keep the connection open.
/// Returns 0 or an error number.
template <class Socket>
int openSocket(Socket& socket)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return errno;
    try {
        socket.assign(Protocol(), descriptor);
        return 0;
    } catch (const std::exception&) {
        ::close(descriptor);
        return currentError(ENOMEM);
    }
}

} // namespace

int connectTo(const std::string& path, Protocol::socket& socket)
{
    if (path.size() > longestSocketPath)
        return ENAMETOOLONG;
    const Protocol::endpoint endpoint(path);
    if (const int failure = openSocket(socket))
        return failure;
    boost::system::error_code error;
    socket.native_non_blocking(true, error);
    if (error)
        return error.value();
    // If the accept queue is full, Asio would wait for the socket and report a connection.
    const int result =
        ::connect(socket.native_handle(), endpoint.data(), static_cast<socklen_t>(endpoint.size()));
    return result == 0 ? 0 : errno;
}

SocketFile::SocketFile(const std::string& path, Protocol::acceptor& acceptor) : name_(path)
{
    if (name_.empty())
        fail(name_, "the path of the socket is empty");
    if (name_.size() > longestSocketPath)
        fail(name_, "the path of a socket has at most " + std::to_string(longestSocketPath) +
                        " characters");

    const PathLock lock(name_);
    removeStale();
    if (const int failure = openSocket(acceptor))
        fail(name_, failure);
    // bind() gives the file the socket's mode, so other users can never open it.
    if (::fchmod(acceptor.native_handle(), S_IRUSR | S_IWUSR) != 0)
        fail(name_, errno);
    boost::system::error_code error;
    acceptor.bind(Protocol::endpoint(name_), error);
    if (error)
        fail(name_, error.value());
    if (const int failure = listen(acceptor)) {
        ::unlink(name_.c_str());
        fail(name_, failure);
    }
}

/// Also remembers the file, so that no other is removed instead. Returns 0 or an error number.
int SocketFile::listen(Protocol::acceptor& acceptor)
{
    struct stat made = {};
    if (::lstat(name_.c_str(), &made) != 0)
        return errno;
    device_ = made.st_dev;
    inode_ = made.st_ino;
    boost::system::error_code error;
    acceptor.listen(Protocol::acceptor::max_listen_connections, error);
    return error.value();
}

void SocketFile::removeStale() const
{
    struct stat found = {};
    if (::lstat(name_.c_str(), &found) != 0) {
        if (errno == ENOENT)
            return;
        fail(name_, errno);
    }
    if (!S_ISSOCK(found.st_mode))
        fail(name_, "is there already and is not a socket");

    asio::io_context io;
    Protocol::socket probe(io);
    const int error = connectTo(name_, probe);
    if (error == 0 || error == EAGAIN)
        fail(name_, "in use by a running service");
    if (error != ECONNREFUSED)
        fail(name_, error);
    if (::unlink(name_.c_str()) != 0)
        fail(name_, errno);
}

SocketFile::~SocketFile()
{
    struct stat found = {};
    if (::lstat(name_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_)
        ::unlink(name_.c_str());
}

} // namespace fabric::host
