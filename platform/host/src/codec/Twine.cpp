#include <fabric/Twine.h>

#include <cstdlib>
#include <new>

#include "RecordShape.h"

using namespace fabric::host;

namespace {

void releaseString(void* payload, std::uint32_t offset) noexcept
{
    nubDeserString_t* const string =
        reinterpret_cast<nubDeserString_t*>(static_cast<unsigned char*>(payload) + offset);
    std::free(string->chars);
    string->chars = nullptr;
}

/// For when there is no room for the record's shape.
void releaseByWalk(const nubEndianTable_t& table, void* payload) noexcept
{
    forEachMember(table, [payload](const RecordMember& member) {
        if (member.kind == RecordMember::string)
            releaseString(payload, member.offset);
    });
}

} // namespace

void fabricTwineDeserReleaseMessage(std::uint32_t, const fabric::MsgMeta*,
                                    const nubEndianTable_t* table, void* payload)
{
    if (!table || !payload)
        return;
    try {
        for (const std::uint32_t offset : RecordShape::of(*table).strings)
            releaseString(payload, offset);
    } catch (const std::bad_alloc&) {
        releaseByWalk(*table, payload);
    }
}
