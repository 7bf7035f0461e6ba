#ifndef CHRONALCTL_COMMANDS_H
#define CHRONALCTL_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include "Advice.h"
#include "Arguments.h"

namespace chronal::ctl {

/// A positional argument, which is required unless its name ends in "..."; or an option.
struct Argument
{
    const char* name; ///< "TIME", "SOURCE..." or "--timeout"
    const char* type; ///< of its value, for the help; null for a flag
    std::string help;
    /// Throws std::invalid_argument with a text that says what was wrong and what is expected.
    void (*read)(const std::string& text, Arguments& given);
    std::vector<Advice> advice = {};
};

struct Command
{
    const char* name; ///< all its words
    const char* help;
    std::vector<Argument> arguments = {};
    std::function<void(const Arguments& given)> run = nullptr; ///< empty: a group of commands
    std::vector<Advice> advice = {}; ///< besides that of the arguments, which comes first
    std::size_t optionsRequired = 0; ///< at least
};

/// All commands, each group before its members, in the order of the help.
extern const std::vector<Command> commands;

/// Stores what `parse` makes of a text.
template <auto member, auto parse>
void read(const std::string& text, Arguments& given)
{
    given.*member = parse(text);
}

} // namespace chronal::ctl

#endif
