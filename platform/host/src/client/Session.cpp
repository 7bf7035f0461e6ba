#include <fabric-host/Frame.h>
#include <fabric-host/Session.h>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/StatePart.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "../base/Guarded.h"
#include "../base/Log.h"
#include "../base/Loop.h"
#include "ClientList.h"
#include "HandlerRegistry.h"

namespace fabric::host {
namespace {

namespace asio = boost::asio;

constexpr MsgIds noIds = {0, 0};

/// Delays reopening a link that reconnects but could not be opened for lack of memory or
/// descriptors: brief for the user, long enough to leave the processor to others.
constexpr std::chrono::milliseconds retryAfter(100);

using TimePoint = std::chrono::steady_clock::time_point;
constexpr TimePoint never = TimePoint::max();

/// Returns the next number of a sequence that skips 0.
std::uint32_t nextNumber(std::atomic<std::uint32_t>& last) noexcept
{
    const std::uint32_t number = ++last;
    return number != 0 ? number : ++last;
}

std::uint32_t newComponentId() noexcept
{
    static std::atomic<std::uint32_t> last{0};
    return nextNumber(last);
}

/// Counts up from a random start, so that ids of different processes are unlikely to collide.
std::uint32_t newOriginId()
{
    static std::atomic<std::uint32_t> last{std::random_device()()};
    return nextNumber(last);
}

} // namespace

/// Implements the session and its application.
class Session::Impl final : private StateHolder,
                            public AbstractApplication,
                            public ServiceInterface,
                            private LinkListener
{
public:
    Impl(std::unique_ptr<Link> link, const MessageCatalogue& catalogue, Dispatch dispatchOn);
    ~Impl() override;

    int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) override
    {
        return addEventHandler(Receiver::application, key, flags, handler);
    }
    int sendEvent(MsgIds& ids, int flags, SerializableMessageEvent* event) override;
    std::uint32_t getServiceId() override { return catalogue_.serviceId; }

private:
    friend class Session;
    class Component;

    /// Requests of other threads to the loop. disconnect() cancels a pending connect().
    struct Requests
    {
        bool close = false;
        bool open = false; ///< handled after `close`
        bool end = false;
    };

    void linkUp() override;
    void linkFailed(int error) override;
    void linkDown(int reason) override;
    bool frameReceived(FrameView frame) override;

    int addEventHandler(Receiver receiver, const MsgMeta& key, int flags,
                        const EventHandler& handler);

    void request(void (*change)(Impl& session)) noexcept;
    void handleRequests();
    void openLink();
    void closeLink();

    int encode(int flags, SerializableMessageEvent* event, FrameBytes& frame, std::string& fault);

    bool onDispatchThread() const noexcept;
    void dispatch();
    template <class Step>
    void guardLoop(Step step);
    bool deliver(FrameView frame);
    bool refuseFrame(const char* reason) noexcept;

    const MessageCatalogue& catalogue_;
    const std::uint32_t originId_ = newOriginId();
    std::atomic<std::uint32_t> lastMessageId_{0};

    // Not every target has 64-bit atomics.
    std::atomic<std::size_t> framesSent_{0};
    std::atomic<std::size_t> framesReceived_{0};
    std::atomic<std::size_t> framesRefused_{0};
    std::atomic<std::size_t> messagesUnhandled_{0};

    HandlerRegistry handlers_;
    ClientList clients_{handleRequests_};

    asio::io_context loop_{1};
    asio::executor_work_guard<asio::io_context::executor_type> work_{loop_.get_executor()};
    const std::unique_ptr<Link> link_;
    bool opened_ = false;      // used on the loop only, like the next three
    bool lost_ = false;        // opened, but down since linkDown()
    int openError_ = 0;        // error of the last attempt to open the link, or 0
    TimePoint openAt_ = never; // when the next attempt is made without a request

    std::mutex requestsMutex_;
    Requests requests_;               // guarded by requestsMutex_
    std::atomic<bool> closed_{false}; // from disconnect() until the link is up again
    LoopTask handleRequests_{loop_, [this] { handleRequests(); }};

    const std::unique_ptr<AbstractComponent> component_;
    std::thread dispatcher_; // last: it uses everything above
};

class Session::Impl::Component : public AbstractComponent
{
public:
    explicit Component(Impl& owner) : AbstractComponent(newComponentId()), session_(owner) {}

