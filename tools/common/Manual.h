#ifndef CHRONAL_TOOLS_MANUAL_H
#define CHRONAL_TOOLS_MANUAL_H

#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

/// The manual page and the bash completion of a program, made from its command line's definition,
/// so that none of the three can disagree with the others.
namespace chronal::tools {

struct ManualSection
{
    std::string title;
    std::vector<std::string> paragraphs; ///< one that begins with spaces keeps its lines
};

/// What a manual page says that a command line's definition does not.
struct ManPageText
{
    std::string purpose; ///< half a sentence, for lists of manual pages
    std::vector<ManualSection> sections;
};

/// To standard output, for man(1).
void printManPage(const CLI::App& app, const ManPageText& text);

/// What may be said for a type of value, by the type's name, with blanks in between.
using Words = std::map<std::string, std::string>;

/// To standard output, for bash to source. Completes subcommands, options, file names for options
/// of type PATH, and one of the words for anything of a type that has some or is like "{on,off}".
void printCompletion(const CLI::App& app, const Words& words);

/// Adds the hidden options --help-man and --help-completion, which print these and end the program
/// as --help does.
void addManual(CLI::App& app, const ManPageText& text, const Words& words = {});

} // namespace chronal::tools

#endif
