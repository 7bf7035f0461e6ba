#ifndef FABRIC_ABSTRACT_APPLICATION_H
#define FABRIC_ABSTRACT_APPLICATION_H

#include <fabric/AbstractComponent.h>
#include <fabric/Export.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>
#include <fabric/StatePart.h>

namespace fabric {

/// An application on the middleware: sends commands, receives notifications.
class FABRIC_API AbstractApplication
{
public:
    explicit AbstractApplication(StateHolder& holder) : stateHolder(holder) {}
    virtual ~AbstractApplication();

    AbstractApplication(const AbstractApplication&) = delete;
    AbstractApplication& operator=(const AbstractApplication&) = delete;

    /// As AbstractComponent::addEventHandler(), for notifications. Ids of both kinds come from one
    /// sequence, so one EventHandlerIdSet can hold them.
    virtual int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) = 0;

    /// Sends the message and fills `ids`, with zeros if it fails. Owns `event` from the call on and
    /// destroys it, whatever the outcome. `flags` is 0. Never blocks; any thread, also from inside
    /// a handler. Returns 0, or a negative error number: -ENOTCONN without a connection, the one
    /// that a connection has just broken with (-EPIPE, -ECONNRESET, -EBADMSG), -EAGAIN when the
    /// queue is full, -EMSGSIZE for a message over the limit, -EINVAL for one that the service does
    /// not know or that has no payload and for other flags, -ENOMEM without memory.
    virtual int sendEvent(MsgIds& ids, int flags, SerializableMessageEvent* event) = 0;

    StateHolder& stateHolder; ///< not owned
};

} // namespace fabric

#endif
