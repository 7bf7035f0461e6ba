#ifndef FABRIC_MSG_META_H
#define FABRIC_MSG_META_H

#include <cstdint>

namespace fabric {

/// The identity of a message: registration key and part of every event. The middleware reads it
/// by address, so its layout is fixed: 16 bytes, the last three of them padding.
struct MsgMeta
{
    std::uint32_t serviceId;
    std::uint32_t resourceId;  ///< what the message is about
    std::uint32_t operationId; ///< what is done with it
    std::uint8_t kind;         ///< 0 command, 1 notification, 2 reply
};

static_assert(sizeof(MsgMeta) == 16 && alignof(MsgMeta) == 4, "read by address by the middleware");

/// The sender of an event.
struct EndpointId
{
    std::int32_t node; ///< -1: this node
    std::uint32_t componentId;
};

static_assert(sizeof(EndpointId) == 8, "part of every event");

/// Tells messages apart. The middleware fills it when a command is sent; a reply carries the ids
/// of the command that it answers, a notification has ids of its own. The reply may arrive before
/// the call that sends the command has returned.
///
/// The members are those of the host platform, where {0, 0} is no message's: a device's middleware
/// may have others.
struct MsgIds
{
    std::uint32_t originId;  ///< the application that sent the command; 0 for the service itself
    std::uint32_t messageId; ///< running number of that origin's messages, from 1
};

inline bool operator==(const MsgIds& left, const MsgIds& right)
{
    return left.originId == right.originId && left.messageId == right.messageId;
}

inline bool operator!=(const MsgIds& left, const MsgIds& right)
{
    return !(left == right);
}

} // namespace fabric

#endif
