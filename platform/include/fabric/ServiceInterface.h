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

    /// The service's id at this moment; it may change when the service restarts. Any thread.
    virtual std::uint32_t getServiceId() = 0;
};

} // namespace fabric

#endif
