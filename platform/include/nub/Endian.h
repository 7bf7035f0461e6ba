#ifndef NUB_ENDIAN_H
#define NUB_ENDIAN_H

#include <cstdint>

#include <fabric/Export.h>

/// Byte-order tables, by which the middleware finds the scalars and strings of a payload record.
///
/// A table has one entry for each member of its record and none for padding. It must exist as long
/// as the process, unchanged: messages in flight refer to it, and the middleware caches what it
/// reads under the address of the table. The conversion code of the middleware depends on the
/// layout of the types below.

struct nubEndianTable_t;

/// The argument of an entry: the table of a nested record, or a word.
union nubEndianArgument_t
{
    constexpr nubEndianArgument_t(const nubEndianTable_t* nested) : table(nested) {}
    constexpr explicit nubEndianArgument_t(std::uintptr_t value) : word(value) {}

    const nubEndianTable_t* table; ///< of kind 3: the table of the record at this offset
    std::uintptr_t word;           ///< of kinds 4 and 8: 0; of the last entry: 0xffffffff
};

struct nubEndianEntry_t
{
    std::uint32_t code; ///< (kind << 16) | offset inside the record; 0 ends the entries
    nubEndianArgument_t argument;
};

struct nubEndianTable_t
{
    std::uint32_t size;              ///< size of the record in bytes
    const nubEndianEntry_t* entries; ///< ends with the entry {0, 0xffffffff}
};

/// The kind of an entry is the upper half of its code.
enum nubEndianKind_enum : std::uint32_t
{
    nubEndianRecord = 3, ///< a nested record, which has a table of its own
    nubEndianWord32 = 4, ///< a 32-bit scalar
    nubEndianWord64 = 8  ///< a 64-bit scalar
};

/// A string in a payload record. The message owns `chars`, which is allocated with malloc() and
/// freed by fabricTwineDeserReleaseMessage().
struct nubDeserString_t
{
    std::uint32_t length; ///< number of characters without the terminating NUL
    char* chars;          ///< `length` characters and a NUL; null if the string was never set
};

/// The platform's table of nubDeserString_t. The middleware recognises a string by its address.
extern "C" FABRIC_API const nubEndianTable_t __nub_EndianTable_nubDeserString_t;

#endif