    int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) override
    {
        return session_.addEventHandler(Receiver::component, key, flags, handler);
    }

    void removeEventHandler(int handlerId) override
    {
        session_.handlers_.remove(handlerId, session_.onDispatchThread());
    }

private:
    Impl& session_;
};

Session::Impl::Impl(std::unique_ptr<Link> link, const MessageCatalogue& catalogue,
                    Dispatch dispatchOn)
    : AbstractApplication(static_cast<StateHolder&>(*this)),
      catalogue_(catalogue),
      link_(std::move(link)),
      component_(new Component(*this))
{
    if (dispatchOn == Dispatch::ownThread)
        dispatcher_ = std::thread([this] { dispatch(); });
}

Session::Impl::~Impl()
{
    request([](Impl& session) { session.requests_.end = true; });
    if (dispatcher_.joinable())
        dispatcher_.join();
    else
        dispatch();
}

void Session::Impl::request(void (*change)(Impl& session)) noexcept
{
    {
        const std::lock_guard<std::mutex> lock(requestsMutex_);
        change(*this);
    }
    handleRequests_.schedule();
}

void Session::Impl::handleRequests()
{
    Requests requests;
    {
        const std::lock_guard<std::mutex> lock(requestsMutex_);
        requests = std::exchange(requests_, Requests());
    }
    clients_.reportToNewClients();
    if (requests.close || requests.end)
        closeLink();
    if (requests.open && !requests.end) {
        openError_ = 0;
        openLink();
    }
    clients_.detachLeaving(requests.end);
    if (requests.end)
        loop_.stop();
}

void Session::Impl::openLink()
{
    if (opened_ && (!lost_ || link_->reconnects()))
        return;
    if (std::exchange(opened_, true))
        link_->close();
    lost_ = false;
    int error = 0;
    callGuarded([this] { link_->open(loop_, *this); },
                [&](const char*) { error = currentError(ENOMEM); });
    const bool told = std::exchange(openError_, error) == error;
    openAt_ = error != 0 && link_->reconnects() ? TimePoint::clock::now() + retryAfter : never;
    if (error == 0)
        return;
    opened_ = false;
    if (!told)
        linkFailed(error);
}

void Session::Impl::closeLink()
{
    openError_ = 0;
    openAt_ = never;
    if (!std::exchange(opened_, false))
        return;
    link_->close();
    linkDown(0);
}

int Session::Impl::addEventHandler(Receiver receiver, const MsgMeta& key, int flags,
                                   const EventHandler& handler)
{
    if (flags != 0)
        throw std::invalid_argument("addEventHandler: flags " + std::to_string(flags) +
                                    ", expected 0");
    return handlers_.add(receiver, key, handler);
}

int Session::Impl::sendEvent(MsgIds& ids, int flags, SerializableMessageEvent* event)
{
    const std::unique_ptr<SerializableMessageEvent> owned(event);
    ids = noIds;
    try {
        FrameBytes frame;
        std::string fault;
        if (const int error = encode(flags, event, frame, fault)) {
            log(logError, "fabric-host: message not sent: %s\n", fault.c_str());
            return error;
        }
        // Both are set before sending, since the reply may arrive before send() returns.
        ids = event->ids;
        ++framesSent_;
        if (const int error = closed_ ? -ENOTCONN : link_->send(frame)) {
            ids = noIds;
            --framesSent_;
            return error;
        }
        log(logMessage, "fabric-host: message %u sent: resource %u, operation %u\n",
            event->ids.messageId, event->meta.resourceId, event->meta.operationId);
        return 0;
    } catch (const std::bad_alloc&) {
        ids = noIds;
        return -ENOMEM;
    }
}

/// Checks and numbers a command. Returns 0, or a negative error number with its cause in `fault`.
int Session::Impl::encode(int flags, SerializableMessageEvent* event, FrameBytes& frame,
                          std::string& fault)
{
    if (flags != 0)
        fault = "flags " + std::to_string(flags) + ", expected 0";
    else if (!event)
        fault = "no event";
    else if (event->meta.kind != kindCommand)
        fault = "not a command, kind " + std::to_string(event->meta.kind);
    else {
        event->ids = {originId_, nextNumber(lastMessageId_)};
        return encodeFrame(*event, catalogue_, frame, fault);
    }
    return -EINVAL;
}

