#include <fabric/StatePart.h>

#include <system_error>

namespace fabric {

StateHolder::StateHolder()
{
    if (const int error = pthread_mutex_init(&mutex, nullptr))
        throw std::system_error(error, std::generic_category(),
                                "cannot create the state holder's mutex");
}

StateHolder::~StateHolder() { pthread_mutex_destroy(&mutex); }

StatePart::StatePart(StateHolder& holder) : stateHolder_(holder) {}

StatePart::~StatePart() = default;

} // namespace fabric
