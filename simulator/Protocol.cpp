#include "Protocol.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace chronal::sim {

const fabric::host::MessageCatalogue& catalogue()
{
#define CHRONAL_SIM_NAME(name, record, resource, operation, kind) name,
    static constexpr fabric::host::MessageType types[] = {CHRONAL_SIM_MESSAGES(CHRONAL_SIM_NAME)};
#undef CHRONAL_SIM_NAME
    static constexpr fabric::host::MessageCatalogue all = {29032007, types, std::size(types)};
    return all;
}

void fillText(nubDeserString_t& text, const std::string& characters)
{
    const std::size_t size = characters.size() + 1;
    text.chars = static_cast<char*>(std::malloc(size));
    if (!text.chars)
        throw std::bad_alloc();
    std::memcpy(text.chars, characters.c_str(), size);
    text.length = static_cast<std::uint32_t>(characters.size());
}

std::string readText(const nubDeserString_t& text)
{
    return text.chars ? std::string(text.chars, text.length) : std::string();
}

} // namespace chronal::sim
