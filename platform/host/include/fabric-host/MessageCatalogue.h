#ifndef FABRIC_HOST_MESSAGE_CATALOGUE_H
#define FABRIC_HOST_MESSAGE_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include <fabric/Export.h>
#include <nub/Endian.h>

namespace fabric {
namespace host {

/// The values of MsgMeta::kind.
constexpr std::uint8_t kindCommand = 0;
constexpr std::uint8_t kindNotification = 1;
constexpr std::uint8_t kindReply = 2;

/// Describes one type of message between a service and its clients.
struct MessageType
{
    const char* name; ///< for debug lines and logs
    std::uint32_t resourceId;
    std::uint32_t operationId;
    std::uint8_t kind;
    const nubEndianTable_t* table; ///< describes its record
};

struct RecordLayout;

/// Lists all message types of one service and finds them by identity. A frame of any other identity
/// is malformed.
class FABRIC_API MessageCatalogue
{
public:
    /// `messages` has `number` elements and outlives the catalogue. Throws std::bad_alloc.
    MessageCatalogue(std::uint32_t service, const MessageType* messages, std::size_t number);
    ~MessageCatalogue();

    MessageCatalogue(const MessageCatalogue&) = delete;
    MessageCatalogue& operator=(const MessageCatalogue&) = delete;

    /// Returns null for an identity that is not in the catalogue.
    const MessageType* find(std::uint32_t resourceId, std::uint32_t operationId,
                            std::uint8_t kind) const noexcept;

    /// Returns the record layout of one of `types`, for conversion.
    const RecordLayout& layoutOf(const MessageType& type) const noexcept;

    const std::uint32_t serviceId; ///< MsgMeta::serviceId of every message
    const MessageType* const types;
    const std::size_t count;

private:
    const std::unique_ptr<RecordLayout[]> layouts_; // parallel to types
};

} // namespace host
} // namespace fabric

#endif
