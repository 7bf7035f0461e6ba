#include "Manual.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <set>
#include <string>

namespace chronal::tools {

namespace {

/// `path` is the command's words, the program's name first.
using Visitor = std::function<void(const CLI::App& app, const std::string& path)>;

void visit(const CLI::App& app, const std::string& path, const Visitor& visitor)
{
    visitor(app, path);
    for (const CLI::App* command : app.get_subcommands({}))
        visit(*command, path + ' ' + command->get_name(), visitor);
}

std::vector<const CLI::Option*> options(const CLI::App& app, bool positional)
{
    return app.get_options([=](const CLI::Option* option) {
        return !option->get_group().empty() && option->get_positional() == positional;
    });
}

bool takesValue(const CLI::Option& option)
{
    return !option.get_type_name().empty(); // which flags have none of
}

std::string nameOf(const CLI::Option& option)
{
    return "--" + option.get_lnames().front();
}

/// "{on,off}" as "on off"; nothing for another type.
std::string choices(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    if (type.size() < 2 || type.front() != '{' || type.back() != '}')
        return "";
    std::string words = type.substr(1, type.size() - 2);
    std::replace(words.begin(), words.end(), ',', ' ');
    return words;
}

// Manual page

std::string roff(const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        // A dot or quote that begins a line would be taken for a request.
        if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n'))
            escaped += "\\&";
        if (c == '\\')
            escaped += "\\e";
        else if (c == '-' || c == '\'')
            escaped += c == '-' ? "\\-" : "\\(aq";
        else
            escaped += c;
    }
    return escaped;
}

std::string bold(const std::string& text)
{
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(const std::string& text)
{
    return "\\fI" + roff(text) + "\\fR";
}

void printEntry(const std::string& term, const std::string& description)
{
    std::cout << ".TP\n" << term << '\n' << roff(description) << '\n';
}

void printOption(const CLI::Option& option)
{
    const std::string value = takesValue(option) ? ' ' + italic(option.get_type_name()) : "";
    printEntry(bold(nameOf(option)) + value, option.get_description());
}

std::string synopsis(const CLI::App& command, const std::string& words)
{
    std::string line = bold(words);
    for (const CLI::Option* argument : options(command, true)) {
        const std::string dots = argument->get_expected_max() > 1 ? "..." : "";
        const std::string name = italic(argument->get_name(true)) + dots;
        line += argument->get_required() ? ' ' + name : " [" + name + ']';
    }
    return line;
}

/// The command, its arguments and the options that it alone has.
void printCommand(const CLI::App& command, const std::string& words)
{
    printEntry(synopsis(command, words), command.get_description());
    std::cout << ".RS\n";
    for (const CLI::Option* argument : options(command, true))
        printEntry(italic(argument->get_name(true)), argument->get_description());
    for (const CLI::Option* option : options(command, false))
        if (option != command.get_help_ptr())
            printOption(*option);
    std::cout << ".RE\n";
}

void printCommands(const CLI::App& app)
{
    if (app.get_subcommands({}).empty())
        return;
    std::cout << ".SH COMMANDS\n";
    visit(app, "", [&](const CLI::App& command, const std::string& words) {
        if (command.get_subcommands({}).empty())
            printCommand(command, words.substr(1));
    });
}

void printSection(const ManualSection& section)
{
    std::cout << ".SH " << roff(section.title) << '\n';
    for (const std::string& paragraph : section.paragraphs) {
        const bool keepsLines = paragraph.front() == ' ';
        std::cout << (keepsLines ? ".PP\n.nf\n" : ".PP\n") << roff(paragraph) << '\n'
                  << (keepsLines ? ".fi\n" : "");
    }
}

// Completion

std::string optionNames(const CLI::App& app)
{
    std::string words;
    for (const CLI::Option* option : options(app, false))
        if (!app.get_parent() || option != app.get_help_ptr())
            words += ' ' + nameOf(*option);
    return words;
}

/// What may follow the command's words, besides the program's own options.
std::string followers(const CLI::App& app)
{
    std::string words;
    for (const CLI::App* command : app.get_subcommands({}))
        words += ' ' + command->get_name();
    for (const CLI::Option* argument : options(app, true))
        words += ' ' + choices(*argument);
    return app.get_parent() ? words + optionNames(app) : words;
}

/// Words for bash's compgen that complete an option's value; nothing where nobody can tell.
std::string valueCompletion(const CLI::Option& option, const Words& known)
{
    const std::string type = option.get_type_name();
    if (type == "PATH")
        return "-f";
    const auto found = known.find(type);
    const std::string words = found != known.end() ? found->second : choices(option);
    return words.empty() ? "" : "-W '" + words + '\'';
}

void printValues(const CLI::App& app, const Words& words)
{
    std::set<std::string> printed; // commands may have options of the same name
    visit(app, "", [&](const CLI::App& command, const std::string&) {
        for (const CLI::Option* option : options(command, false)) {
            if (!takesValue(*option) || !printed.insert(nameOf(*option)).second)
                continue;
            const std::string completion = valueCompletion(*option, words);
            std::cout << "        " << nameOf(*option) << ") ";
            if (completion == "-f")
                std::cout << "compopt -o filenames; "; // to go on in a folder
            if (!completion.empty())
                std::cout << "mapfile -t COMPREPLY < <(compgen " << completion
                          << " -- \"$current\"); ";
            std::cout << "return ;;\n";
        }
    });
}

void printPaths(const CLI::App& app)
{
    visit(app, app.get_name(), [&](const CLI::App& command, const std::string& path) {
        if (&command != &app)
            std::cout << "            '" << path << "') path+=\" $word\" ;;\n";
    });
}

} // namespace

void printManPage(const CLI::App& app, const ManPageText& text)
{
    const std::string& name = app.get_name();
    std::string title = name;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    // Without a date: the same sources make the same page.
    std::cout << ".TH " << roff(title) << " 1 \"\" \"" << roff(app.version()) << "\"\n"
              << ".nh\n" // names are to be copied
              << ".SH NAME\n"
              << roff(name) << " \\- " << roff(text.purpose) << '\n'
              << ".SH SYNOPSIS\n"
              << synopsis(app, name) << " [" << italic("OPTION") << "]..."
              << (app.get_subcommands({}).empty() ? "" : ' ' + italic("COMMAND")) << '\n'
              << ".SH DESCRIPTION\n"
              << roff(app.get_description()) << '\n';
    printCommands(app);
    std::cout << ".SH OPTIONS\n";
    for (const CLI::Option* option : options(app, false))
        printOption(*option);
    for (const ManualSection& section : text.sections)
        printSection(section);
}

void printCompletion(const CLI::App& app, const Words& words)
{
    const std::string& name = app.get_name();
    std::string function = '_' + name;
    std::replace(function.begin(), function.end(), '-', '_');

    std::cout << "# bash completion of " << name << "\n\n"
              << function << "()\n"
              << "{\n"
              << "    local word words path=" << name << " current=${COMP_WORDS[COMP_CWORD]}\n"
              << "    local previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
              << "    COMPREPLY=()\n"
              // For bash, the "=" of --socket=PATH is a word.
              << "    [[ $previous != = ]] || previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
              << "    [[ $current != = ]] || current=\n"
              << "    case $previous in\n";
    printValues(app, words);
    std::cout << "    esac\n"
              << "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
              << "        case \"$path $word\" in\n";
    printPaths(app);
    std::cout << "        esac\n"
              << "    done\n"
              << "    case $path in\n";
    visit(app, name, [](const CLI::App& command, const std::string& path) {
        std::cout << "        '" << path << "') words='" << followers(command) << "' ;;\n";
    });
    std::cout << "    esac\n"
              << "    words+='" << optionNames(app) << "'\n"
              << "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\" ||\n"
              << "        compgen -W \"$words\" -- \"${current^^}\")\n"
              << "}\n"
              << "complete -F " << function << ' ' << name << '\n';
}

void addManual(CLI::App& app, const ManPageText& text, const Words& words)
{
    const auto addHidden = [&](const char* name, const std::function<void()>& print) {
        app.add_flag_callback(name,
                              [print] {
                                  print();
                                  throw CLI::Success();
                              })
            ->group("");
    };
    addHidden("--help-man", [&app, text] { printManPage(app, text); });
    addHidden("--help-completion", [&app, words] { printCompletion(app, words); });
}

} // namespace chronal::tools
