#include <fabric/Twine.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "RecordLayout.h"

namespace {

/// Remembers tables of records without strings, since most messages have none: each has a place by
/// its address. A table that another one displaces is walked again, which costs only time.
std::atomic<const nubEndianTable_t*> withoutStrings[64];

std::atomic<const nubEndianTable_t*>& placeOf(const nubEndianTable_t& table) noexcept
{
    return withoutStrings[reinterpret_cast<std::uintptr_t>(&table) / sizeof(table) % 64];
}

} // namespace

void fabricTwineDeserReleaseMessage(std::uint32_t, const fabric::MsgMeta*,
                                    const nubEndianTable_t* table, void* payload)
{
    using fabric::host::RecordMember;
    if (!table || !payload || placeOf(*table).load(std::memory_order_relaxed) == table)
        return;
    bool strings = false;
    fabric::host::forEachMember(*table, [&](const RecordMember& member) {
        if (member.kind != RecordMember::string)
            return;
        strings = true;
        auto* const string = reinterpret_cast<nubDeserString_t*>(
            static_cast<unsigned char*>(payload) + member.offset);
        std::free(string->chars);
        string->chars = nullptr;
    });
    if (!strings)
        placeOf(*table).store(table, std::memory_order_relaxed);
}
