#ifndef FABRIC_EVENT_H
#define FABRIC_EVENT_H

#include <fabric/Export.h>
#include <fabric/MsgMeta.h>

namespace fabric {

/// The part that all messages have: identity, sender and ids.
class FABRIC_API Event
{
public:
    /// Copies the arguments. The ids are zero until the middleware sets them.
    Event(const MsgMeta& identity, const EndpointId& endpoint)
        : meta(identity), sender(endpoint), ids()
    {
    }
    virtual ~Event() = default;

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    MsgMeta meta;
    EndpointId sender;
    MsgIds ids;
};

} // namespace fabric

#endif
