#include <fabric/EventHandlerIdSet.h>

namespace fabric {

EventHandlerIdSet::EventHandlerIdSet(AbstractComponent& owner) : component(owner) {}

EventHandlerIdSet::~EventHandlerIdSet()
{
    reset();
}

void EventHandlerIdSet::addHandler(int handlerId)
{
    try {
        handlerIds.push_back(handlerId);
    } catch (...) {
        // A handler that the set does not know would outlive it.
        component.removeEventHandler(handlerId);
        throw;
    }
}

void EventHandlerIdSet::reset()
{
    // Emptied first: a handler that runs meanwhile may come back here.
    std::vector<int> dropped;
    dropped.swap(handlerIds);
    for (const int handlerId : dropped)
        component.removeEventHandler(handlerId);
}

} // namespace fabric
