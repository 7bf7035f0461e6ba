#ifndef FABRIC_SERVICE_INTERFACE_H
#define FABRIC_SERVICE_INTERFACE_H

#include <cstdint>

#include <fabric/Export.h>

namespace fabric {

/// The middleware's view of one service.
class FABRIC_API ServiceInterface
{
public:
    virtual ~ServiceInterface();

    /// Returns the current id of the service, which may change when the service restarts. Any
    /// thread may call it.
    virtual std::uint32_t getServiceId() = 0;
};

} // namespace fabric

#endif
