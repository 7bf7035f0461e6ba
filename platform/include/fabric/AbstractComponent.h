#ifndef FABRIC_ABSTRACT_COMPONENT_H
#define FABRIC_ABSTRACT_COMPONENT_H

#include <cstdint>

#include <fabric/Arg1Method.h>
#include <fabric/Event.h>
#include <fabric/Export.h>
#include <fabric/MsgMeta.h>

namespace fabric {

/// Called with each received message of the identity for which it is registered.
using EventHandler = Arg1Method<int, const Event&>;

/// A component of an application: the sender of commands, which receives their replies.
class FABRIC_API AbstractComponent
{
public:
    explicit AbstractComponent(std::uint32_t id) : componentId(id) {}
    virtual ~AbstractComponent();

    AbstractComponent(const AbstractComponent&) = delete;
    AbstractComponent& operator=(const AbstractComponent&) = delete;

    /// Registers `handler` for replies of the identity `key`. It is called on the dispatch thread,
    /// with records in the byte order of this host. Key and handler are copied. `flags` is 0. Any
    /// thread may call this, also from inside a handler. Returns the id of the handler, which is
    /// unique in the application. Throws std::bad_alloc, std::length_error if the ids are used up,
    /// and std::invalid_argument for other flags; nothing is registered then.
    virtual int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) = 0;

    /// Removes a handler of this component or of its application; ignores an unknown id. On the
    /// dispatch thread it returns at once, and the handler is not called again. On any other thread
    /// it also waits until the handler is not running.
    virtual void removeEventHandler(int handlerId) = 0;

    const std::uint32_t componentId; ///< part of the EndpointId of each message sent
};

} // namespace fabric

#endif
