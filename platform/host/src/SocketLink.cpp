#include "SocketLink.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Contained.h"
#include "Frame.h"
#include "Log.h"
#include "SocketFile.h"
#include "SocketStream.h"

namespace fabric {
namespace host {
namespace {

namespace asio = boost::asio;

constexpr std::chrono::milliseconds firstDelay(50);
constexpr std::chrono::milliseconds longestDelay(2000);

} // namespace

/// Connects again and again on a thread of its own, from the opening of the link to its closing.
class SocketLink::Connector
{
public:
    Connector(const std::string& socketPath, LinkListener& linkListener)
        : path(socketPath), listener(linkListener), thread([this] { run(); })
    {
    }

    ~Connector()
    {
        io.stop();
        thread.join();
        const std::size_t unsent = connection ? connection->flush() : 0;
        if (unsent != 0)
            log(logTrouble, "fabric-host: %zu messages not sent before the connection was closed\n",
                unsent);
    }

    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    // Any thread.

    int send(const FrameBytes& frame)
    {
        const std::shared_ptr<Connection> current = standing();
        return current ? current->send(frame) : -ENOTCONN;
    }

    void frameRefused(std::uint32_t refused) noexcept;

private:
    class Connection final : public SocketStream
    {
    public:
        Connection(Socket connected, Connector& connector)
            : SocketStream(std::move(connected)), owner(connector)
        {
        }

    private:
        int frameReceived(FrameBytes frame) override
        {
            if (isFrame(frame)) // whoever sends anything else is to be tried less and less often
                owner.delay = firstDelay;
            return owner.listener.frameReceived(frame) ? 0 : ENOBUFS;
        }

        void ended(int reason) override { owner.lost(reason); }

        Connector& owner;
    };

    std::shared_ptr<Connection> standing()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return connection;
    }

    void setStanding(std::shared_ptr<Connection> current)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        connection.swap(current);
        number = 0;
    }

    void setNumber(std::uint32_t current)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        number = current;
    }

    // On the thread.
    void run();
    void attempt();
    void failed(int error);
    void lost(int reason);
    void retry();

    const std::string path;
    LinkListener& listener;
    std::chrono::milliseconds delay = firstDelay;
    int reported = 0; // error number of the failures in a row

    asio::io_context io{1};
    asio::executor_work_guard<asio::io_context::executor_type> work{io.get_executor()};
    asio::steady_timer timer{io};

    std::mutex mutex;
    std::shared_ptr<Connection> connection; // null while there is none
    std::uint32_t number = 0;               // the listener's for it, 0 before it has one

    std::thread thread; // last: it uses everything above
};

void SocketLink::Connector::frameRefused(std::uint32_t refused) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (connection && refused == number)
        connection->breakOff(EBADMSG);
}

void SocketLink::Connector::run()
{
    const auto begin = [this] {
        if (const std::shared_ptr<Connection> current = standing())
            current->end(ENOMEM);
        else
            attempt();
        io.run();
    };
    // An exception is one for want of memory. What it interrupted begins anew.
    while (!contained(begin, [](const char* what) {
        log(logTrouble, "fabric-host: exception in a socket link: %s\n", what);
    }))
        continue;
}

void SocketLink::Connector::attempt()
{
    SocketStream::Socket socket(io);
    if (const int error = connectTo(path, socket))
        return failed(error);
    reported = 0;
    const auto current = std::make_shared<Connection>(std::move(socket), *this);
    // Commands can be sent before the listener hears of it, answers come afterwards.
    setStanding(current);
    setNumber(listener.linkUp());
    current->startReading();
}

void SocketLink::Connector::failed(int error)
{
    if (std::exchange(reported, error) != error)
        listener.linkFailed(error);
    retry();
}

void SocketLink::Connector::lost(int reason)
{
    setStanding(nullptr);
    listener.linkDown(reason);
    retry();
}

void SocketLink::Connector::retry()
{
    timer.expires_after(delay);
    delay = std::min(2 * delay, longestDelay);
    timer.async_wait([this](const boost::system::error_code& error) {
        if (!error)
            attempt();
    });
}

SocketLink::SocketLink(std::string path) : socketPath(std::move(path)) {}

SocketLink::~SocketLink()
{
    close();
}

void SocketLink::open(LinkListener& listener)
{
    const std::lock_guard<std::mutex> lock(mutex);
    connector = std::make_unique<Connector>(socketPath, listener);
}

void SocketLink::close()
{
    std::unique_ptr<Connector> closing; // ends unlocked, so that no send() waits for it
    const std::lock_guard<std::mutex> lock(mutex);
    closing.swap(connector);
}

int SocketLink::send(const FrameBytes& frame)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return connector ? connector->send(frame) : -ENOTCONN;
}

void SocketLink::frameRefused(std::uint32_t connection) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (connector)
        connector->frameRefused(connection);
}

} // namespace host
} // namespace fabric
