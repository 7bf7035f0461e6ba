#ifndef FABRIC_HOST_RECORD_LAYOUT_H
#define FABRIC_HOST_RECORD_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <nub/Endian.h>

namespace fabric::host {

/// A scalar or a string of a record, or of one nested in it.
struct RecordMember
{
    enum Kind : std::uint32_t
    {
        word32,
        word64,
        string
    };

    Kind kind;
    std::uint32_t offset; ///< inside the outermost record
};

/// Calls `visit` with each member of a record, in the order in which they travel.
template <typename Visit>
void forEachMember(const nubEndianTable_t& table, const Visit& visit, std::uint32_t base = 0)
{
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        const std::uint32_t offset = base + (entry->code & 0xffff);
        switch (entry->code >> 16) {
        case nubEndianWord32:
            visit(RecordMember{RecordMember::word32, offset});
            break;
        case nubEndianWord64:
            visit(RecordMember{RecordMember::word64, offset});
            break;
        case nubEndianRecord:
            if (entry->argument.table == &__nub_EndianTable_nubDeserString_t)
                visit(RecordMember{RecordMember::string, offset});
            else
                forEachMember(*entry->argument.table, visit, offset);
            break;
        }
    }
}

/// The members of a record, found by one walk for all messages that have it.
struct RecordLayout
{
    std::vector<RecordMember> members;
    std::vector<std::uint32_t> strings; ///< offsets of the members that are strings
    std::size_t frameSize = 0;          ///< size of the record in a frame, without characters
};

} // namespace fabric::host

#endif
