#include "FaultInjector.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

namespace chronal::sim {

namespace {

std::string named(fabric::host::ClientId client) { return "client " + std::to_string(client); }

} // namespace

/// Logs the line that `text` returns, or a substitute if memory runs out.
template <class Text>
void FaultInjector::note(Text text) const noexcept
{
    if (!log_)
        return;
    std::string line = "(out of memory)"; // short enough not to be allocated
    try {
        line = text();
    } catch (const std::bad_alloc&) {
    }
    log_(line);
}

FaultInjector::FaultInjector(fabric::host::Service& service, const Clock& clock, Log log,
                             std::size_t dropAfter)
    : service_(service), clock_(clock), log_(std::move(log)), dropAfter_(dropAfter)
{
}

std::optional<Fault> FaultInjector::setFault(const std::string& command, std::optional<Fault> fault)
{
    std::optional<Fault> previous;
    const auto found = faults_.find(command);
    if (found != faults_.end())
        previous = found->second;
    if (fault)
        faults_[command] = *fault;
    else
        faults_.erase(command);
    return previous;
}

void FaultInjector::dropAll(int reason)
{
    for (const auto& [client, received] : commands_)
        outlet_->drop(client, reason);
}

void FaultInjector::notify(const Content& content)
{
    ++lastNotification_;
    for (const auto& [client, received] : commands_)
        send(client, newEvent(content, {0, lastNotification_}));
}

const fabric::host::MessageCatalogue& FaultInjector::catalogue() const
{
    return service_.catalogue();
}

void FaultInjector::start(fabric::host::ClientSender& outlet)
{
    outlet_ = &outlet;
    service_.start(*this);
}

void FaultInjector::clientConnected(ClientId client)
{
    note([=] { return named(client) + " connected"; });
    commands_[client] = 0;
    service_.clientConnected(client);
}

void FaultInjector::clientDisconnected(ClientId client)
{
    note([=] { return named(client) + " disconnected"; });
    commands_.erase(client);
    for (auto next = delayed_.begin(); next != delayed_.end();)
        next = next->second.client == client ? delayed_.erase(next) : std::next(next);
    service_.clientDisconnected(client);
}

void FaultInjector::commandReceived(ClientId client,
                                    const fabric::SerializableMessageEvent& command)
{
    note([&] { return named(client) + " -> " + messageText(command); });
    const char* const name = nameOf(command);
    const auto found = faults_.find(name ? name : "");
    const Fault fault = found != faults_.end() ? found->second : Fault{true, {}, Span::zero()};
    delay_ = fault.delay;
    if (fault.carriedOut)
        service_.commandReceived(client, command);
    else if (fault.answer.data)
        send(client, newEvent(fault.answer, command.ids));
    delay_ = Span::zero();
    if (++commands_[client] == dropAfter_)
        outlet_->drop(client, ECONNRESET);
}

FaultInjector::TimePoint FaultInjector::runDue() { return clock_.onMachine(runDueByClock()); }

FaultInjector::TimePoint FaultInjector::runDueByClock()
{
    while (!delayed_.empty() && delayed_.begin()->first <= clock_.steady()) {
        Delayed next = std::move(delayed_.begin()->second);
        delayed_.erase(delayed_.begin());
        sendNow(next.client, std::move(next.event));
    }
    const TimePoint due = service_.runDue();
    return delayed_.empty() ? due : std::min(due, delayed_.begin()->first);
}

bool FaultInjector::advance(SettableClock& clock, TimePoint target)
{
    {
        struct Stopped // so that the next due time is exact
        {
            explicit Stopped(SettableClock& stopped) : clock(stopped), speed(stopped.speed())
            {
                clock.setSpeed(0);
            }
            ~Stopped() { clock.setSpeed(speed); }
            SettableClock& clock;
            const double speed;
        } const stopped(clock);
        clock.advanceTo(std::min(runDueByClock(), target));
        runDueByClock();
    }
    return clock.steady() >= target;
}

void FaultInjector::send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event)
{
    if (delay_ > Span::zero() && event->meta.kind == fabric::host::kindReply) {
        delayed_.emplace(clock_.steady() + delay_, Delayed{client, std::move(event)});
        return;
    }
    sendNow(client, std::move(event));
}

void FaultInjector::sendNow(ClientId client,
                            std::unique_ptr<fabric::SerializableMessageEvent> event)
{
    note([&] { return named(client) + " <- " + messageText(*event); });
    outlet_->send(client, std::move(event));
}

void FaultInjector::drop(ClientId client, int reason) { outlet_->drop(client, reason); }

Content refusal(int error)
{
    return compose(replyResult, [=](chronalMsgReplyResult_t& record) { record.result = error; });
}

} // namespace chronal::sim
