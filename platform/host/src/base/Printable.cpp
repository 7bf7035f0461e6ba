#include <fabric-host/Printable.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace fabric::host {
namespace {

struct Character
{
    std::uint32_t code; ///< the byte itself if it does not start a UTF-8 character
    std::size_t length; ///< in bytes; 0 for such a byte
};

Character characterAt(const std::string& text, std::size_t position)
{
    const auto byte = [&](std::size_t index) {
        return static_cast<unsigned char>(text[position + index]); // may be the NUL after the end
    };
    const std::uint32_t first = byte(0);
    if (first < 0x80)
        return {first, 1};
    if (first < 0xc2 || first > 0xf4)
        return {first, 0};
    const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    std::uint32_t code = first & (0x7fu >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xc0) != 0x80)
            return {first, 0};
        code = code << 6 | (byte(index) & 0x3f);
    }
    const bool overlong = code < (length == 3 ? 0x800u : length == 4 ? 0x10000u : 0u);
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    return overlong || surrogate || code > 0x10ffff ? Character{first, 0} : Character{code, length};
}

bool isVisible(std::uint32_t code)
{
    static constexpr struct
    {
        std::uint32_t first, last;
    } hidden[] = {
        {0x0000, 0x001f},   {0x007f, 0x009f}, // control characters
        {0x00ad, 0x00ad},                     // soft hyphen
        {0x0600, 0x0605},                     // signs that span the digits after them
        {0x061c, 0x061c},                     // Arabic letter mark
        {0x115f, 0x1160},                     // fillers
        {0x180b, 0x180f},                     // Mongolian separators
        {0x200b, 0x200f},                     // zero width, and direction marks
        {0x2028, 0x202e},                     // line and paragraph separators, embeddings
        {0x2060, 0x206f},                     // invisible operators, isolates
        {0x2800, 0x2800},                     // blank Braille pattern
        {0x3164, 0x3164},                     // filler
        {0xfe00, 0xfe0f},                     // variation selectors
        {0xfeff, 0xfeff},                     // byte order mark, zero width
        {0xfff0, 0xfffb},                     // annotations
        {0x1d173, 0x1d17a},                   // musical controls
        {0xe0000, 0xe0fff},                   // tags, further selectors
    };
    return std::none_of(std::begin(hidden), std::end(hidden), [code](const auto& range) {
        return code >= range.first && code <= range.last;
    });
}

} // namespace

std::string printable(const std::string& text, const std::string& special)
{
    std::string shown;
    for (std::size_t position = 0; position < text.size();) {
        const Character character = characterAt(text, position);
        const std::size_t length = std::max<std::size_t>(character.length, 1);
        const bool asItIs = character.length != 0 && isVisible(character.code) &&
                            special.find(text[position]) == std::string::npos;
        if (asItIs) {
            shown.append(text, position, length);
        } else {
            const char* const form = length == 1               ? "\\x%02x"
                                     : character.code > 0xffff ? "\\U%08x"
                                                               : "\\u%04x";
            char escape[11];
            std::snprintf(escape, sizeof(escape), form, unsigned{character.code});
            shown += escape;
        }
        position += length;
    }
    return shown;
}

} // namespace fabric::host
