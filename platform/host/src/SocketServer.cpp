#include "SocketServer.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Contained.h"
#include "Log.h"
#include "SocketFile.h"
#include "SocketStream.h"

namespace fabric {
namespace host {
namespace {

namespace asio = boost::asio;
typedef asio::local::stream_protocol Protocol;
typedef boost::system::error_code ErrorCode;

constexpr std::size_t maxClients = 256;
constexpr int maxBatch = 64;
constexpr std::chrono::milliseconds acceptRetry(100);

} // namespace

class SocketServer::Impl
{
public:
    Impl(Service& service, const std::string& path, std::initializer_list<int> stopSignals)
        : server(service), signals(io)
    {
        for (const int number : stopSignals)
            signals.add(number);
        file = std::make_unique<SocketFile>(path, acceptor);
    }

    void run();
    void stop()
    {
        asio::post(io, [this] { finish(); });
    }
    ServerCounters counters() const noexcept { return server.counters(); }

private:
    class Client;

    void arm(Service::TimePoint next);
    void awaitSignal();
    void accept();
    void restFromAccepting();
    void welcome(Protocol::socket socket);
    void forget(const std::shared_ptr<Client>& client);
    void finish();

    asio::io_context io{1};
    ServiceServer server;
    asio::signal_set signals;
    Protocol::acceptor acceptor{io};
    asio::steady_timer due{io};
    Service::TimePoint armed = Service::TimePoint::max();
    asio::steady_timer pause{io}; // of accepting; in the end, until the end
    bool awaitingSignal = false;
    bool accepting = false; // or resting from it
    std::unique_ptr<SocketFile> file;
    std::set<std::shared_ptr<Client>> clients;
    bool finishing = false;
    bool finished = false;
};

class SocketServer::Impl::Client final : public SocketStream, public Peer
{
public:
    Client(Socket connected, Impl& impl) : SocketStream(std::move(connected)), owner(impl) {}

    /// Not for use once the connection has ended.
    void start()
    {
        id = owner.server.connected(self());
        if (isOpen())
            startReading();
    }

    /// Of a client that cannot be reached any more, what it had sent is still read.
    bool deliver(const FrameBytes& frame) override
    {
        const int error = send(frame);
        return error != -EAGAIN && error != -ENOMEM;
    }

    void drop(int) override
    {
        close();
        owner.forget(self());
    }

private:
    int frameReceived(FrameBytes frame) override
    {
        if (!owner.server.frameReceived(id, frame))
            owner.server.drop(id, EBADMSG, "its frame was refused");
        return 0;
    }

    void ended(int reason) override
    {
        log(logInformation, "fabric-host: client %u disconnected: %s\n", id,
            reason ? std::strerror(reason) : "closed");
        owner.server.disconnected(id);
        owner.forget(self());
    }

    std::shared_ptr<Client> self() { return std::static_pointer_cast<Client>(shared_from_this()); }

    Impl& owner;
    ClientId id = 0;
};

void SocketServer::Impl::run()
{
    const auto report = [](const char* what) {
        log(logTrouble, "fabric-host: exception in a socket server: %s\n", what);
    };
    // What an exception has kept from being waited for, the next round waits for.
    const auto handleEvents = [this] {
        arm(server.runDue());
        awaitSignal();
        accept();
        io.run_one();
        for (int more = 1; more < maxBatch && io.poll_one() != 0; ++more)
            continue;
    };
    server.start();
    while (!finished)
        contained(handleEvents, report);
}

/// Wakes run() at `next` at the latest. A timer that is set already for an earlier time stays: to
/// cancel it is an event, and a service may name a later time after each.
void SocketServer::Impl::arm(Service::TimePoint next)
{
    if (next >= armed)
        return;
    armed = Service::TimePoint::max();
    due.expires_at(next);
    due.async_wait([this](const ErrorCode& cancelled) {
        if (!cancelled)
            armed = Service::TimePoint::max();
    });
    armed = next;
}

void SocketServer::Impl::awaitSignal()
{
    if (awaitingSignal)
        return;
    signals.async_wait([this](const ErrorCode& error, int) {
        awaitingSignal = false;
        if (!error)
            finish();
    });
    awaitingSignal = true;
}

void SocketServer::Impl::accept()
{
    if (accepting || finishing)
        return;
    acceptor.async_accept([this](const ErrorCode& error, Protocol::socket socket) {
        accepting = false;
        if (finishing)
            return;
        if (!error)
            return welcome(std::move(socket));
        log(logTrouble, "fabric-host: no client accepted: %s\n", std::strerror(error.value()));
        restFromAccepting();
    });
    accepting = true;
}

void SocketServer::Impl::restFromAccepting()
{
    pause.expires_after(acceptRetry);
    pause.async_wait([this](const ErrorCode&) { accepting = false; });
    accepting = true;
}

void SocketServer::Impl::welcome(Protocol::socket socket)
{
    if (clients.size() >= maxClients) {
        log(logTrouble, "fabric-host: client refused: there are %zu already\n", clients.size());
        return;
    }
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
    const auto client = std::make_shared<Client>(std::move(socket), *this);
    clients.insert(client);
    contained([&] { client->start(); }, [&](const char*) { client->end(ENOMEM); });
}

void SocketServer::Impl::forget(const std::shared_ptr<Client>& client)
{
    clients.erase(client);
    finished = finished || (finishing && clients.empty());
}

void SocketServer::Impl::finish()
{
    finished = finishing || clients.empty();
    finishing = true;
    file = nullptr;
    ErrorCode ignored;
    acceptor.close(ignored);
    for (const std::shared_ptr<Client>& client : clients)
        client->finish();
    const auto awaitFarewell = [this] {
        pause.expires_after(longestFarewell);
        pause.async_wait([this](const ErrorCode& cancelled) { finished = finished || !cancelled; });
    };
    contained(awaitFarewell, [this](const char*) { finished = true; });
}

SocketServer::SocketServer(Service& service, const std::string& path,
                           std::initializer_list<int> stopSignals)
    : impl(new Impl(service, path, stopSignals))
{
}

SocketServer::~SocketServer() = default;

void SocketServer::run()
{
    impl->run();
}

void SocketServer::stop()
{
    impl->stop();
}

ServerCounters SocketServer::counters() const noexcept
{
    return impl->counters();
}

} // namespace host
} // namespace fabric
