#include "Frame.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include <boost/smart_ptr/make_shared.hpp>

namespace fabric {
namespace host {
namespace {

constexpr bool littleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

/// Between the host's byte order and the frame's, either way.
inline std::uint32_t swapped(std::uint32_t word) noexcept
{
    return littleEndian ? __builtin_bswap32(word) : word;
}

inline std::uint64_t swapped(std::uint64_t word) noexcept
{
    return littleEndian ? __builtin_bswap64(word) : word;
}

/// Copies one scalar, which may lie at any address, between record and frame.
template <typename Word>
inline void transfer(void* to, const void* from) noexcept
{
    Word word;
    std::memcpy(&word, from, sizeof(word));
    word = swapped(word);
    std::memcpy(to, &word, sizeof(word));
}

inline std::uint8_t* put(std::uint8_t* out, std::uint32_t word) noexcept
{
    transfer<std::uint32_t>(out, &word);
    return out + sizeof(word);
}

inline std::uint32_t get(const std::uint8_t* in) noexcept
{
    std::uint32_t word;
    transfer<std::uint32_t>(&word, in);
    return word;
}

inline bool isString(const nubEndianTable_t* table) noexcept
{
    return table == &__nub_EndianTable_nubDeserString_t;
}

/// Writes one record behind the header. Scalars need no check: each is named once, so together they
/// fit into the record's size, which the frame has been given. Strings make the frame grow.
class Encoder
{
public:
    explicit Encoder(FrameBytes& target) noexcept : frame(target) {}

    /// Where the next byte goes; null when the frame would be too long.
    std::uint8_t* record(const nubEndianTable_t& table, const std::uint8_t* from, std::uint8_t* out)
    {
        // A call for each record would cost more than its scalars, so the first level of nesting
        // has none. It is the only one of most records.
        return entries(table, from, out, [this](auto& inner, auto* item, auto* at) {
            return entries(inner, item, at, [this](auto& deeper, auto* innermost, auto* behind) {
                return record(deeper, innermost, behind);
            });
        });
    }

private:
    template <typename Nested>
    std::uint8_t* entries(const nubEndianTable_t& table, const std::uint8_t* from,
                          std::uint8_t* out, Nested nested)
    {
        for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
            const std::uint8_t* const item = from + (entry->code & 0xffff);
            switch (entry->code >> 16) {
            case nubEndianWord32:
                transfer<std::uint32_t>(out, item);
                out += sizeof(std::uint32_t);
                break;
            case nubEndianWord64:
                transfer<std::uint64_t>(out, item);
                out += sizeof(std::uint64_t);
                break;
            case nubEndianRecord:
                out = isString(entry->argument.table) ? string(item, out)
                                                      : nested(*entry->argument.table, item, out);
                if (!out)
                    return nullptr;
                break;
            }
        }
        return out;
    }

    std::uint8_t* string(const std::uint8_t* item, std::uint8_t* out)
    {
        nubDeserString_t text;
        std::memcpy(&text, item, sizeof(text));
        const std::uint32_t length = text.chars ? text.length : 0;

        const std::size_t used = static_cast<std::size_t>(out - frame.data()) + sizeof(length);
        if (length > maxFrameSize || used + length > maxFrameSize)
            return nullptr;
        if (length == 0)
            return put(out, length);

        frame.resize(frame.size() + length);
        out = put(frame.data() + used - sizeof(length), length);
        std::memcpy(out, text.chars, length);
        return out + length;
    }

    FrameBytes& frame;
};

/// Reads one record out of the body of a frame.
class Decoder
{
public:
    explicit Decoder(const std::uint8_t* frameEnd) noexcept : end(frameEnd) {}

    /// What follows the record in the frame; null when the frame is not valid.
    const std::uint8_t* record(const nubEndianTable_t& table, std::uint8_t* to,
                               const std::uint8_t* in)
    {
        // As in the encoder.
        return entries(table, to, in, [this](auto& inner, auto* item, auto* at) {
            return entries(inner, item, at, [this](auto& deeper, auto* innermost, auto* behind) {
                return record(deeper, innermost, behind);
            });
        });
    }

    const char* reason() const noexcept { return why; }

private:
    template <typename Nested>
    const std::uint8_t* entries(const nubEndianTable_t& table, std::uint8_t* to,
                                const std::uint8_t* in, Nested nested)
    {
        for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
            std::uint8_t* const item = to + (entry->code & 0xffff);
            switch (entry->code >> 16) {
            case nubEndianWord32:
                if (left(in) < sizeof(std::uint32_t))
                    return refuse("body too short for its record");
                transfer<std::uint32_t>(item, in);
                in += sizeof(std::uint32_t);
                break;
            case nubEndianWord64:
                if (left(in) < sizeof(std::uint64_t))
                    return refuse("body too short for its record");
                transfer<std::uint64_t>(item, in);
                in += sizeof(std::uint64_t);
                break;
            case nubEndianRecord:
                in = isString(entry->argument.table) ? string(item, in)
                                                     : nested(*entry->argument.table, item, in);
                if (!in)
                    return nullptr;
                break;
            }
        }
        return in;
    }

    std::size_t left(const std::uint8_t* in) const noexcept
    {
        return static_cast<std::size_t>(end - in);
    }

