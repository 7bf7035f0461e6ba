#include <fabric-host/MessageCatalogue.h>

#include <algorithm>

#include "RecordLayout.h"

namespace fabric::host {
namespace {

RecordLayout layoutOfRecord(const nubEndianTable_t& table)
{
    RecordLayout layout;
    forEachMember(table, [&](const RecordMember& member) {
        layout.members.push_back(member);
        if (member.kind == RecordMember::string)
            layout.strings.push_back(member.offset);
        // A string's fixed part is its 32-bit length.
        layout.frameSize +=
            member.kind == RecordMember::word64 ? sizeof(std::uint64_t) : sizeof(std::uint32_t);
    });
    return layout;
}

} // namespace

MessageCatalogue::MessageCatalogue(std::uint32_t service, const MessageType* messages,
                                   std::size_t number)
    : serviceId(service), types(messages), count(number), layouts_(new RecordLayout[number])
{
    std::transform(types, types + count, layouts_.get(),
                   [](const MessageType& type) { return layoutOfRecord(*type.table); });
}

MessageCatalogue::~MessageCatalogue() = default;

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

const RecordLayout& MessageCatalogue::layoutOf(const MessageType& type) const noexcept
{
    return layouts_[static_cast<std::size_t>(&type - types)];
}

} // namespace fabric::host
