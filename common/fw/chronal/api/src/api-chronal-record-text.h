#ifndef API_CHRONAL_RECORD_TEXT_H
#define API_CHRONAL_RECORD_TEXT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>

#include <nub/Endian.h>

namespace chronal::detail {

/// Sets a field to a copy of `text`, which the record owns. Throws std::bad_alloc, also for a text
/// of 4 GiB or more, and leaves the field as it was. Does not free the old characters.
inline void copyText(nubDeserString_t& field, const std::string& text)
{
    if (text.size() > std::numeric_limits<std::uint32_t>::max())
        throw std::bad_alloc();
    char* const chars = static_cast<char*>(std::malloc(text.size() + 1));
    if (!chars)
        throw std::bad_alloc();
    std::memcpy(chars, text.c_str(), text.size() + 1);
    field.length = static_cast<std::uint32_t>(text.size());
    field.chars = chars;
}

/// Returns a copy of `length` characters, which may include NULs, or an empty string if `chars` is
/// null.
inline std::string readText(const nubDeserString_t& field)
{
    if (!field.chars)
        return std::string();
    return std::string(field.chars, field.length);
}

} // namespace chronal::detail

#endif
