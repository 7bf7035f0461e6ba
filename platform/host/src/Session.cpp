#include <fabric-host/Session.h>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/StatePart.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "ClientList.h"
#include "Contained.h"
#include "Frame.h"
#include "HandlerRegistry.h"
#include "Inbox.h"
#include "Log.h"

namespace fabric {
namespace host {
namespace {

constexpr std::uint8_t kindCommand = 0;
constexpr MsgIds noIds = {0, 0};

/// The next number of a sequence that leaves out 0.
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

/// A running number in this process, from a start that differs from process to process.
std::uint32_t newOriginId()
{
    static std::atomic<std::uint32_t> last{std::random_device()()};
    return nextNumber(last);
}

void requireNoFlags(int flags)
{
    if (flags != 0)
        throw std::invalid_argument("addEventHandler: flags " + std::to_string(flags) +
                                    ", expected 0");
}

} // namespace

/// The session's three objects for the application are thin fronts of this one.
class Session::Impl final : private LinkListener
{
public:
    Impl(std::unique_ptr<Link> newLink, const MessageCatalogue& messages);
    ~Impl();

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void attach(ClientInterface& client);
    void detach(ClientInterface& client);
    void connect();
    void disconnect();
    SessionCounters counters() const noexcept;

    int addEventHandler(Receiver receiver, const MsgMeta& key, const EventHandler& handler)
    {
        return handlers.add(receiver, key, handler);
    }
    void removeEventHandler(int id) { handlers.remove(id, onDispatchThread()); }
    int sendEvent(MsgIds& ids, int flags, std::unique_ptr<SerializableMessageEvent> event);

private:
    class Application;
    class Component;
    class Service;

    // Calls of the link, on its thread.
    std::uint32_t linkUp() override;
    void linkFailed(int error) override { push(InboxItem::failed, error); }
    void linkDown(int reason) override;
    bool frameReceived(const FrameBytes& frame) override;

    void push(InboxItem::Kind kind, int reason = 0);
    void closeLink();

    std::string commandFault(int flags, const SerializableMessageEvent* event) const;
    int encodeAndSend(MsgIds& ids, const SerializableMessageEvent& event);
    int handOver(const FrameBytes& frame);

    bool onDispatchThread() const noexcept;
    void dispatch();
    void carryOut(InboxItem& item);
    void carryOutDetach(DetachRequest& request);
    void receive(const FrameBytes& frame);
    void deliver(const FrameBytes& frame);
    void refuseFrame(const char* reason) noexcept;

    const MessageCatalogue& catalogue;
    const std::uint32_t originId = newOriginId();
    std::atomic<std::uint32_t> lastMessageId{0};
    std::atomic<std::uint32_t> lastConnection{0};
    std::uint32_t connection = 0; // whose frames are delivered; the dispatch thread's

    std::atomic<std::size_t> framesSent{0};
    std::atomic<std::size_t> framesReceived{0};
    std::atomic<std::size_t> framesRefused{0};
    std::atomic<std::size_t> messagesUnhandled{0};
    std::atomic<std::size_t> handlerExceptions{0};

    StateHolder stateHolder;
    Inbox inbox;
    Inbox::Quota received;
    HandlerRegistry handlers;
    ClientList clients;

    std::mutex detachMutex;
    std::condition_variable detached;
    bool dispatchEnded = false; // guarded by detachMutex, like each request's `done`

    std::mutex linkMutex; // one opens or closes at a time
    bool opened = false;
    bool ending = false;
    std::atomic<bool> lost{false}; // opened, but down since linkDown()
    const std::unique_ptr<Link> link;

public:
    // Behind what they use.
    const std::unique_ptr<AbstractApplication> application;
    const std::unique_ptr<AbstractComponent> component;
    const std::unique_ptr<ServiceInterface> service;

private:
    std::thread dispatcher; // last: it uses everything above
};

class Session::Impl::Application : public AbstractApplication
{
public:
    explicit Application(Impl& owner) : AbstractApplication(owner.stateHolder), session(owner) {}

    int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) override
    {
        requireNoFlags(flags);
        return session.addEventHandler(Receiver::application, key, handler);
    }

    int sendEvent(MsgIds& ids, int flags, SerializableMessageEvent* event) override
    {
        return session.sendEvent(ids, flags, std::unique_ptr<SerializableMessageEvent>(event));
    }

private:
    Impl& session;
};

class Session::Impl::Component : public AbstractComponent
{
public:
    explicit Component(Impl& owner) : AbstractComponent(newComponentId()), session(owner) {}

