#ifndef FABRIC_EVENT_HANDLER_ID_SET_H
#define FABRIC_EVENT_HANDLER_ID_SET_H

#include <vector>

#include <fabric/AbstractComponent.h>
#include <fabric/Export.h>

namespace fabric {

/// The ids of registered handlers, which it removes together. Not thread-safe: a handler, too, may
/// not use the set while another thread resets it.
class FABRIC_API EventHandlerIdSet
{
public:
    /// `component` outlives the set.
    explicit EventHandlerIdSet(AbstractComponent& component);
    /// Removes all handlers, as reset() does.
    ~EventHandlerIdSet();

    EventHandlerIdSet(const EventHandlerIdSet&) = delete;
    EventHandlerIdSet& operator=(const EventHandlerIdSet&) = delete;

    /// Adds a handler of the component or of its application. If it throws std::bad_alloc, it has
    /// removed the handler.
    void addHandler(int handlerId);

    /// Removes all handlers and empties the set. After it has returned, none of them is running or
    /// will run. From inside one of them it returns at once, and no further message is delivered.
    void reset();

private:
    AbstractComponent& component_;
    std::vector<int> handlerIds_;
};

} // namespace fabric

#endif
