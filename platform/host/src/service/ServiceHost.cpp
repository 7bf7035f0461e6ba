#include <fabric-host/Frame.h>
#include <fabric-host/ServiceHost.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "../base/Guarded.h"
#include "../base/Log.h"
#include "../transport/SocketPath.h"

namespace fabric::host {
namespace {

namespace asio = boost::asio;

/// Far exceeds the number of applications on a device, and takes a quarter of the 1024 descriptors
/// that a process usually may open.
constexpr std::size_t maxClients = 256;

/// Delays the next runDue() after one that threw and so returned no time, and after a timer that
/// could not be created. Neither is likely to recover sooner.
constexpr std::chrono::seconds retryAfter(1);

/// Limits how long a client that notifies others waits for one to read; ample unless it is stuck.
constexpr std::chrono::milliseconds patience(250);

constexpr Service::TimePoint never = Service::TimePoint::max();

/// Holds some forty messages, fewer than the default: a reply waits behind fewer notifications, and
/// a client that causes more of them than others read is held up sooner.
constexpr int sendBuffer = 16 * 1024;

/// A larger buffer is freed after use, since nearly all messages fit in this size.
constexpr std::size_t usualFrame = 4096;

} // namespace

class ServiceHost::Impl final : private ClientSender
{
public:
    explicit Impl(Service& service) : service_(service) {}
    ~Impl() { end(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void listen(const std::string& path);
    void run();

    /// Returns the client's end of a new connection in memory. Throws std::bad_alloc, or
    /// std::system_error if the service has ended. Thread-safe.
    std::shared_ptr<FrameStream> connect(asio::io_context& clientLoop);

private:
    friend class ServiceHost;
    struct Client final : FrameListener
    {
        Client(Impl& owner, ClientId number) : host(owner), id(number) {}
        ~Client()
        {
            if (stream)
                stream->close(0);
        }

        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        bool mayRead() override;
        bool frameReceived(FrameView frame) override
        {
            host.receive(id, frame);
            return true; // the client of a refused frame has been dropped already
        }
        void turnEnded() override { host.runDue(); }
        void ended(int reason) override { host.ended(id, reason); }

        Service::TimePoint awaitedUntil(Service::TimePoint deadline);

        Impl& host;
        const ClientId id;
        std::shared_ptr<FrameStream> stream; ///< set once nothing can fail any more
        bool notifies = false;               ///< its last commands caused notifications of others
        Service::TimePoint awaited = never;  ///< see awaitedUntil()
    };

    void send(ClientId client, std::unique_ptr<SerializableMessageEvent> event) override;
    void drop(ClientId client, int reason) override { drop(client, reason, "by the service"); }

    void acceptPending();
    void welcome(const std::shared_ptr<FrameStream>& stream);
    void receive(ClientId client, FrameView frame);
    void drop(ClientId client, int reason, const char* why);
    void ended(ClientId client, int reason);
    FrameStream* remove(ClientId client);
    void reportDisconnected();
    void runDue();
    bool holdNotifiers();
    bool finishing() const noexcept { return lingerUntil_ != never; }
    void finish();
    void end();

    template <typename Call>
    int callService(const char* operation, const Call& call);

    Service& service_;
    std::atomic<std::size_t> framesRefused_{0}; // not every target has 64-bit atomics
    std::atomic<std::size_t> clientsDropped_{0};

    asio::io_context loop_{1};
    asio::executor_work_guard<asio::io_context::executor_type> work_{loop_.get_executor()};
    std::shared_ptr<SocketListener> listener_;

    std::mutex pendingMutex_;
    std::vector<std::shared_ptr<FrameStream>> pending_; // guarded by pendingMutex_
    bool ended_ = false;                                // likewise; true once the loop has ended

    std::map<ClientId, Client> clients_;
    std::map<ClientId, Client> disconnected_; // not yet reported to the service
    ClientId lastClient_ = 0;
    ClientId commanding_ = 0;              // sender of the command in progress
    Service::TimePoint heldUntil_ = never; // when held clients are checked again
    FrameBytes outgoing_;                  // reused for every frame
    RateLimitedLog errorLog_;
    std::atomic<int> stops_{0};              // calls of stop()
    Service::TimePoint lingerUntil_ = never; // set by finish(); the end even if clients are left

    // Created when first needed: a loop without timers and sockets wakes up faster.
    std::optional<LoopTimer> due_;
    Service::TimePoint untimed_ = never; // next runDue() if no timer could be created
    LoopTask reportDisconnected_{loop_, [this] { reportDisconnected(); }};
    LoopTask acceptPending_{loop_, [this] { acceptPending(); }};
    LoopTask stop_{loop_, [this] { finish(); }};
    std::thread thread_; // last: it uses everything above
};

/// Makes a client whose commands notify others faster than they read wait for them.
bool ServiceHost::Impl::Client::mayRead()
{
    if (stream->isCongested())
        return false; // until its replies have been read
    awaited = never;  // it keeps up, so no client waits for it
    notifies = notifies && host.holdNotifiers();
    return !notifies;
}

/// Returns the time until which clients that notify this one wait for it to read: `never` if it
/// keeps up, and a past time if it did not read in time. `deadline` is for one that no longer does.
Service::TimePoint ServiceHost::Impl::Client::awaitedUntil(Service::TimePoint deadline)
{
    if (!stream->isCongested())
        awaited = never;
    else if (awaited == never)
        awaited = deadline;
    return awaited;
}

void ServiceHost::Impl::listen(const std::string& path)
{
    listener_ = std::make_shared<SocketListener>(loop_, path, [this](Socket socket) {
        boost::system::error_code ignored; // the default size works, too
        socket.set_option(asio::socket_base::send_buffer_size(sendBuffer), ignored);
        welcome(newSocketStream(loop_, std::move(socket)));
    });
    listener_->start();
}

void ServiceHost::Impl::run()
{
    callService("start", [this] { service_.start(*this); });
    runDue();
    const auto handleEvent = [this] {
        if (untimed_ == never)
            loop_.run_one();
        else if (loop_.run_one_until(untimed_) == 0)
            runDue();
    };
    // After an exception the rest of that event is lost, and the loop continues.
    while (!loop_.stopped())
        callGuarded(handleEvent, [this](const char* what) {
            errorLog_.log("exception in a service's loop", what);
        });
    end();
}

/// Closes all connections, so that no client waits for a loop that has ended.
void ServiceHost::Impl::end()
{
    {
        const std::lock_guard<std::mutex> lock(pendingMutex_);
        ended_ = true;
        for (const std::shared_ptr<FrameStream>& stream : pending_)
            stream->close(ECONNREFUSED);
        pending_.clear();
    }
    if (listener_)
        listener_->close();
    clients_.clear();
}

std::shared_ptr<FrameStream> ServiceHost::Impl::connect(asio::io_context& clientLoop)
{
    const auto [client, service] = newMemoryStreams(clientLoop, loop_);
    const std::lock_guard<std::mutex> lock(pendingMutex_);
    if (ended_)
        throw std::system_error(ECONNREFUSED, std::generic_category(), "the service has ended");
    pending_.push_back(service);
    acceptPending_.schedule();
    return client;
}

void ServiceHost::Impl::acceptPending()
{
    std::vector<std::shared_ptr<FrameStream>> offers;
    {
        const std::lock_guard<std::mutex> lock(pendingMutex_);
        offers.swap(pending_);
    }
    for (const std::shared_ptr<FrameStream>& stream : offers)
        callGuarded([&] { welcome(stream); },
                    [&](const char* what) {
                        errorLog_.log("cannot serve a client", what);
                        stream->close(ENOMEM);
                    });
}

void ServiceHost::Impl::welcome(const std::shared_ptr<FrameStream>& stream)
{
    if (finishing())
        return stream->close(0);
    if (clients_.size() >= maxClients) {
        errorLog_.log("client refused", "there are 256 already");
        return stream->close(ECONNREFUSED);
    }
    const ClientId id = ++lastClient_;
    Client& client = clients_.try_emplace(id, *this, id).first->second;
    client.stream = stream;
    if (const int error = callService("clientConnected", [&] { service_.clientConnected(id); }))
        drop(id, error, "by the service");
    if (stream->isOpen())
        stream->start(client);
    runDue();
}

void ServiceHost::Impl::receive(ClientId client, FrameView frame)
{
    std::string reason;
    std::unique_ptr<SerializableMessageEvent> command;
    const auto decode = [&] {
        command = decodeFrame(frame, service_.catalogue(), reason);
        if (command && command->meta.kind != kindCommand)
            reason = "not a command";
    };
    if (!callGuarded(decode, [](const char*) {}))
        return drop(client, ENOMEM, "out of memory");
    if (!reason.empty()) {
        ++framesRefused_;
        log(logError, "fabric-host: frame of client %u refused: %s\n", client, reason.c_str());
        return drop(client, EBADMSG, "its frame was refused");
    }
    log(logMessage, "fabric-host: command of client %u: resource %u, operation %u\n", client,
        command->meta.resourceId, command->meta.operationId);
    commanding_ = client;
    const int error =
        callService("commandReceived", [&] { service_.commandReceived(client, *command); });
    commanding_ = 0;
    if (error == ENOMEM)
        drop(client, ENOMEM, "out of memory"); // or it would wait for a reply in vain
}

void ServiceHost::Impl::send(ClientId client, std::unique_ptr<SerializableMessageEvent> event)
{
    const auto found = clients_.find(client);
    if (found == clients_.end() || !event)
        return;
    std::string reason;
    const auto encode = [&] {
        if (event->meta.kind == kindCommand)
            reason = "it is a command";
        else
            encodeFrame(*event, service_.catalogue(), outgoing_, reason);
    };
    if (!callGuarded(encode, [](const char*) {}))
        return drop(client, ENOMEM, "out of memory");
    if (!reason.empty()) {
        log(logError, "fabric-host: message from the service not sent: %s\n", reason.c_str());
        return;
    }
    const auto sender = client == commanding_ ? clients_.end() : clients_.find(commanding_);
    if (sender != clients_.end())
        sender->second.notifies = true;
    const int error = found->second.stream->send(outgoing_);
    if (error == -EAGAIN)
        drop(client, ENOBUFS, "it does not read");
    else if (error == -ENOMEM)
        drop(client, ENOMEM, "out of memory");
    if (outgoing_.capacity() > usualFrame)
        FrameBytes().swap(outgoing_);
}

void ServiceHost::Impl::drop(ClientId client, int reason, const char* why)
{
    FrameStream* const stream = remove(client);
    if (!stream)
        return;
    ++clientsDropped_;
    log(logError, "fabric-host: client %u dropped: %s\n", client, why);
    stream->close(reason);
}

void ServiceHost::Impl::ended(ClientId client, int reason)
{
    log(reason == ENOMEM ? logError : logInfo, "fabric-host: client %u disconnected: %s\n", client,
        reason ? std::strerror(reason) : "closed");
    remove(client);
}

/// Keeps the client alive until its end is reported to the service, after the call in progress.
/// Returns null for a client that was removed already.
FrameStream* ServiceHost::Impl::remove(ClientId client)
{
    auto node = clients_.extract(client);
    if (node.empty())
        return nullptr;
    FrameStream* const stream = node.mapped().stream.get();
    disconnected_.insert(std::move(node));
    reportDisconnected_.schedule();
    return stream;
}

void ServiceHost::Impl::reportDisconnected()
{
    while (!disconnected_.empty()) {
        const auto node = disconnected_.extract(disconnected_.begin());
        callService("clientDisconnected", [&] { service_.clientDisconnected(node.key()); });
    }
    runDue();
    if (finishing() && clients_.empty())
        loop_.stop();
}

void ServiceHost::Impl::runDue()
{
    if (finishing() && Service::TimePoint::clock::now() >= lingerUntil_)
        return loop_.stop();
    Service::TimePoint next = never;
    if (callService("runDue", [&] { next = service_.runDue(); }) != 0)
        next = Service::TimePoint::clock::now() + retryAfter;
    if (heldUntil_ != never)
        holdNotifiers();
    next = std::min({next, heldUntil_, lingerUntil_});
    if (!due_ && next == never)
        return;
    const auto set = [&] {
        if (!due_)
            due_.emplace(loop_, [this] { runDue(); });
        due_->expireAt(next);
    };
    const bool timed =
        callGuarded(set, [this](const char* what) { errorLog_.log("cannot set a timer", what); });
    untimed_ = timed ? never : Service::TimePoint::clock::now() + retryAfter;
}

/// Returns true while clients that notify others have to wait for one to read. Resumes reading from
/// them when they no longer have to.
bool ServiceHost::Impl::holdNotifiers()
{
    const auto now = Service::TimePoint::clock::now();
    const auto before = std::exchange(heldUntil_, never);
    const auto deadline = before != never ? before : now + patience; // all readers share one
    for (auto& [id, reader] : clients_)
        if (const auto until = reader.awaitedUntil(deadline); until > now)
            heldUntil_ = std::min(heldUntil_, until);
    if (before != never && heldUntil_ == never)
        for (const auto& [id, client] : clients_)
            if (client.notifies)
                client.stream->resume();
    return heldUntil_ != never;
}

void ServiceHost::Impl::finish()
{
    if (finishing() || stops_ > 1)
        return loop_.stop();
    if (listener_)
        listener_->finish();
    for (const auto& [id, client] : clients_)
        client.stream->shutdownSend();
    lingerUntil_ = Service::TimePoint::clock::now() + lingerTimeout;
    reportDisconnected_.schedule();
}

/// Calls the service. Returns 0, or an error number for an exception, which is logged.
template <typename Call>
int ServiceHost::Impl::callService(const char* operation, const Call& call)
{
    int error = 0;
    callGuarded(call, [&](const char* what) {
        error = currentError(ECANCELED);
        log(logError, "fabric-host: exception from the service's %s: %s\n", operation, what);
    });
    return error;
}

std::unique_ptr<Link> newMemoryLink(std::shared_ptr<ServiceHost> host)
{
    const auto connect = [host = std::move(host)](asio::io_context& loop) {
        return host->impl_->connect(loop);
    };
    return newStreamLink(connect, false);
}

ServiceHost::ServiceHost(Service& service) : impl_(new Impl(service)) {}

ServiceHost::~ServiceHost()
{
    if (!impl_->thread_.joinable())
        return;
    if (impl_->stops_ == 0)
        stop();
    impl_->thread_.join();
}

void ServiceHost::listen(const std::string& path) { impl_->listen(path); }

void ServiceHost::run() { impl_->run(); }

void ServiceHost::start()
{
    impl_->thread_ = std::thread([this] { run(); });
}

void ServiceHost::post(std::function<void()> call)
{
    asio::post(impl_->loop_, [impl = impl_.get(), call = std::move(call)] {
        impl->callService("post", call);
        impl->runDue();
    });
}

void ServiceHost::stop() noexcept
{
    ++impl_->stops_;
    impl_->stop_.schedule();
}

ServiceCounters ServiceHost::counters() const noexcept
{
    return {impl_->framesRefused_, impl_->clientsDropped_};
}

} // namespace fabric::host
