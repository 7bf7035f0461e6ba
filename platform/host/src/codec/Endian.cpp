#include <nub/Endian.h>

#include <cstddef>

namespace {

constexpr nubEndianEntry_t stringEntries[] = {
    {(nubEndianWord32 << 16) | offsetof(nubDeserString_t, length),
     nubEndianArgument_t(std::uintptr_t{0})},
    {0, nubEndianArgument_t(std::uintptr_t{0xffffffff})},
};

} // namespace

// The characters have no entry: the conversion recognises a string by this table's address.
const nubEndianTable_t __nub_EndianTable_nubDeserString_t = {sizeof(nubDeserString_t),
                                                             stringEntries};
