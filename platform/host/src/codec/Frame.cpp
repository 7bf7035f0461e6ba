#include <fabric-host/Frame.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include <boost/endian/conversion.hpp>

#include "RecordLayout.h"

namespace fabric::host {
namespace {

namespace endian = boost::endian;

/// Copies one scalar, possibly unaligned, between record and frame in either direction.
template <typename Word>
inline void transfer(void* to, const void* from) noexcept
{
    Word word;
    std::memcpy(&word, from, sizeof(word));
    endian::native_to_big_inplace(word);
    std::memcpy(to, &word, sizeof(word));
}

inline std::uint8_t* put(std::uint8_t* out, std::uint32_t word) noexcept
{
    endian::store_big_u32(out, word);
    return out + sizeof(word);
}

/// Reads a string of a record. One whose `chars` is null is empty, whatever its length.
inline nubDeserString_t stringAt(const std::uint8_t* item) noexcept
{
    nubDeserString_t text;
    std::memcpy(&text, item, sizeof(text));
    if (!text.chars)
        text.length = 0;
    return text;
}

/// Decodes a frame's body, from `in` to `end`, into a record. Returns null, or a description of the
/// fault.
const char* decodeBody(const RecordLayout& layout, std::uint8_t* record, const std::uint8_t* in,
                       const std::uint8_t* end)
{
    const std::size_t size = static_cast<std::size_t>(end - in);
    if (size < layout.frameSize)
        return "body too short for its record";
    // Left for the characters of the strings; the frame is long enough for all other members.
    std::size_t characters = size - layout.frameSize;

    for (const RecordMember& member : layout.members) {
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
            nubDeserString_t text = {endian::load_big_u32(in), nullptr};
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
    return characters == 0 ? nullptr : "bytes after the record";
}

/// Returns null, with the cause in `reason`, for an identity that is not in the catalogue.
const MessageType* typeOf(const MsgMeta& meta, const MessageCatalogue& catalogue,
                          std::string& reason)
{
    const bool known = meta.serviceId == catalogue.serviceId;
    const MessageType* const type =
        known ? catalogue.find(meta.resourceId, meta.operationId, meta.kind) : nullptr;
    if (!type)
        reason = std::string(known ? "unknown identity" : "unknown service") + ": service " +
                 std::to_string(meta.serviceId) + ", resource " + std::to_string(meta.resourceId) +
                 ", operation " + std::to_string(meta.operationId) + ", kind " +
                 std::to_string(meta.kind);
    return type;
}

/// Kind, version and two zero bytes share one word of the header.
inline std::uint32_t kindAndVersion(std::uint8_t kind) noexcept
{
    return std::uint32_t{kind} << 24 | std::uint32_t{frameVersion} << 16;
}

/// Checks a frame's length, version and reserved bytes, but not its body. Returns an empty text if
/// they are valid.
std::string headerFault(FrameView frame)
{
    if (isFrameLength(frame.size) && lengthOfFrame(frame.data) == frame.size &&
        endian::load_big_u32(frame.data + 16) == kindAndVersion(frame.data[16]))
        return {};
    const std::string start = "frame of " + std::to_string(frame.size) + " bytes ";
    if (frame.size < sizeof(std::uint32_t))
        return start + "is shorter than a header";
    const std::size_t length = lengthOfFrame(frame.data);
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

/// Returns null, or how the message's payload does not belong to its type.
const char* payloadFault(const SerializableMessageEvent& event, const MessageType& type) noexcept
{
    if (!event.data || !event.data->payload || !event.data->endianTable)
        return " has no payload";
    // Entries are compared, since they exist only once even if an executable copies the table.
    return event.data->endianTable->entries == type.table->entries
               ? nullptr
               : " has a payload of another record";
}

} // namespace

int encodeFrame(const SerializableMessageEvent& event, const MessageCatalogue& catalogue,
                FrameBytes& frame, std::string& reason)
{
    const MessageType* const type = typeOf(event.meta, catalogue, reason);
    if (!type)
        return -EINVAL;
    if (const char* const fault = payloadFault(event, *type)) {
        reason = std::string(type->name) + fault;
        return -EINVAL;
    }
    const RecordLayout& layout = catalogue.layoutOf(*type);
    const std::uint8_t* const record = static_cast<const std::uint8_t*>(event.data->payload);
    std::size_t size = frameHeaderSize + layout.frameSize;
    for (const std::uint32_t offset : layout.strings) {
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

    for (const RecordMember& member : layout.members) {
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
    reason = headerFault(frame);
    if (!reason.empty())
        return nullptr;

    const std::uint8_t* const header = frame.data;
    const MsgMeta meta = {endian::load_big_u32(header + 4), endian::load_big_u32(header + 8),
                          endian::load_big_u32(header + 12), header[16]};
    const MessageType* const type = typeOf(meta, catalogue, reason);
    if (!type)
        return nullptr;

    const boost::shared_ptr<SerializableMessageData> data =
        SerializableMessageData::create(type->table->size, *type->table);
    if (const char* const fault =
            decodeBody(catalogue.layoutOf(*type), static_cast<std::uint8_t*>(data->payload),
                       header + frameHeaderSize, header + frame.size)) {
        reason = std::string(type->name) + ": " + fault;
        return nullptr;
    }

    const EndpointId sender = {static_cast<std::int32_t>(endian::load_big_u32(header + 20)),
                               endian::load_big_u32(header + 24)};
    std::unique_ptr<SerializableMessageEvent> event(
        new SerializableMessageEvent(meta, sender, data));
    event->ids = {endian::load_big_u32(header + 28), endian::load_big_u32(header + 32)};
    return event;
}

} // namespace fabric::host
