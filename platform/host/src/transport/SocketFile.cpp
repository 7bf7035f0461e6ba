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

namespace fabric {
namespace host {
namespace {

namespace asio = boost::asio;
typedef asio::local::stream_protocol Protocol;

/// Others hold a lock for a moment only, unless one of them has been stopped in it.
constexpr std::chrono::seconds longestLock(1);
constexpr std::chrono::milliseconds lockRetry(10);

/// Keeps services of this user from replacing the same socket at the same time. The lock is a file
/// of its own beside the socket: a directory can be locked by anybody who may read it. Without
/// effect where a file that is not such a lock has the name: only this user's services are to
/// agree.
class PlaceLock
{
public:
    explicit PlaceLock(const std::string& socket) : name_(socket + ".lock"), error_(acquire()) {}
    ~PlaceLock()
    {
        if (file_ < 0)
            return;
        ::unlink(name_.c_str());
        ::close(file_);
    }

    PlaceLock(const PlaceLock&) = delete;
    PlaceLock& operator=(const PlaceLock&) = delete;

    /// 0, or an error number: EWOULDBLOCK when another service keeps the lock.
    int error() const noexcept { return error_; }

private:
    int acquire()
    {
        const auto deadline = std::chrono::steady_clock::now() + longestLock;
        do {
            const int file = ::open(name_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
            if (file < 0)
                return errno == EACCES || errno == ELOOP || errno == EISDIR ? 0 : errno;
            struct stat mine = {};
            if (::fstat(file, &mine) != 0 || mine.st_uid != ::geteuid() || mine.st_size != 0) {
                ::close(file);
                return 0;
            }
            struct stat named = {};
            const bool held = ::flock(file, LOCK_EX | LOCK_NB) == 0;
            // Its holder before may have removed it.
            if (held && ::lstat(name_.c_str(), &named) == 0 && named.st_ino == mine.st_ino) {
                file_ = file;
                return 0;
            }
            ::close(file);
            if (!held)
                std::this_thread::sleep_for(lockRetry);
        } while (std::chrono::steady_clock::now() < deadline);
        return EWOULDBLOCK;
    }

    const std::string name_;
    int file_ = -1;
    const int error_;
};

/// Close-on-exec: a child that inherited the socket would keep the connection open. Returns 0 or an
/// error number.
template <class Socket>
int openSocket(Socket& socket)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return errno;
    boost::system::error_code error;
    socket.assign(Protocol(), descriptor, error);
    if (error)
        ::close(descriptor);
    return error.value();
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
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
    // Asio would wait for a queue that is full, and take that for a connection.
    const int result =
        ::connect(socket.native_handle(), endpoint.data(), static_cast<socklen_t>(endpoint.size()));
    return result == 0 ? 0 : errno;
}

SocketFile::SocketFile(const std::string& path, Protocol::acceptor& acceptor) : name(path)
{
    if (name.empty())
        fail("the path of the socket is empty");
    if (name.size() > longestSocketPath)
        fail("the path of a socket has at most " + std::to_string(longestSocketPath) +
             " characters");

    const PlaceLock lock(name);
    if (lock.error() == EWOULDBLOCK)
        fail("another service is starting here, and has been for a second");
    if (lock.error() != 0)
        fail("directory " + directoryOf(name) + ": " + std::strerror(lock.error()));
    clearPlace();

    if (const int failure = openSocket(acceptor))
        fail(failure);
    // The file gets the mode of the socket, so nobody else can open it at any time.
    if (::fchmod(acceptor.native_handle(), S_IRUSR | S_IWUSR) != 0)
        fail(errno);
    boost::system::error_code error;
    acceptor.bind(Protocol::endpoint(name), error);
    if (error)
        fail(error.value());
    if (const int failure = listen(acceptor)) {
        ::unlink(name.c_str());
        fail(failure);
    }
}

/// Remembers the file, too, so that no other is removed in its place. Returns 0 or an error number.
int SocketFile::listen(Protocol::acceptor& acceptor)
{
    struct stat made = {};
    if (::lstat(name.c_str(), &made) != 0)
        return errno;
    device = made.st_dev;
    inode = made.st_ino;
    boost::system::error_code error;
    acceptor.listen(Protocol::acceptor::max_listen_connections, error);
    return error.value();
}

void SocketFile::clearPlace() const
{
    struct stat found = {};
    if (::lstat(name.c_str(), &found) != 0) {
        if (errno == ENOENT)
            return;
        fail(errno);
    }
    if (!S_ISSOCK(found.st_mode))
        fail("is there already and is no socket");

    asio::io_context io;
    Protocol::socket probe(io);
    const int error = connectTo(name, probe);
    if (error == 0 || error == EAGAIN)
        fail("in use by a running service");
    if (error != ECONNREFUSED)
        fail(error);
    if (::unlink(name.c_str()) != 0)
        fail(errno);
}

void SocketFile::fail(const std::string& what) const
{
    throw std::runtime_error(name + ": " + what);
}

void SocketFile::fail(int error) const
{
    fail(std::string(std::strerror(error)));
}

SocketFile::~SocketFile()
{
    struct stat found = {};
    if (::lstat(name.c_str(), &found) == 0 && found.st_dev == device && found.st_ino == inode)
        ::unlink(name.c_str());
}

} // namespace host
} // namespace fabric
