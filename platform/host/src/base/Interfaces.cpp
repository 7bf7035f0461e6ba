#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/AbstractApplication.h>
#include <fabric/EventHandlerIdSet.h>
#include <fabric/ServiceInterface.h>
#include <fabric/StatePart.h>

#include <system_error>

// Out-of-line destructors place each interface's virtual table in this library.

namespace fabric {

AbstractApplication::~AbstractApplication() = default;
AbstractComponent::~AbstractComponent() = default;
ServiceInterface::~ServiceInterface() = default;

StateHolder::StateHolder()
{
    if (const int error = pthread_mutex_init(&mutex, nullptr))
        throw std::system_error(error, std::generic_category(),
                                "cannot create the state holder's mutex");
}

StateHolder::~StateHolder() { pthread_mutex_destroy(&mutex); }

StatePart::StatePart(StateHolder& holder) : stateHolder_(holder) {}

StatePart::~StatePart() = default;

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

namespace host {

Link::~Link() = default;

bool Link::reconnects() const noexcept { return false; }

Service::~Service() = default;

} // namespace host
} // namespace fabric
