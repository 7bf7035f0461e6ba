#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/ServiceInterface.h>

// Out-of-line destructors place each interface's virtual table in this library.

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
