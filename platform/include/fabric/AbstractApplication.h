#ifndef FABRIC_ABSTRACT_APPLICATION_H
#define FABRIC_ABSTRACT_APPLICATION_H

#include <fabric/AbstractComponent.h>
#include <fabric/Export.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>
#include <fabric/StatePart.h>

namespace fabric {

/// An application of the middleware: sends commands and receives notifications.
class FABRIC_API AbstractApplication
{
public:
    explicit AbstractApplication(StateHolder& holder) : stateHolder(holder) {}
    virtual ~AbstractApplication();

    AbstractApplication(const AbstractApplication&) = delete;
    AbstractApplication& operator=(const AbstractApplication&) = delete;

    /// Like AbstractComponent::addEventHandler(), but for notifications. Both number their handlers
    /// from one sequence, so one EventHandlerIdSet can hold all ids.
    virtual int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) = 0;

    /// Sends a message and fills `ids`, with zeros if it fails. Takes ownership of `event` and
    /// destroys it, also if it fails. `flags` is 0. Any thread may call it, also from inside a
    /// handler; it does not block. Returns 0 or a negative error number:
    /// - -ENOTCONN without a connection, or the error with which the connection has just broken:
    ///   -EPIPE, -ECONNRESET or -EBADMSG;
    /// - -EAGAIN if the queue is full;
    /// - -EMSGSIZE for a message over the size limit;
    /// - -EINVAL for a message that the service does not know, for one without a payload, and for
    ///   other flags;
    /// - -ENOMEM without memory.
    virtual int sendEvent(MsgIds& ids, int flags, SerializableMessageEvent* event) = 0;

    StateHolder& stateHolder; ///< not owned
};

} // namespace fabric

#endif
