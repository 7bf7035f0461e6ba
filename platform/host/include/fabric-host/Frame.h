#ifndef FABRIC_HOST_FRAME_H
#define FABRIC_HOST_FRAME_H

#include <cstddef>
#include <memory>
#include <string>

#include <boost/endian/conversion.hpp>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/Export.h>
#include <fabric/SerializableMessage.h>

/// The wire format of messages. Every number is big-endian, whatever the host.
///
///      0           4           8          12          16  17  18  20
///     +-----------+-----------+-----------+-----------+---+---+-----+
///     | length    | serviceId | resourceId| operation |knd|ver| 0   |
///     +-----------+-----------+-----------+-----------+---+---+-----+
///     | node      | component | originId  | messageId | body ...
///     +-----------+-----------+-----------+-----------+
///     20          24          28          32          36
///
/// `length` counts the whole frame. The body holds the members that the record's table lists, in
/// the table's order: a nested record as its members, a string as its 32-bit length followed by
/// its characters without a NUL. Padding is not sent.
namespace fabric {
namespace host {

constexpr std::size_t frameHeaderSize = 36;
constexpr std::size_t maxFrameSize = 64 * 1024;
constexpr std::uint8_t frameVersion = 1;

constexpr bool isFrameLength(std::size_t length) noexcept
{
    return length >= frameHeaderSize && length <= maxFrameSize;
}

/// Reads the length field of a frame, which must have at least four bytes.
inline std::size_t lengthOfFrame(const std::uint8_t* start) noexcept
{
    return boost::endian::load_big_u32(start);
}

/// Encodes a message of the catalogue into `frame`. A string whose `chars` is null is sent as
/// empty, whatever its length. Returns 0, or a negative error number with the cause in `reason`:
/// -EINVAL for an identity that is not in the catalogue or a record that does not belong to it,
/// -EMSGSIZE for a message over maxFrameSize.
FABRIC_API int encodeFrame(const SerializableMessageEvent& event, const MessageCatalogue& catalogue,
                           FrameBytes& frame, std::string& reason);

/// Decodes a frame into a message in host byte order. Every string has NUL-terminated `chars`, even
/// an empty one. Returns null for an invalid frame, with the cause in `reason`. Trusts nothing in
/// the frame; its allocations are bounded by the sizes of the frame and of its record.
FABRIC_API std::unique_ptr<SerializableMessageEvent>
decodeFrame(FrameView frame, const MessageCatalogue& catalogue, std::string& reason);

} // namespace host
} // namespace fabric

#endif
