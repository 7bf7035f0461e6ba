#include <fabric-host/MessageCatalogue.h>

#include <algorithm>

namespace fabric {
namespace host {

const MessageType* MessageCatalogue::find(std::uint32_t resourceId, std::uint32_t operationId,
                                          std::uint8_t kind) const noexcept
{
    const MessageType* const end = types + count;
    const MessageType* const found = std::find_if(types, end, [&](const MessageType& type) {
        return type.resourceId == resourceId && type.operationId == operationId &&
               type.kind == kind;
    });
    return found == end ? nullptr : found;
}

} // namespace host
} // namespace fabric
