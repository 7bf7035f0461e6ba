#include <fabric-host/Service.h>

#include "Protocol.h"
#include "TimeService.h"

namespace fabric::host {

std::unique_ptr<Service> createService()
{
    return std::make_unique<chronal::sim::TimeService>();
}

const MessageCatalogue& serviceCatalogue()
{
    return chronal::sim::catalogue();
}

} // namespace fabric::host
