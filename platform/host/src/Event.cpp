#include <fabric/Event.h>

namespace fabric {

Event::~Event() = default;

} // namespace fabric