    const std::uint8_t* string(std::uint8_t* item, const std::uint8_t* in)
    {
        if (left(in) < sizeof(std::uint32_t))
            return refuse("body too short for its record");
        nubDeserString_t text = {get(in), nullptr};
        in += sizeof(text.length);
        if (text.length > left(in))
            return refuse("string length past the end of the frame");

        text.chars = static_cast<char*>(std::malloc(std::size_t{text.length} + 1));
        if (!text.chars)
            throw std::bad_alloc();
        std::memcpy(text.chars, in, text.length);
        text.chars[text.length] = '\0';
        std::memcpy(item, &text, sizeof(text));
        return in + text.length;
    }

    const std::uint8_t* refuse(const char* text) noexcept
    {
        why = text;
        return nullptr;
    }

    const std::uint8_t* const end;
    const char* why = nullptr;
};

std::string describe(const MsgMeta& meta)
{
    return "service " + std::to_string(meta.serviceId) + ", resource " +
           std::to_string(meta.resourceId) + ", operation " + std::to_string(meta.operationId) +
           ", kind " + std::to_string(meta.kind);
}

/// Null, and the reason, for an identity that the catalogue does not have.
const MessageType* typeOf(const MsgMeta& meta, const MessageCatalogue& catalogue,
                          std::string& reason)
{
    if (meta.serviceId != catalogue.serviceId) {
        reason = "unknown service: " + describe(meta);
        return nullptr;
    }
    const MessageType* const type = catalogue.find(meta.resourceId, meta.operationId, meta.kind);
    if (!type)
        reason = "unknown identity: " + describe(meta);
    return type;
}

/// Empty for a header that holds together.
std::string headerFault(const FrameBytes& frame)
{
    if (frame.size() < frameHeaderSize)
        return "frame of " + std::to_string(frame.size()) + " bytes is shorter than a header";
    if (frame.size() > maxFrameSize)
        return "frame of " + std::to_string(frame.size()) + " bytes is too long";
    if (get(frame.data()) != frame.size())
        return "frame of " + std::to_string(frame.size()) + " bytes gives its length as " +
               std::to_string(get(frame.data()));
    if (frame[17] != frameVersion)
        return "unknown version " + std::to_string(frame[17]);
    if (frame[18] != 0 || frame[19] != 0)
        return "reserved bytes are not zero";
    return std::string();
}

} // namespace

bool belongsTo(const MessageCatalogue& catalogue, const SerializableMessageEvent& event,
               std::string& reason)
{
    const MessageType* const type = typeOf(event.meta, catalogue, reason);
    if (!type)
        return false;
    if (!event.data || !event.data->payload || !event.data->endianTable) {
        reason = std::string(type->name) + " has no payload";
        return false;
    }
    // By the entries, which are one even where an executable has a copy of the table.
    if (event.data->endianTable->entries != type->table->entries) {
        reason = std::string(type->name) + " has a payload of another record";
        return false;
    }
    return true;
}

int encodeFrame(const SerializableMessageEvent& event, FrameBytes& frame)
{
    const nubEndianTable_t& table = *event.data->endianTable;
    frame.resize(frameHeaderSize + table.size);
    std::uint8_t* const out =
        Encoder(frame).record(table, static_cast<const std::uint8_t*>(event.data->payload),
                              frame.data() + frameHeaderSize);
    const std::size_t size = out ? static_cast<std::size_t>(out - frame.data()) : 0;
    if (!out || size > maxFrameSize)
        return -EMSGSIZE;
    frame.resize(size);

    std::uint8_t* header = put(frame.data(), static_cast<std::uint32_t>(size));
    header = put(header, event.meta.serviceId);
    header = put(header, event.meta.resourceId);
    header = put(header, event.meta.operationId);
    *header++ = event.meta.kind;
    *header++ = frameVersion;
    *header++ = 0;
    *header++ = 0;
    header = put(header, static_cast<std::uint32_t>(event.sender.node));
    header = put(header, event.sender.componentId);
    header = put(header, event.ids.originId);
    put(header, event.ids.messageId);
    return 0;
}

std::unique_ptr<SerializableMessageEvent>
decodeFrame(const FrameBytes& frame, const MessageCatalogue& catalogue, std::string& reason)
{
    reason = headerFault(frame);
    if (!reason.empty())
        return nullptr;

    const std::uint8_t* const header = frame.data();
    const MsgMeta meta = {get(header + 4), get(header + 8), get(header + 12), header[16]};
    const MessageType* const type = typeOf(meta, catalogue, reason);
    if (!type)
        return nullptr;

    // Reference count and owner together: SerializableMessageData::create() takes one allocation
    // more.
    const auto data =
        boost::make_shared<SerializableMessageData>(nullptr, std::uint32_t{0}, type->table);
    data->payload = std::calloc(1, type->table->size);
    if (!data->payload)
        throw std::bad_alloc();
    const std::uint8_t* const end = header + frame.size();
    Decoder decoder(end);
    const std::uint8_t* const rest = decoder.record(
        *type->table, static_cast<std::uint8_t*>(data->payload), header + frameHeaderSize);
    if (rest != end) {
        reason =
            std::string(type->name) + ": " + (rest ? "bytes behind the record" : decoder.reason());
        return nullptr;
    }

    const EndpointId sender = {static_cast<std::int32_t>(get(header + 20)), get(header + 24)};
    std::unique_ptr<SerializableMessageEvent> event(
        new SerializableMessageEvent(meta, sender, data));
    event->ids = {get(header + 28), get(header + 32)};
    return event;
}

} // namespace host
} // namespace fabric
