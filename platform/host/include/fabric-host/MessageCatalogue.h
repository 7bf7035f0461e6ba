#ifndef FABRIC_HOST_MESSAGE_CATALOGUE_H
#define FABRIC_HOST_MESSAGE_CATALOGUE_H

#include <cstddef>
#include <cstdint>

#include <fabric/Export.h>
#include <nub/Endian.h>

namespace fabric {
namespace host {

/// The kinds of a message, as they stand in an identity.
constexpr std::uint8_t kindCommand = 0;
constexpr std::uint8_t kindNotification = 1;
constexpr std::uint8_t kindReply = 2;

/// One message that a service and its applications exchange.
struct MessageType
{
    const char* name; ///< for debug lines and logs
    std::uint32_t resourceId;
    std::uint32_t operationId;
    std::uint8_t kind;
    const nubEndianTable_t* table; ///< the table of its record
};

/// All messages of one service: what tells a received frame's record type, and what makes any
/// other frame a malformed one. A view of constant data.
struct MessageCatalogue
{
    std::uint32_t serviceId; ///< the service's id in every identity
    const MessageType* types;
    std::size_t count;

    /// Null for an identity that the service does not have.
    FABRIC_API const MessageType* find(std::uint32_t resourceId, std::uint32_t operationId,
                                       std::uint8_t kind) const noexcept;
};

} // namespace host
} // namespace fabric

#endif
