#ifndef NUB_ENDIAN_H
#define NUB_ENDIAN_H

#include <cstdint>

#include <fabric/Export.h>

/// Byte-order tables: how the middleware finds the scalars and strings of a payload record.
///
/// A table names every member of its record once, padding never. It is constant data that stands
/// for the life of the process: messages under way refer to it, and the middleware remembers by its
/// address what it has read. The layout of the types below is read by the middleware's conversion
/// code.

struct nubEndianTable_t;

/// What an entry refers to: the table of a nested record, or a plain word.
union nubEndianArgument_t
{
    constexpr nubEndianArgument_t(const nubEndianTable_t* nested) : table(nested) {}
    constexpr explicit nubEndianArgument_t(std::uintptr_t plain) : word(plain) {}

    const nubEndianTable_t* table; ///< kind 3: the table of the record nested at this offset
    std::uintptr_t word;           ///< kinds 4 and 8: 0; terminator: 0xffffffff
};

struct nubEndianEntry_t
{
    std::uint32_t code;           ///< (kind << 16) | offset inside the record; 0 ends the entries
    nubEndianArgument_t argument; ///< see nubEndianArgument_t
};

struct nubEndianTable_t
{
    std::uint32_t size;              ///< size of the record in bytes
    const nubEndianEntry_t* entries; ///< ends with the entry {0, 0xffffffff}
};

/// The kinds of an entry, the upper half of its code.
enum nubEndianKind_enum : std::uint32_t
{
    nubEndianRecord = 3, ///< a nested record, described by a table of its own
    nubEndianWord32 = 4, ///< a 32-bit scalar
    nubEndianWord64 = 8  ///< a 64-bit scalar
};

/// A string inside a payload record. `chars` comes from malloc() and belongs to the message:
/// fabricTwineDeserReleaseMessage() frees it.
struct nubDeserString_t
{
    std::uint32_t length; ///< number of characters, the terminating NUL not counted
    char* chars;          ///< `length` characters and one NUL; null for a string never set
};

/// The table by which the middleware recognises a string; defined by the platform.
extern "C" FABRIC_API const nubEndianTable_t __nub_EndianTable_nubDeserString_t;

#endif
