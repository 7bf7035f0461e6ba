#ifndef CHRONAL_TOOLS_PARSED_OPTION_H
#define CHRONAL_TOOLS_PARSED_OPTION_H

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace chronal::tools {

/// Calls `read`; what it says of a text becomes an error of the option or argument `name`.
template <class Read>
void readArgument(const std::string& name, Read read)
{
    try {
        read();
    } catch (const std::invalid_argument& error) {
        throw CLI::ValidationError(name, error.what());
    }
}

/// An option or argument whose text `parse` reads; that throws std::invalid_argument with what was
/// wrong and what would be right.
template <class Result, class Value>
CLI::Option* addParsed(CLI::App& app, const std::string& name, Value& value,
                       Result (*parse)(const std::string&), const std::string& type,
                       const std::string& description)
{
    const auto read = [&value, parse, name](const std::string& text) {
        readArgument(name, [&] { value = parse(text); });
    };
    return app.add_option_function<std::string>(name, read, description)->type_name(type);
}

} // namespace chronal::tools

#endif
