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
    for (const int handlerId : handlerIds)
        component.removeEventHandler(handlerId);
    handlerIds.clear();
}

} // namespace fabric
