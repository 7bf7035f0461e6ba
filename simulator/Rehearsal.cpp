#include "Rehearsal.h"

#include <cerrno>
#include <new>
#include <utility>

#include "MessageText.h"
#include "Protocol.h"

namespace chronal::sim {

namespace {

std::string named(fabric::host::ClientId client) { return "client " + std::to_string(client); }

} // namespace

/// Calls `text` for a line. Without memory for it there is another line in its place.
template <class Text>
void Rehearsal::note(Text text) const noexcept
{
    if (!log)
        return;
    std::string line = "(out of memory)"; // allocates nothing
    try {
        line = text();
    } catch (const std::bad_alloc&) {
    }
    log(line);
}

Rehearsal::Rehearsal(fabric::host::Service& rehearsedService, const Faults& wanted, Log sink)
    : service(rehearsedService), faults(wanted), log(std::move(sink))
{
}

const fabric::host::MessageCatalogue& Rehearsal::catalogue() const { return service.catalogue(); }

void Rehearsal::start(fabric::host::ServiceOutlet& serviceOutlet)
{
    outlet = &serviceOutlet;
    service.start(*this);
}

void Rehearsal::clientConnected(ClientId client)
{
    note([=] { return named(client) + " connected"; });
    commands[client] = 0;
    service.clientConnected(client);
}

void Rehearsal::clientDisconnected(ClientId client)
{
    note([=] { return named(client) + " disconnected"; });
    commands.erase(client);
    service.clientDisconnected(client);
}

void Rehearsal::commandReceived(ClientId client, const fabric::SerializableMessageEvent& command)
{
    note([&] { return named(client) + " -> " + messageText(command); });
    if (isRefused(command))
        refuse(client, command);
    else
        service.commandReceived(client, command);
    if (++commands[client] == faults.dropAfter)
        outlet->drop(client, ECONNRESET);
}

Rehearsal::TimePoint Rehearsal::runDue() { return service.runDue(); }

void Rehearsal::send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event)
{
    note([&] { return named(client) + " <- " + messageText(*event); });
    outlet->send(client, std::move(event));
}

void Rehearsal::drop(ClientId client, int reason) { outlet->drop(client, reason); }

bool Rehearsal::isRefused(const fabric::SerializableMessageEvent& command) const
{
    const char* const name = nameOf(command);
    return name && faults.refused.count(name) != 0;
}

void Rehearsal::refuse(ClientId client, const fabric::SerializableMessageEvent& command)
{
    const Content result =
        compose(replyResult, [](chronalMsgReplyResult_t& record) { record.result = -EACCES; });
    auto event = std::make_unique<fabric::SerializableMessageEvent>(
        result.meta, fabric::EndpointId{-1, 0}, result.data);
    event->ids = command.ids;
    send(client, std::move(event));
}

} // namespace chronal::sim
