#ifndef FABRIC_HOST_FRAME_H
#define FABRIC_HOST_FRAME_H

#include <cstddef>
#include <memory>
#include <string>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric/Export.h>
#include <fabric/SerializableMessage.h>

/// Messages as they travel. Every number is big-endian, whatever the host.
///
///      0           4           8          12          16  17  18  20
///     +-----------+-----------+-----------+-----------+---+---+-----+
///     | length    | serviceId | resourceId| operation |knd|ver| 0   |
///     +-----------+-----------+-----------+-----------+---+---+-----+
///     | node      | component | originId  | messageId | body ...
///     +-----------+-----------+-----------+-----------+
///     20          24          28          32          36
///
/// `length` counts the whole frame. The body holds what the record's table names, in the table's
/// order: a scalar as it is, a nested record in its place, a string as its length (32 bits) and
/// its characters without a NUL. Padding does not travel.
namespace fabric {
namespace host {

constexpr std::size_t frameHeaderSize = 36;
constexpr std::size_t maxFrameSize = 64 * 1024;
constexpr std::uint8_t frameVersion = 1;

constexpr bool isFrameLength(std::size_t length) noexcept
{
    return length >= frameHeaderSize && length <= maxFrameSize;
}

/// Whether a frame is one by its length and its version, whatever is in it.
bool isFrame(const FrameBytes& frame) noexcept;

/// Whether the message's identity is in the catalogue and its record is the one of that identity.
FABRIC_API bool belongsTo(const MessageCatalogue& catalogue, const SerializableMessageEvent& event,
                          std::string& reason);

/// Writes a message that belongs to its catalogue. A string without characters travels as an empty
/// one, whatever its length says. Returns 0, or -EMSGSIZE when the frame would be too long.
FABRIC_API int encodeFrame(const SerializableMessageEvent& event, FrameBytes& frame);

/// Builds the message that a frame holds, in host byte order; each of its strings has `chars`, with
/// a NUL behind them, an empty one too. Null for a frame that is not valid: `reason` then tells
/// what was wrong. Trusts nothing in the frame, and allocates no more than its size calls for.
FABRIC_API std::unique_ptr<SerializableMessageEvent>
decodeFrame(const FrameBytes& frame, const MessageCatalogue& catalogue, std::string& reason);

} // namespace host
} // namespace fabric

#endif
