#ifndef FABRIC_HOST_RECORD_SHAPE_H
#define FABRIC_HOST_RECORD_SHAPE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <nub/Endian.h>

namespace fabric {
namespace host {

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

/// The members of a record, found by one walk for all messages that have it: converting a message
/// is then a single row of members, and releasing one without strings is nothing at all.
struct RecordShape
{
    explicit RecordShape(const nubEndianTable_t& table);

    /// The shape of a table, found when it is first asked for and kept from then on, as the table
    /// is. Any thread; may throw std::bad_alloc.
    static const RecordShape& of(const nubEndianTable_t& table);

    std::vector<RecordMember> members;
    std::vector<std::uint32_t> strings; ///< the offsets of the members that are strings
    std::size_t frameSize;              ///< what a record takes in a frame, its characters apart
};

} // namespace host
} // namespace fabric

#endif