void Session::Impl::linkUp()
{
    lost_ = false;
    {
        const std::lock_guard<std::mutex> lock(requestsMutex_);
        if (!requests_.close)
            closed_ = false;
    }
    log(logInfo, "fabric-host: connected\n");
    clients_.reportUp();
}

void Session::Impl::linkFailed(int error)
{
    lost_ = true;
    log(logError, "fabric-host: not connected: %s\n", std::strerror(error));
    clients_.reportFailed(error);
}

void Session::Impl::linkDown(int reason)
{
    lost_ = true;
    log(logInfo, "fabric-host: disconnected: %s\n", reason ? std::strerror(reason) : "closed");
    clients_.reportDown(reason);
}

/// Without a thread of its own, a session is used on one thread only.
bool Session::Impl::onDispatchThread() const noexcept
{
    return !dispatcher_.joinable() || std::this_thread::get_id() == dispatcher_.get_id();
}

void Session::Impl::dispatch()
{
    // The destructor runs even if a callback ends this thread.
    struct Ended
    {
        ~Ended() { clients.dispatchEnded(); }
        ClientList& clients;
    } const ended = {clients_};

    while (!loop_.stopped())
        guardLoop([this] {
            if (openAt_ == never)
                loop_.run_one();
            else if (loop_.run_one_until(openAt_) == 0)
                openLink();
        });
}

/// Handles an event. After an exception, the rest of it is lost and the loop can continue.
template <class Step>
void Session::Impl::guardLoop(Step step)
{
    callGuarded(step, [](const char* what) {
        log(logError, "fabric-host: exception in a session's loop: %s\n", what);
    });
}

bool Session::Impl::frameReceived(FrameView frame)
{
    ++framesReceived_;
    try {
        return deliver(frame);
    } catch (const std::bad_alloc& shortage) {
        refuseFrame(shortage.what());
        throw;
    }
}

/// Returns false if the frame was refused.
bool Session::Impl::deliver(FrameView frame)
{
    std::string reason;
    const std::unique_ptr<SerializableMessageEvent> event = decodeFrame(frame, catalogue_, reason);
    if (!event)
        return refuseFrame(reason.c_str());
    if (event->meta.kind == kindCommand)
        return refuseFrame("it is a command");

    const std::size_t handlers = handlers_.deliver(*event);
    if (handlers == 0)
        ++messagesUnhandled_;
    log(logMessage,
        "fabric-host: message received for %zu handlers: resource %u, operation %u, kind %u\n",
        handlers, event->meta.resourceId, event->meta.operationId, unsigned{event->meta.kind});
    return true;
}

/// Always returns false.
bool Session::Impl::refuseFrame(const char* reason) noexcept
{
    ++framesRefused_;
    log(logError, "fabric-host: frame from the service refused: %s\n", reason);
    return false;
}

Session::Session(std::unique_ptr<Link> link, const MessageCatalogue& catalogue, Dispatch dispatch)
    : impl_(new Impl(std::move(link), catalogue, dispatch))
{
}

Session::~Session() = default;

AbstractApplication& Session::application() { return *impl_; }

AbstractComponent& Session::component() { return *impl_->component_; }

ServiceInterface& Session::service() { return *impl_; }

void Session::attach(ClientInterface& client) { impl_->clients_.attach(client); }

void Session::detach(ClientInterface& client)
{
    impl_->clients_.detach(client, impl_->onDispatchThread());
}

void Session::connect() noexcept
{
    impl_->request([](Impl& session) { session.requests_.open = true; });
}

void Session::disconnect() noexcept
{
    impl_->request([](Impl& session) {
        session.requests_.close = true;
        session.requests_.open = false;
        session.closed_ = true;
    });
}

bool Session::poll()
{
    bool any = impl_->openAt_ <= TimePoint::clock::now();
    if (any)
        impl_->guardLoop([this] { impl_->openLink(); });
    for (bool more = true; more; any = any || more)
        impl_->guardLoop([&] { more = impl_->loop_.poll_one() != 0; });
    return any;
}

SessionCounters Session::counters() const
{
    return {impl_->framesSent_, impl_->framesReceived_, impl_->framesRefused_,
            impl_->messagesUnhandled_,
            impl_->handlers_.exceptions() + impl_->clients_.exceptions()};
}

} // namespace fabric::host
