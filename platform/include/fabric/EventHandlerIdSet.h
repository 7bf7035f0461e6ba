#ifndef FABRIC_EVENT_HANDLER_ID_SET_H
#define FABRIC_EVENT_HANDLER_ID_SET_H

#include <vector>

#include <fabric/AbstractComponent.h>
#include <fabric/Export.h>

namespace fabric {

/// Ids of registered handlers, unregistered together. Not for use by two threads at a time; that
/// goes for a handler, too, that is running while another thread resets the set.
class FABRIC_API EventHandlerIdSet
{
public:
    /// `component` outlives the set.
    explicit EventHandlerIdSet(AbstractComponent& component);
    /// Leaves no registration behind.
    ~EventHandlerIdSet();

    EventHandlerIdSet(const EventHandlerIdSet&) = delete;
    EventHandlerIdSet& operator=(const EventHandlerIdSet&) = delete;

    /// Records a handler of the component or of its application.
    void addHandler(int handlerId);

    /// Unregisters every recorded handler and empties the set. When it has returned, none of them
    /// is running or will run; called inside one of them it returns at once and nothing further is
    /// delivered.
    void reset();

private:
    AbstractComponent& component_;
    std::vector<int> handlerIds_;
};

} // namespace fabric

#endif
