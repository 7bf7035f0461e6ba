#include <fabric/EventHandlerIdSet.h>

namespace fabric {

EventHandlerIdSet::EventHandlerIdSet(AbstractComponent& component) : component_(component) {}

EventHandlerIdSet::~EventHandlerIdSet() { reset(); }

void EventHandlerIdSet::addHandler(int handlerId)
{
    try {
        handlerIds_.push_back(handlerId);
    } catch (...) {
        // A handler that is not in the set would never be removed.
        component_.removeEventHandler(handlerId);
        throw;
    }
}

void EventHandlerIdSet::reset()
{
    for (const int handlerId : handlerIds_)
        component_.removeEventHandler(handlerId);
    handlerIds_.clear();
}

} // namespace fabric
