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

/// The length that a frame of at least four bytes gives.
inline std::size_t lengthOfFrame(const std::uint8_t* start) noexcept
{
    return boost::endian::load_big_u32(start);
}

/// Writes a message of the catalogue as a frame. A string without characters travels as an empty
/// one, whatever its length says. Returns 0, or a negative error number: -EINVAL for an identity
/// that the catalogue does not have or another record than that identity's, -EMSGSIZE for a message
/// that is longer than a frame; `reason` then says what was wrong.
FABRIC_API int encodeFrame(const SerializableMessageEvent& event, const MessageCatalogue& catalogue,
                           FrameBytes& frame, std::string& reason);

/// Builds the message that a frame holds, in host byte order; each of its strings has `chars`, with
/// a NUL behind them, an empty one too. Null for a frame that is not valid: `reason` then says what
/// was wrong. Trusts nothing in the frame, and allocates no more than its size calls for.
FABRIC_API std::unique_ptr<SerializableMessageEvent>
decodeFrame(FrameView frame, const MessageCatalogue& catalogue, std::string& reason);

} // namespace host
} // namespace fabric

#endif
