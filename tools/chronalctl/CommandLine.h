#ifndef CHRONALCTL_COMMAND_LINE_H
#define CHRONALCTL_COMMAND_LINE_H

#include <string>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Failure.h"

namespace chronal::ctl {

/// Parses the command line according to the table of commands.
class CommandLine
{
public:
    CommandLine();

    /// Returns false if the line asks for --help or --version, which is printed. Throws
    /// CLI::ParseError and Failure.
    bool parse(int argc, const char* const* argv);

    /// Runs the command that has been parsed. Throws Failure.
    void run() const;

    /// The command's words, as far as parse() has come.
    std::string words() const;

    /// Whether the line asks for JSON, also if it cannot be parsed.
    bool wantsJson() const { return given_.json; }

    /// Describes an error thrown by parse(): what was wrong and what is expected.
    Failure badUsage(const CLI::ParseError& error) const;

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
