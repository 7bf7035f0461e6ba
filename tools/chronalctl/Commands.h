#ifndef CHRONALCTL_COMMANDS_H
#define CHRONALCTL_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include "Arguments.h"

namespace chronal::ctl {

/// The probable cause of a refusal. The service gives only an error number; the causes are those of
/// the simulated service, a device's service may have others.
struct Advice
{
    int error;        ///< as in <cerrno>
    std::string text; ///< "{TIME}" in it stands for the argument TIME as typed
    bool (*applies)(const Arguments& given) = nullptr; ///< null: to any arguments
};

/// A positional argument, which is required unless its name ends in "..." or "?"; or an option.
struct Argument
{
    const char* name; ///< "TIME", "SOURCE...", "PATTERN?" or "--timeout"
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
