#ifndef CHRONAL_TOOLS_NUMBER_TEXT_H
#define CHRONAL_TOOLS_NUMBER_TEXT_H

#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

namespace chronal::tools {

/// A decimal number within these limits. Throws std::invalid_argument with a text that says what
/// was wrong and what would be right.
template <class Number, Number least = std::numeric_limits<Number>::min(),
          Number most = std::numeric_limits<Number>::max()>
Number parseWholeNumber(const std::string& text)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most)
        throw std::invalid_argument("'" + text + "' is no whole number from " +
                                    std::to_string(least) + " to " + std::to_string(most));
    return number;
}

} // namespace chronal::tools

#endif
