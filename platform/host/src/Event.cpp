#include <fabric/Event.h>

namespace fabric {

Event::Event(const MsgMeta& identity, const EndpointId& from) : meta(identity), sender(from), ids()
{
}

Event::~Event() = default;

} // namespace fabric
