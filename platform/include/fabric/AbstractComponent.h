#ifndef FABRIC_ABSTRACT_COMPONENT_H
#define FABRIC_ABSTRACT_COMPONENT_H

#include <cstdint>

#include <fabric/Arg1Method.h>
#include <fabric/Event.h>
#include <fabric/Export.h>
#include <fabric/MsgMeta.h>

namespace fabric {

/// Called with each received message of the identity that it is registered for.
using EventHandler = Arg1Method<int, const Event&>;

/// A component of an application: sender of its commands, receiver of their replies.
class FABRIC_API AbstractComponent
{
public:
    explicit AbstractComponent(std::uint32_t id) : componentId(id) {}
    virtual ~AbstractComponent();

    AbstractComponent(const AbstractComponent&) = delete;
    AbstractComponent& operator=(const AbstractComponent&) = delete;

    /// Has `handler` called on the dispatch thread with every reply of identity `key`, converted to
    /// this host's byte order. Copies key and handler. `flags` is 0. Returns the handler's id,
    /// unique in the application. Any thread, also from inside a handler. Throws std::bad_alloc,
    /// std::length_error when the ids are used up and std::invalid_argument for other flags;
    /// nothing is registered then.
    virtual int addEventHandler(const MsgMeta& key, int flags, const EventHandler& handler) = 0;

    /// Drops a registration of this component or of its application; an unknown id is ignored.
    /// When it has returned on another thread the handler is not running and will not run; on the
    /// dispatch thread it returns at once and the handler is not called again.
    virtual void removeEventHandler(int handlerId) = 0;

    const std::uint32_t componentId; ///< read directly by whoever builds an EndpointId
};

} // namespace fabric

#endif
