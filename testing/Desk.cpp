#include <chronal-testing/Desk.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <stdexcept>

#include <boost/make_shared.hpp>
#include <fabric-host/Frame.h>
#include <fabric-host/Link.h>
#include <fabric-host/Service.h>

#include "Clock.h"
#include "FaultInjector.h"
#include "TimeService.h"
#include "WireTime.h"

namespace chronal::testing {

namespace {

using fabric::host::FrameBytes;
using fabric::host::FrameView;

// More than any application causes before it rests.
constexpr std::size_t mostCaused = 10000;

sim::Utc checkedUtc(const Time& time)
{
    if (const std::optional<sim::Utc> utc = sim::readUtc(time))
        return *utc;
    throw std::invalid_argument("time " + sim::timeText(time) +
                                " is not within the years 1970 to 9999");
}

const std::string& checkedCommand(const std::string& name)
{
    const std::vector<std::string> names = sim::commandNames();
    if (std::find(names.begin(), names.end(), name) != names.end())
        return name;
    throw std::invalid_argument("'" + name + "' is not a command; expected for example '" +
                                names.front() + "'");
}

/// Error numbers of answers and of sendEvent() are negative, those of reports are not.
int checkedError(int error, bool valid)
{
    if (!valid)
        throw std::invalid_argument("error number " + std::to_string(error) +
                                    " has the wrong sign");
    return error;
}

FrameBytes encoded(const fabric::SerializableMessageEvent& event)
{
    FrameBytes frame;
    std::string reason;
    if (fabric::host::encodeFrame(event, sim::catalogue(), frame, reason) != 0)
        throw std::invalid_argument(reason);
    return frame;
}

/// The frames of a catalogue's messages are well-formed.
std::unique_ptr<fabric::SerializableMessageEvent> decoded(FrameView frame)
{
    std::string reason;
    auto event = fabric::host::decodeFrame(frame, sim::catalogue(), reason);
    if (!event)
        throw std::logic_error(reason);
    return event;
}

/// Copies a record together with the strings that it refers to.
sim::Content copied(const fabric::host::MessageType& message, const void* record)
{
    const auto borrowed = boost::make_shared<fabric::SerializableMessageData>(
        const_cast<void*>(record), 0, message.table);
    struct GiveBack
    {
        ~GiveBack() { data.payload = nullptr; }
        fabric::SerializableMessageData& data;
    } const giveBack = {*borrowed};
    const fabric::MsgMeta meta = {sim::catalogue().serviceId, message.resourceId,
                                  message.operationId, message.kind};
    const auto copy = decoded(encoded({meta, {-1, 0}, borrowed}));
    return {meta, copy->data};
}

} // namespace

/// Everything between the session and the service, which it hosts.
class Desk::Impl final : private fabric::host::ClientSender
{
public:
    Impl(const std::string& zone, const Time& start, std::chrono::milliseconds period)
        : clock(checkedUtc(start), 0),
          service({zone, period}, clock),
          session(std::make_unique<DeskLink>(*this), sim::catalogue(),
                  fabric::host::Dispatch::caller)
    {
        injector.start(*this);
        session.connect();
    }

    /// Something that waits to be delivered.
    struct Item
    {
        enum Kind
        {
            opening, ///< the attempt to connect
            down,    ///< the loss of the connection
            toService,
            toClient
        } kind;
        int reason;
        FrameBytes frame;
    };

    bool runOne();
    std::size_t run();
    std::size_t runUntilIdle();
    void runDue() { injector.runDue(); }
    void drop(int reason);
    void setError(int error);
    void inject(const fabric::MsgIds* ids, const sim::Content& content);

    sim::SettableClock clock;
    sim::TimeService service;
    sim::FaultInjector injector{service, clock};
    std::vector<Command> commands;
    int sendError = 0;    // with which the middleware refuses commands, or 0
    int connectError = 0; // with which attempts to connect fail, or 0
    std::deque<Item> waiting;

private:
    /// The session's end of the connection.
    class DeskLink final : public fabric::host::Link
    {
    public:
        explicit DeskLink(Impl& desk) : desk_(desk) {}
        void open(boost::asio::io_context&, fabric::host::LinkListener& listener) override
        {
            desk_.open(listener);
        }
        void close() override { desk_.close(); }
        int send(FrameView frame) override { return desk_.sendToService(frame); }
        bool reconnects() const noexcept override { return true; }

    private:
        Impl& desk_;
    };

