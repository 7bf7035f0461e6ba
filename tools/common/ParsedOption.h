#ifndef CHRONAL_TOOLS_PARSED_OPTION_H
#define CHRONAL_TOOLS_PARSED_OPTION_H

#include <stdexcept>
#include <string>
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

/// An option or argument with one value, which `read` is called with. It throws
/// std::invalid_argument with a text that says what was wrong and what is expected.
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
