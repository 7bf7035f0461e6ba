#include "Protocol.h"

#include <iterator>

namespace chronal::sim {

namespace {

constexpr char utcTimeAt[] = "cmdUTCTimeAt";
constexpr char localtimeAt[] = "cmdLocaltimeAt";

bool isTimeAt(const fabric::host::MessageType& type)
{
    return type.name == cmdTimeAt.name; // the catalogue's copy shares the pointer
}

} // namespace

const fabric::host::MessageCatalogue& catalogue()
{
#define CHRONAL_SIM_NAME(name, record, resource, operation, kind) name,
    static constexpr fabric::host::MessageType types[] = {CHRONAL_SIM_MESSAGES(CHRONAL_SIM_NAME)};
#undef CHRONAL_SIM_NAME
    static const fabric::host::MessageCatalogue all(29032007, types, std::size(types));
    return all;
}

const char* nameOf(const fabric::SerializableMessageEvent& message)
{
    const fabric::MsgMeta& meta = message.meta;
    const fabric::host::MessageType* const type =
        catalogue().find(meta.resourceId, meta.operationId, meta.kind);
    if (!type || !isTimeAt(*type))
        return type ? type->name : nullptr;
    const auto& record = *static_cast<const chronalMsgCmdTimeAtData_t*>(message.data->payload);
    return record.isUtc ? utcTimeAt : localtimeAt;
}

std::vector<std::string> commandNames()
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < catalogue().count; ++i) {
        const fabric::host::MessageType& type = catalogue().types[i];
        if (isTimeAt(type))
            names.insert(names.end(), {utcTimeAt, localtimeAt});
        else if (type.kind == detail::kindCommand)
            names.emplace_back(type.name);
    }
    return names;
}

} // namespace chronal::sim
