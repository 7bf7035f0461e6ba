#include "device.h"

#include <cerrno>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <utility>

namespace fabric {

static std::map<int, std::pair<MsgMeta, Handler>> handlers;

int add(const MsgMeta& key, const Handler& handler)
{
    const int id = static_cast<int>(handlers.size());
    handlers.emplace(id, std::make_pair(key, handler));
    return id;
}

bool Event::refused = false;

Event::Event(const MsgMeta& identity, const EndpointId& sender)
    : stamp(0), meta(identity), from(sender), ids("of the event")
{
    if (refused)
        throw std::length_error("no more events");
}

Event::~Event() = default;

int AbstractApplication::sendEvent(MsgIds& ids, int, Event* event)
{
    const auto& message = static_cast<const SerializableMessageEvent&>(*event);
    std::printf("sent %u %u %u by %d/%u: %u bytes\n", event->meta.resourceId,
                event->meta.operationId, event->meta.kind, event->from.node,
                event->from.componentId, message.data->endianTable->size);
    delete event;
    ids.text = "filled in";
    return -EAGAIN;
}

int AbstractApplication::registrations() { return static_cast<int>(handlers.size()); }

void AbstractApplication::deliver(const Event& event)
{
    for (const auto& handler : handlers)
        if (std::memcmp(&handler.second.first, &event.meta, 13) == 0)
            handler.second.second.caller->invoke(event);
}

void EventHandlerIdSet::reset()
{
    for (int id = 0; mask != 0; ++id, mask >>= 1)
        if (mask & 1)
            handlers.erase(id);
}

} // namespace fabric

void fabricTwineDeserReleaseMessage(unsigned, const fabric::MsgMeta*, const nubEndianTable_t* table,
                                    void* payload)
{
    for (const nubEndianEntry_t* entry = table->entries; entry->code != 0; ++entry) {
        if (entry->argument.table != &__nub_EndianTable_nubDeserString_t)
            continue;
        const void* const field = static_cast<char*>(payload) + (entry->code & 0xFFFF);
        char* const chars = static_cast<const nubDeserString_t*>(field)->chars;
        std::printf("releasing \"%s\"\n", chars);
        std::free(chars);
    }
}
