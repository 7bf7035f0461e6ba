#ifndef CHRONAL_TOOLS_PARSED_OPTION_H
#define CHRONAL_TOOLS_PARSED_OPTION_H

#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

namespace chronal::tools {

inline std::string join(const std::vector<std::string>& words, const char* separator)
{
    std::string joined;
    for (const std::string& word : words)
        joined += (joined.empty() ? "" : separator) + word;
    return joined;
}

/// A decimal number within these limits. Throws std::invalid_argument with a text that says what
/// was wrong and what is expected.
template <class Number, Number least = std::numeric_limits<Number>::min(),
          Number most = std::numeric_limits<Number>::max()>
Number parseWholeNumber(const std::string& text)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most)
        throw std::invalid_argument("'" + text + "' is not a whole number from " +
                                    std::to_string(least) + " to " + std::to_string(most));
    return number;
}

/// An option or argument whose value is passed to `read`, which throws std::invalid_argument with a
/// text that says what was wrong and what is expected.
template <class Read>
CLI::Option* addParsed(CLI::App& app, const std::string& name, const std::string& type,
                       const std::string& help, Read read)
{
    const auto readAll = [name, read](const CLI::results_t& texts) {
        try {
            for (const std::string& text : texts)
                read(text);
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError(name, error.what());
        }
        return true;
    };
    return app.add_option(name, readAll, help)->type_name(type);
}

} // namespace chronal::tools

#endif