    int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) override
    {
        requireNoFlags(flags);
        return session.addEventHandler(Receiver::component, key, handler);
    }

    void removeEventHandler(int handlerId) override { session.removeEventHandler(handlerId); }

private:
    Impl& session;
};

class Session::Impl::Service : public ServiceInterface
{
public:
    explicit Service(const MessageCatalogue& messages) : catalogue(messages) {}

    std::uint32_t getServiceId() override { return catalogue.serviceId; }

private:
    const MessageCatalogue& catalogue;
};

Session::Impl::Impl(std::unique_ptr<Link> newLink, const MessageCatalogue& messages)
    : catalogue(messages),
      link(std::move(newLink)),
      application(new Application(*this)),
      component(new Component(*this)),
      service(new Service(messages)),
      dispatcher([this] { dispatch(); })
{
}

Session::Impl::~Impl()
{
    {
        const std::lock_guard<std::mutex> lock(linkMutex);
        ending = true;
        link->close();
    }
    inbox.close();
    dispatcher.join();
}

void Session::Impl::attach(ClientInterface& client)
{
    clients.attach(client);
    push(InboxItem::standing);
}

void Session::Impl::detach(ClientInterface& client)
{
    if (onDispatchThread()) {
        clients.detach(client);
        return;
    }
    DetachRequest request = {client, false};
    inbox.push([&](InboxItem& item) {
        item.kind = InboxItem::detach;
        item.request = &request;
    });
    std::unique_lock<std::mutex> lock(detachMutex);
    detached.wait(lock, [&] { return request.done || dispatchEnded; });
}

void Session::Impl::connect()
{
    const std::lock_guard<std::mutex> lock(linkMutex);
    if (ending || (opened && (!lost || link->triesAgain())))
        return;
    closeLink(); // a lost one may have come up again in this moment
    lost = false;
    link->open(*this);
    opened = true;
}

void Session::Impl::disconnect()
{
    const std::lock_guard<std::mutex> lock(linkMutex);
    closeLink();
}

/// With the linkMutex held.
void Session::Impl::closeLink()
{
    if (!opened)
        return;
    opened = false;
    link->close();
    push(InboxItem::down);
}

SessionCounters Session::Impl::counters() const noexcept
{
    return {framesSent, framesReceived, framesRefused, messagesUnhandled,
            handlerExceptions + clients.exceptions()};
}

int Session::Impl::sendEvent(MsgIds& ids, int flags,
                             std::unique_ptr<SerializableMessageEvent> event)
{
    ids = noIds;
    try {
        const std::string fault = commandFault(flags, event.get());
        if (!fault.empty()) {
            log(logTrouble, "fabric-host: message not sent: %s\n", fault.c_str());
            return -EINVAL;
        }
        event->ids = {originId, nextNumber(lastMessageId)};
        return encodeAndSend(ids, *event);
    } catch (const std::bad_alloc&) {
        ids = noIds;
        return -ENOMEM;
    }
}

/// Empty for a command that the service knows.
std::string Session::Impl::commandFault(int flags, const SerializableMessageEvent* event) const
{
    if (flags != 0)
        return "flags " + std::to_string(flags) + ", expected 0";
    if (!event)
        return "no event";
    if (event->meta.kind != kindCommand)
        return "not a command, kind " + std::to_string(event->meta.kind);
    std::string reason;
    belongsTo(catalogue, *event, reason);
    return reason;
}

