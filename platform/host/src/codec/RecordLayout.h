#ifndef FABRIC_HOST_RECORD_LAYOUT_H
#define FABRIC_HOST_RECORD_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <nub/Endian.h>

namespace fabric::host {

/// Locates a scalar or a string in a record or in a record nested in it.
struct RecordMember
{
    enum Kind : std::uint32_t
    {
        word32,
        word64,
        string
    };

    Kind kind;
    std::uint32_t offset; ///< from the start of the outermost record
};

/// Calls `visit` with each member of a record, in wire order.
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

/// Keeps the members of a record, so that its table is not walked again for every message.
struct RecordLayout
{
    std::vector<RecordMember> members;
    std::vector<std::uint32_t> strings; ///< offsets of the members that are strings
    std::size_t frameSize = 0;          ///< size of the body without the strings' characters
};

} // namespace fabric::host

#endif
