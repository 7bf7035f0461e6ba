#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/ServiceInterface.h>

// The destructors anchor each interface's table in this library.

namespace fabric {

AbstractApplication::~AbstractApplication() = default;
AbstractComponent::~AbstractComponent() = default;
ServiceInterface::~ServiceInterface() = default;

namespace host {

Link::~Link() = default;

bool Link::reconnects() const noexcept { return false; }

Service::~Service() = default;

} // namespace host
} // namespace fabric
