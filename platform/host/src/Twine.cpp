#include <fabric/Twine.h>

#include <cstdlib>

namespace {

/// Frees the strings of one record; tells whether its type has any.
bool releaseStrings(const nubEndianTable_t& table, unsigned char* record) noexcept
{
    bool found = false;
    const nubEndianTable_t* withoutStrings = nullptr; // the last such; most are a row of times
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        if (entry->code >> 16 != nubEndianRecord || entry->argument.table == withoutStrings)
            continue;
        const nubEndianTable_t* const nested = entry->argument.table;
        unsigned char* const item = record + (entry->code & 0xffff);
        if (nested == &__nub_EndianTable_nubDeserString_t) {
            nubDeserString_t* const string = reinterpret_cast<nubDeserString_t*>(item);
            std::free(string->chars);
            string->chars = nullptr;
            found = true;
        } else if (releaseStrings(*nested, item)) {
            found = true;
        } else {
            withoutStrings = nested;
        }
    }
    return found;
}

} // namespace

void fabricTwineDeserReleaseMessage(std::uint32_t, const fabric::MsgMeta*,
                                    const nubEndianTable_t* table, void* payload)
{
    if (table && payload)
        releaseStrings(*table, static_cast<unsigned char*>(payload));
}
