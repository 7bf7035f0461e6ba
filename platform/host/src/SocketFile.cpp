#include "SocketFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <boost/asio/io_context.hpp>

#include <fabric-host/SocketPath.h>

namespace fabric {
namespace host {
namespace {

namespace asio = boost::asio;
typedef asio::local::stream_protocol Protocol;

/// Others hold a folder for a moment only, unless one of them has been stopped in it.
constexpr std::chrono::seconds longestLock(1);
constexpr std::chrono::milliseconds lockRetry(10);

/// Returns 0 or an error number; EWOULDBLOCK when somebody else keeps the lock.
int lockFolder(int folder)
{
    const auto deadline = std::chrono::steady_clock::now() + longestLock;
    while (::flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline)
            return errno;
        std::this_thread::sleep_for(lockRetry);
    }
    return 0;
}

/// Holds a folder against others who replace a socket in it at the same time.
class FolderLock
{
public:
    explicit FolderLock(const std::string& path)
        : folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          failure(folder >= 0 ? lockFolder(folder) : errno)
    {
    }
    ~FolderLock()
    {
        if (folder >= 0)
            ::close(folder);
    }

    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// 0 when the lock is held.
    int error() const noexcept { return failure; }

private:
    const int folder;
    const int failure;
};

/// Not one of those that a program inherits: it would keep the connection from ending. Returns 0 or
/// an error number.
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

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

} // namespace

std::string socketAt(const std::string& place)
{
    const std::filesystem::path path = place;
    std::error_code ignored;
    const bool folder =
        !place.empty() && (!path.has_filename() || std::filesystem::is_directory(path, ignored));
    return folder ? path / "chronal.sock" : path;
}

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

    const std::string folder = folderOf(name);
    const FolderLock lock(folder);
    if (lock.error() == EWOULDBLOCK)
        fail("folder " + folder + " is locked by another process");
    if (lock.error() != 0)
        fail("folder " + folder + ": " + std::strerror(lock.error()));
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
