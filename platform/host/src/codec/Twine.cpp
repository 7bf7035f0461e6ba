#include <fabric/Twine.h>

#include <cstdlib>

#include "RecordLayout.h"

void fabricTwineDeserReleaseMessage(std::uint32_t, const fabric::MsgMeta*,
                                    const nubEndianTable_t* table, void* payload)
{
    using fabric::host::RecordMember;
    if (!table || !payload)
        return;
    fabric::host::forEachMember(*table, [payload](const RecordMember& member) {
        if (member.kind != RecordMember::string)
            return;
        auto* const string = reinterpret_cast<nubDeserString_t*>(
            static_cast<unsigned char*>(payload) + member.offset);
        std::free(string->chars);
        string->chars = nullptr;
    });
}
