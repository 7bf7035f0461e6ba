#ifndef CHRONALCTL_COMMAND_LINE_H
#define CHRONALCTL_COMMAND_LINE_H

#include <string>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Failure.h"

namespace chronal::ctl {

/// Reads the command line by the table of commands.
class CommandLine
{
public:
    CommandLine();

    /// Throws CLI::ParseError.
    void parse(int argc, const char* const* argv);

    /// Runs the command that has been parsed. Throws Failure.
    void run() const;

    /// The command's words, as far as parse() has come.
    std::string words() const;

    /// Whether JSON is wanted, also of a line that cannot be parsed.
    bool wantsJson() const { return given_.json; }

    /// What was wrong and what is expected, of an error that parse() has thrown.
    Failure badUsage(const CLI::ParseError& error) const;

    /// Prints what --help and its like ask for.
    int exit(const CLI::ParseError& error) const { return app_.exit(error); }

private:
    void add(const Command& command);
    CLI::Option* add(CLI::App& app, const Argument& argument);
    std::string mistake(const CLI::ParseError& error, const std::string& path) const;
    const CLI::App& parsed() const;

    CLI::App app_;
    Arguments given_;
    const Command* chosen_ = nullptr;
};

} // namespace chronal::ctl

#endif
