#include "FaultInjector.h"

#include <cerrno>
#include <new>
#include <utility>

#include "MessageText.h"
#include "Protocol.h"

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

FaultInjector::FaultInjector(fabric::host::Service& service, const Faults& faults, Log log)
    : service_(service), faults_(faults), log_(std::move(log))
{
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
    service_.clientDisconnected(client);
}

void FaultInjector::commandReceived(ClientId client,
                                    const fabric::SerializableMessageEvent& command)
{
    note([&] { return named(client) + " -> " + messageText(command); });
    if (isRefused(command))
        refuse(client, command);
    else
        service_.commandReceived(client, command);
    if (++commands_[client] == faults_.dropAfter)
        outlet_->drop(client, ECONNRESET);
}

FaultInjector::TimePoint FaultInjector::runDue() { return service_.runDue(); }

void FaultInjector::send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event)
{
    note([&] { return named(client) + " <- " + messageText(*event); });
    outlet_->send(client, std::move(event));
}

void FaultInjector::drop(ClientId client, int reason) { outlet_->drop(client, reason); }

bool FaultInjector::isRefused(const fabric::SerializableMessageEvent& command) const
{
    const char* const name = nameOf(command);
    return name && faults_.refused.count(name) != 0;
}

void FaultInjector::refuse(ClientId client, const fabric::SerializableMessageEvent& command)
{
    const Content result =
        compose(replyResult, [](chronalMsgReplyResult_t& record) { record.result = -EACCES; });
    auto event = std::make_unique<fabric::SerializableMessageEvent>(
        result.meta, fabric::EndpointId{-1, 0}, result.data);
    event->ids = command.ids;
    send(client, std::move(event));
}

} // namespace chronal::sim