int Session::Impl::handOver(const FrameBytes& frame)
{
    try {
        return link->send(frame);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
}

int Session::Impl::encodeAndSend(MsgIds& ids, const SerializableMessageEvent& event)
{
    FrameBytes frame;
    if (const int error = encodeFrame(event, frame)) {
        log(logTrouble, "fabric-host: message not sent: longer than a frame\n");
        return error;
    }
    // Both before it goes, since the reply may arrive before send() returns.
    ids = event.ids;
    ++framesSent;
    if (const int error = handOver(frame)) {
        ids = noIds;
        --framesSent;
        return error;
    }
    log(logEveryMessage, "fabric-host: message %u sent: resource %u, operation %u\n",
        event.ids.messageId, event.meta.resourceId, event.meta.operationId);
    return 0;
}

std::uint32_t Session::Impl::linkUp()
{
    lost = false;
    const std::uint32_t number = nextNumber(lastConnection);
    inbox.push([number](InboxItem& item) {
        item.kind = InboxItem::up;
        item.connection = number;
    });
    return number;
}

void Session::Impl::linkDown(int reason)
{
    lost = true;
    push(InboxItem::down, reason);
}

bool Session::Impl::frameReceived(const FrameBytes& frame)
{
    try {
        return inbox.push(received, [&](InboxItem& item) {
            item.kind = InboxItem::frame;
            item.bytes = frame;
        });
    } catch (const std::bad_alloc&) {
        return false; // no memory to queue it is a full queue as well
    }
}

void Session::Impl::push(InboxItem::Kind kind, int reason)
{
    inbox.push([&](InboxItem& item) {
        item.kind = kind;
        item.reason = reason;
    });
}

bool Session::Impl::onDispatchThread() const noexcept
{
    return std::this_thread::get_id() == dispatcher.get_id();
}

void Session::Impl::dispatch()
{
    // Whatever ends this thread, nobody is to wait for it any longer.
    struct Ended
    {
        ~Ended()
        {
            const std::lock_guard<std::mutex> lock(session.detachMutex);
            session.dispatchEnded = true;
            session.detached.notify_all();
        }
        Impl& session;
    } const ended = {*this};

    Inbox::Batch batch;
    while (inbox.take(batch))
        for (InboxItem& item : batch)
            carryOut(item);
    clients.detachAll();
}

void Session::Impl::carryOut(InboxItem& item)
{
    switch (item.kind) {
    case InboxItem::frame:
        receive(item.bytes);
        recycle(item.bytes);
        break;
    case InboxItem::up:
        connection = item.connection;
        log(logInformation, "fabric-host: connected\n");
        clients.reportUp();
        break;
    case InboxItem::failed:
        log(logTrouble, "fabric-host: not connected: %s\n", std::strerror(item.reason));
        clients.reportFailed(item.reason);
        break;
    case InboxItem::down:
        log(logInformation, "fabric-host: disconnected: %s\n",
            item.reason ? std::strerror(item.reason) : "closed");
        clients.reportDown(item.reason);
        break;
    case InboxItem::standing:
        clients.reportStanding();
        break;
    case InboxItem::detach:
        carryOutDetach(*item.request);
        break;
    }
}

void Session::Impl::carryOutDetach(DetachRequest& request)
{
    clients.detach(request.client);
    // Under the lock, since the request is gone once its thread goes on.
    const std::lock_guard<std::mutex> lock(detachMutex);
    request.done = true;
    detached.notify_all();
}

void Session::Impl::receive(const FrameBytes& frame)
{
    ++framesReceived;
    contained([&] { deliver(frame); }, [&](const char* what) { refuseFrame(what); });
}

void Session::Impl::deliver(const FrameBytes& frame)
{
    std::string reason;
    const std::unique_ptr<SerializableMessageEvent> event = decodeFrame(frame, catalogue, reason);
    if (!event)
        return refuseFrame(reason.c_str());
    if (event->meta.kind == kindCommand)
        return refuseFrame("a command");

    const Delivery delivery = handlers.deliver(*event);
    handlerExceptions += delivery.exceptions;
    if (delivery.handlers == 0)
        ++messagesUnhandled;
    log(logEveryMessage,
        "fabric-host: message received for %zu handlers: resource %u, operation %u, kind %u\n",
        delivery.handlers, event->meta.resourceId, event->meta.operationId,
        unsigned{event->meta.kind});
}

void Session::Impl::refuseFrame(const char* reason) noexcept
{
    ++framesRefused;
    log(logTrouble, "fabric-host: frame from the service refused: %s\n", reason);
    link->frameRefused(connection);
}

Session::Session(std::unique_ptr<Link> link, const MessageCatalogue& catalogue)
    : impl(new Impl(std::move(link), catalogue))
{
}

Session::~Session() = default;

AbstractApplication& Session::application()
{
    return *impl->application;
}

AbstractComponent& Session::component()
{
    return *impl->component;
}

ServiceInterface& Session::service()
{
    return *impl->service;
}

void Session::attach(ClientInterface& client)
{
    impl->attach(client);
}

void Session::detach(ClientInterface& client)
{
    impl->detach(client);
}

void Session::connect()
{
    impl->connect();
}

void Session::disconnect()
{
    impl->disconnect();
}

SessionCounters Session::counters() const
{
    return impl->counters();
}

} // namespace host
} // namespace fabric
