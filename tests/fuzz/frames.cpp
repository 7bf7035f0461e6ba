#include <cassert>

#include <fuzzer/FuzzedDataProvider.h>

#include <chronal/UserAdapter.h>
#include <fabric-host/Frame.h>

#include "../support/NullMiddleware.h"
#include "TimeService.h"

using namespace chronal::sim;
using namespace desk;
using namespace fabric::host;

static FrameBytes encoded(const fabric::SerializableMessageEvent& event)
{
    FrameBytes frame;
    std::string reason;
    assert(encodeFrame(event, catalogue(), frame, reason) == 0);
    return frame;
}

/// Returns null for a frame that is refused; any other is the only encoding of its message.
static std::unique_ptr<fabric::SerializableMessageEvent> decoded(const FrameBytes& frame)
{
    std::string reason;
    auto event = decodeFrame(frame, catalogue(), reason);
    assert(event ? encoded(*event) == frame : !reason.empty());
    return event;
}

/// Passes commands to a service, and its answers and all other messages to an adapter.
struct Desk : Clock, ClientSender, NullApplication, NullComponent, NullService, chronal::UserAdapter
{
    explicit Desk(fabric::StateHolder& holder) : NullApplication(holder), UserAdapter(*this, *this)
    {
        setServiceInterface(this);
        onServiceConnected();
        service.start(*this);
        service.clientConnected(1);
    }
    int addEventHandler(const fabric::MsgMeta& key, int, const fabric::EventHandler& call) override
    {
        const auto* const type = catalogue().find(key.resourceId, key.operationId, key.kind);
        return handlers.emplace(type, call).second;
    }
    Utc utc() const override { return wrapped(Utc(passed)); }
    TimePoint steady() const override { return TimePoint(passed); }
    TimePoint steadyAfter(Span) const override { return steady() + Span(1); }

    void take(const fabric::SerializableMessageEvent& event)
    {
        messageText(event);
        const auto [owner, resource, operation, kind] = event.meta;
        if (kind == kindCommand) {
            awaited = event.ids;
            service.commandReceived(1, event);
            assert(!awaited);
            passed += std::chrono::seconds(1) + std::chrono::milliseconds(event.ids.messageId);
            service.runDue();
        } else
            handlers.at(catalogue().find(resource, operation, kind)).boundCaller().invoke(event);
    }
    void send(ClientId, std::unique_ptr<fabric::SerializableMessageEvent> event) override
    {
        if (event->meta.kind == kindReply)
            assert(std::exchange(awaited, std::nullopt) == event->ids);
        take(*decoded(encoded(*event)));
    }
    void drop(ClientId, int) override { assert(false); }

    std::map<const MessageType*, fabric::EventHandler> handlers;
    Span passed = std::chrono::hours(24 * 20000); ///< since 1970; stands still during a command
    TimeService service{{}, *this};
    std::optional<fabric::MsgIds> awaited;
};

/// The input is a frame, and also a series of messages with the damage to their frames.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    decoded(FrameBytes(data, data + size));
    FuzzedDataProvider input(data, size);
    fabric::StateHolder holder;
    Desk desk(holder);
    while (input.remaining_bytes() > 0) {
        const std::size_t index = input.ConsumeIntegral<std::uint8_t>() % catalogue().count;
        const auto& [name, resource, operation, kind, table] = catalogue().types[index];
        const auto body = fabric::SerializableMessageData::create(table->size, *table);
        char* const start = static_cast<char*>(body->payload);
        for (const nubEndianEntry_t* entry = table->entries; entry->code != 0; ++entry)
            if (entry->argument.table == &__nub_EndianTable_nubDeserString_t)
                copyText(*reinterpret_cast<nubDeserString_t*>(start + (entry->code & 0xFFFF)),
                         input.ConsumeRandomLengthString());
        FrameBytes frame = encoded({{catalogue().serviceId, resource, operation, kind}, {}, body});
        std::size_t at = input.ConsumeIntegral<std::uint8_t>();
        for (const char bits : input.ConsumeRandomLengthString())
            frame[at++ % frame.size()] ^= static_cast<std::uint8_t>(bits);
        if (const auto received = decoded(frame))
            desk.take(*received);
    }
    return 0;
}