    void open(fabric::host::LinkListener& listener);
    void close();
    int sendToService(FrameView frame);
    void send(fabric::host::ClientId client,
              std::unique_ptr<fabric::SerializableMessageEvent> event) override;
    void drop(fabric::host::ClientId client, int reason) override;

    template <class Step>
    bool guarded(Step step);
    bool deliverNext();
    void deliver(const Item& item);
    void connect();
    void disconnectService();

    fabric::host::LinkListener* listener_ = nullptr; // while the link is open
    fabric::host::ClientId client_ = 0;
    bool up_ = false;
    int toldError_ = 0;          // of the last attempt to connect that was reported
    std::optional<int> dropped_; // by the service, during the call in progress
    bool running_ = false;
    bool nested_ = false;

public:
    fabric::host::Session session; // last: it uses the link, and so all of the above
};

/// Takes a step of the delivery, unless it is inside another. Returns what the step returns.
template <class Step>
bool Desk::Impl::guarded(Step step)
{
    if (running_) {
        nested_ = true;
        throw std::logic_error("Desk: a delivery inside a callback");
    }
    struct Running
    {
        explicit Running(bool& flag) : running(flag) { running = true; }
        ~Running() { running = false; }
        bool& running;
    };
    nested_ = false;
    bool any = false;
    {
        const Running running(running_);
        any = step();
    }
    if (nested_)
        throw std::logic_error("Desk: a callback has called a function that delivers");
    return any;
}

bool Desk::Impl::runOne()
{
    return guarded([this] { return session.poll() || deliverNext(); });
}

std::size_t Desk::Impl::run()
{
    std::size_t left = waiting.size();
    std::size_t count = guarded([this] { return session.poll(); }) ? 1 : 0;
    for (; left != 0 && guarded([this] { return deliverNext(); }); --left)
        ++count;
    return count;
}

std::size_t Desk::Impl::runUntilIdle()
{
    const std::size_t most = waiting.size() + mostCaused;
    std::size_t count = 0;
    while (runOne())
        if (++count > most)
            throw std::runtime_error("Desk: not idle after " + std::to_string(most) +
                                     " deliveries");
    return count;
}

bool Desk::Impl::deliverNext()
{
    if (waiting.empty())
        return false;
    const Item item = std::move(waiting.front());
    waiting.pop_front();
    deliver(item);
    return true;
}

void Desk::Impl::deliver(const Item& item)
{
    switch (item.kind) {
    case Item::opening:
        return connect();
    case Item::down:
        return listener_->linkDown(item.reason);
    case Item::toClient:
        listener_->frameReceived(item.frame);
        return;
    case Item::toService:
        injector.commandReceived(client_, *decoded(item.frame));
        runDue();
        if (dropped_)
            drop(*std::exchange(dropped_, std::nullopt));
    }
}

void Desk::Impl::open(fabric::host::LinkListener& listener)
{
    listener_ = &listener;
    toldError_ = 0;
    waiting.push_back({Item::opening, 0, {}});
}

void Desk::Impl::connect()
{
    if (connectError != 0) {
        if (std::exchange(toldError_, connectError) != connectError)
            listener_->linkFailed(connectError);
        return;
    }
    up_ = true;
    toldError_ = 0;
    injector.clientConnected(++client_);
    listener_->linkUp();
    runDue();
}

void Desk::Impl::disconnectService()
{
    if (std::exchange(up_, false))
        injector.clientDisconnected(client_);
}

/// Delivers what has been received, as every link does.
void Desk::Impl::close()
{
    std::deque<Item> received;
    received.swap(waiting);
    for (const Item& item : received)
        if (item.kind == Item::toClient)
            listener_->frameReceived(item.frame);
    disconnectService();
    waiting.clear();
    listener_ = nullptr;
}

void Desk::Impl::drop(int reason)
{
    if (!up_)
        return;
    disconnectService();
    waiting.clear();
    waiting.push_back({Item::down, reason, {}});
    waiting.push_back({Item::opening, 0, {}});
}

void Desk::Impl::setError(int error)
{
    connectError = error;
    const bool tries = std::any_of(waiting.begin(), waiting.end(),
                                   [](const Item& item) { return item.kind == Item::opening; });
    if (listener_ && !up_ && !tries)
        waiting.push_back({Item::opening, 0, {}});
}

int Desk::Impl::sendToService(FrameView frame)
{
    if (!up_)
        return -ENOTCONN;
    if (sendError != 0)
        return sendError;
    commands.emplace_back(decoded(frame));
    waiting.push_back({Item::toService, 0, FrameBytes(frame.data, frame.data + frame.size)});
    return 0;
}

void Desk::Impl::send(fabric::host::ClientId client,
                      std::unique_ptr<fabric::SerializableMessageEvent> event)
{
    if (up_ && client == client_)
        waiting.push_back({Item::toClient, 0, encoded(*event)});
}

void Desk::Impl::drop(fabric::host::ClientId client, int reason)
{
    if (up_ && client == client_)
        dropped_ = reason;
}

/// Without ids, the message is a notification.
void Desk::Impl::inject(const fabric::MsgIds* ids, const sim::Content& content)
{
    if (!up_)
        throw std::logic_error("Desk: no message can be sent without a connection");
    if (!ids)
        return injector.notify(content);
    waiting.push_back({Item::toClient, 0, encoded(*sim::newEvent(content, *ids))});
}

Desk::Desk(const std::string& zone, const Time& start, std::chrono::milliseconds notificationPeriod)
    : impl_(new Impl(zone, start, notificationPeriod))
{
}

Desk::~Desk() = default;

fabric::AbstractApplication& Desk::application() { return impl_->session.application(); }

fabric::AbstractComponent& Desk::component() { return impl_->session.component(); }

fabric::ServiceInterface& Desk::service() { return impl_->session.service(); }

fabric::host::Session& Desk::session() { return impl_->session; }

Scope Desk::attach(fabric::ClientInterface& client)
{
    fabric::host::Session& session = impl_->session;
    session.attach(client);
    return Scope([&] { session.detach(client); });
}

bool Desk::runOne() { return impl_->runOne(); }

std::size_t Desk::run() { return impl_->run(); }

std::size_t Desk::runUntilIdle() { return impl_->runUntilIdle(); }

Time Desk::now() const { return sim::wireTime(impl_->clock.utc()); }

void Desk::setTime(const Time& time)
{
    impl_->clock.setUtc(checkedUtc(time));
    impl_->runDue();
}

void Desk::advance(std::chrono::microseconds span)
{
    const sim::Clock::TimePoint target = impl_->clock.later(span);
    runUntilIdle();
    while (!impl_->injector.advance(impl_->clock, target))
        runUntilIdle();
    runUntilIdle();
}

void Desk::advanceTo(const Time& time) { advance(checkedUtc(time) - impl_->clock.utc()); }

const std::vector<Command>& Desk::commands() const { return impl_->commands; }

void Desk::forgetCommands() { impl_->commands.clear(); }

namespace {

Scope withFault(sim::FaultInjector& injector, const std::string& command, const sim::Fault& fault)
{
    const std::optional<sim::Fault> previous = injector.setFault(checkedCommand(command), fault);
    return Scope([&injector, command, previous] { injector.setFault(command, previous); });
}

} // namespace

Scope Desk::refuse(const std::string& command, int error)
{
    return withFault(impl_->injector, command,
                     {false, sim::refusal(checkedError(error, error < 0)), {}});
}

Scope Desk::ignore(const std::string& command) { return withFault(impl_->injector, command, {}); }

Scope Desk::delay(const std::string& command, std::chrono::microseconds span)
{
    (void)impl_->clock.later(span); // it has to be in range
    return withFault(impl_->injector, command, {true, {}, span});
}

Scope Desk::answerWith(const std::string& command, const fabric::host::MessageType& message,
                       const void* record)
{
    return withFault(impl_->injector, command, {false, copied(message, record), {}});
}

void Desk::inject(const fabric::MsgIds* ids, const fabric::host::MessageType& message,
                  const void* record)
{
    if (message.kind != (ids ? fabric::host::kindReply : fabric::host::kindNotification))
        throw std::invalid_argument(message.name + std::string(" is not a ") +
                                    (ids ? "reply" : "notification"));
    impl_->inject(ids, copied(message, record));
}

void Desk::drop(int reason) { impl_->drop(checkedError(reason, reason >= 0)); }

Scope Desk::unreachable(int error)
{
    const int previous = impl_->connectError;
    impl_->setError(checkedError(error, error > 0));
    return Scope([this, previous] { impl_->setError(previous); });
}

Scope Desk::refuseToSend(int error)
{
    const int previous = std::exchange(impl_->sendError, checkedError(error, error < 0));
    return Scope([this, previous] { impl_->sendError = previous; });
}

} // namespace chronal::testing
