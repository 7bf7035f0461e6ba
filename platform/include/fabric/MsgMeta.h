#ifndef FABRIC_MSG_META_H
#define FABRIC_MSG_META_H

#include <cstdint>

namespace fabric {

/// The identity of a message: the key of a registration, and part of every event. The middleware
/// reads it by address, so its layout is fixed: 16 bytes, of which the last three are padding.
struct MsgMeta
{
    std::uint32_t serviceId;
    std::uint32_t resourceId;  ///< the subject of the message
    std::uint32_t operationId; ///< what is done with the subject
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

/// Identifies one message. The middleware fills it when a command is sent. A reply carries the ids
/// of its command; a notification has ids of its own. A reply can arrive before the call that sends
/// its command has returned.
///
/// The members are those of the host platform, where no message has the ids {0, 0}. The middleware
/// of a device may have others.
struct MsgIds
{
    std::uint32_t originId;  ///< the application that sent the command; 0 for a notification
    std::uint32_t messageId; ///< counts the messages of that origin, from 1
};

inline bool operator==(const MsgIds& left, const MsgIds& right)
{
    return left.originId == right.originId && left.messageId == right.messageId;
}

inline bool operator!=(const MsgIds& left, const MsgIds& right) { return !(left == right); }

} // namespace fabric

#endif
