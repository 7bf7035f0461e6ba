#include <fabric-host/Frame.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "RecordShape.h"

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

/// A string without characters travels as an empty one, whatever its length says.
inline nubDeserString_t stringAt(const std::uint8_t* item) noexcept
{
    nubDeserString_t text;
    std::memcpy(&text, item, sizeof(text));
    if (!text.chars)
        text.length = 0;
    return text;
}

/// Reads the record of that shape out of the body of a frame, up to `end`. Null, or what is wrong.
const char* decodeBody(const RecordShape& shape, std::uint8_t* record, const std::uint8_t* in,
                       const std::uint8_t* end)
{
    const std::size_t size = static_cast<std::size_t>(end - in);
    if (size < shape.frameSize)
        return "body too short for its record";
    // What is left for the characters of its strings; all else is in the frame from here on.
    std::size_t characters = size - shape.frameSize;

    for (const RecordMember& member : shape.members) {
        std::uint8_t* const item = record + member.offset;
        switch (member.kind) {
        case RecordMember::word32:
            transfer<std::uint32_t>(item, in);
            in += sizeof(std::uint32_t);
            break;
        case RecordMember::word64:
            transfer<std::uint64_t>(item, in);
            in += sizeof(std::uint64_t);
            break;
        case RecordMember::string:
            nubDeserString_t text = {get(in), nullptr};
            in += sizeof(text.length);
            if (text.length > characters)
                return "string length past the end of the frame";
            characters -= text.length;

            text.chars = static_cast<char*>(std::malloc(std::size_t{text.length} + 1));
            if (!text.chars)
                throw std::bad_alloc();
            std::memcpy(text.chars, in, text.length);
            text.chars[text.length] = '\0';
            std::memcpy(item, &text, sizeof(text));
            in += text.length;
            break;
        }
    }
    return characters == 0 ? nullptr : "bytes behind the record";
}

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

/// Kind, version and two bytes of zero share a word of the header.
inline std::uint32_t kindAndVersion(std::uint8_t kind) noexcept
{
    return std::uint32_t{kind} << 24 | std::uint32_t{frameVersion} << 16;
}

/// Whether length, version and reserved bytes are valid; does not look at the body.
bool isFrame(FrameView frame) noexcept
{
    return isFrameLength(frame.size) && get(frame.data) == frame.size &&
           get(frame.data + 16) == kindAndVersion(frame.data[16]);
}

/// Describes what is wrong with a header that isFrame() rejects.
std::string headerFault(FrameView frame)
{
    const std::string start = "frame of " + std::to_string(frame.size) + " bytes ";
    if (frame.size < sizeof(std::uint32_t))
        return start + "is shorter than a header";
    const std::size_t length = get(frame.data);
    std::string given = start + "gives its length as " + std::to_string(length);
    if (!isFrameLength(length))
        return given + ", not " + std::to_string(frameHeaderSize) + " to " +
               std::to_string(maxFrameSize);
    if (length != frame.size)
        return given;
    if (frame.data[17] != frameVersion)
        return "unknown version " + std::to_string(frame.data[17]);
    return "reserved bytes are not zero";
}

/// Whether the message's identity is in the catalogue, and its record the one of that identity.
bool validate(const SerializableMessageEvent& event, const MessageCatalogue& catalogue,
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

} // namespace

int encodeFrame(const SerializableMessageEvent& event, const MessageCatalogue& catalogue,
                FrameBytes& frame, std::string& reason)
{
    if (!validate(event, catalogue, reason))
        return -EINVAL;
    const RecordShape& shape = RecordShape::of(*event.data->endianTable);
    const std::uint8_t* const record = static_cast<const std::uint8_t*>(event.data->payload);
    std::size_t size = frameHeaderSize + shape.frameSize;
    for (const std::uint32_t offset : shape.strings) {
        const std::uint32_t length = stringAt(record + offset).length;
        size += std::min<std::size_t>(length, maxFrameSize + 1);
    }
    if (size > maxFrameSize) {
        reason = "longer than a frame";
        return -EMSGSIZE;
    }
    frame.resize(size);

    std::uint8_t* out = put(frame.data(), static_cast<std::uint32_t>(size));
    out = put(out, event.meta.serviceId);
    out = put(out, event.meta.resourceId);
    out = put(out, event.meta.operationId);
    out = put(out, kindAndVersion(event.meta.kind));
    out = put(out, static_cast<std::uint32_t>(event.sender.node));
    out = put(out, event.sender.componentId);
    out = put(out, event.ids.originId);
    out = put(out, event.ids.messageId);

    for (const RecordMember& member : shape.members) {
        const std::uint8_t* const item = record + member.offset;
        switch (member.kind) {
        case RecordMember::word32:
            transfer<std::uint32_t>(out, item);
            out += sizeof(std::uint32_t);
            break;
        case RecordMember::word64:
            transfer<std::uint64_t>(out, item);
            out += sizeof(std::uint64_t);
            break;
        case RecordMember::string:
            const nubDeserString_t text = stringAt(item);
            out = put(out, text.length);
            if (text.length != 0)
                std::memcpy(out, text.chars, text.length);
            out += text.length;
            break;
        }
    }
    return 0;
}

std::unique_ptr<SerializableMessageEvent>
decodeFrame(FrameView frame, const MessageCatalogue& catalogue, std::string& reason)
{
    if (!isFrame(frame)) {
        reason = headerFault(frame);
        return nullptr;
    }

    const std::uint8_t* const header = frame.data;
    const MsgMeta meta = {get(header + 4), get(header + 8), get(header + 12), header[16]};
    const MessageType* const type = typeOf(meta, catalogue, reason);
    if (!type)
        return nullptr;

    const boost::shared_ptr<SerializableMessageData> data =
        SerializableMessageData::create(type->table->size, *type->table);
    if (const char* const fault =
            decodeBody(RecordShape::of(*type->table), static_cast<std::uint8_t*>(data->payload),
                       header + frameHeaderSize, header + frame.size)) {
        reason = std::string(type->name) + ": " + fault;
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
