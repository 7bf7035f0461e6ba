#ifndef FABRIC_HOST_MESSAGE_CATALOGUE_H
#define FABRIC_HOST_MESSAGE_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <memory>

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

struct RecordLayout;

/// All messages of one service: it tells the record type of a received frame, and a frame of any
/// other identity is malformed.
class FABRIC_API MessageCatalogue
{
public:
    /// A service's id, and its `number` messages, which outlive the catalogue. Throws
    /// std::bad_alloc.
    MessageCatalogue(std::uint32_t service, const MessageType* messages, std::size_t number);
    ~MessageCatalogue();

    MessageCatalogue(const MessageCatalogue&) = delete;
    MessageCatalogue& operator=(const MessageCatalogue&) = delete;

    /// Null for an identity that the service does not have.
    const MessageType* find(std::uint32_t resourceId, std::uint32_t operationId,
                            std::uint8_t kind) const noexcept;

    /// For conversion: the layout of the record of one of `types`.
    const RecordLayout& layoutOf(const MessageType& type) const noexcept;

    const std::uint32_t serviceId; ///< the service's id in every identity
    const MessageType* const types;
    const std::size_t count;

private:
    const std::unique_ptr<RecordLayout[]> layouts_; // of each type
};

} // namespace host
} // namespace fabric

#endif
