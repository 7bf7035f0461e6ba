#include "CommandLine.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "Output.h"
#include "ParsedOption.h"
#include "Parsers.h"
#include "SocketText.h"
#include "StandardStreams.h"

namespace chronal::ctl {

namespace {

constexpr char description[] =
    "Sends one command to the time service and prints its answer, or monitors its notifications. "
    "Without --socket and CHRONAL_SOCKET it talks to the chronal-simd that listens in "
    "$XDG_RUNTIME_DIR or, if there is none, to a service simulated inside its own process.";
constexpr char socketHelp[] =
    "Talk to the service at this socket, or at chronal.sock in this directory (default: "
    "$CHRONAL_SOCKET, then $XDG_RUNTIME_DIR/chronal.sock if that exists, otherwise a service "
    "simulated in this process)";

/// The command, or the program, that has these words.
CLI::App& find(CLI::App& app, std::string_view words)
{
    const auto blank = words.find(' ');
    if (words.empty())
        return app;
    CLI::App& next = *app.get_subcommand(std::string(words.substr(0, blank)));
    return blank == std::string_view::npos ? next : find(next, words.substr(blank + 1));
}

bool isCommand(const std::string& words)
{
    return words.empty() || std::any_of(commands.begin(), commands.end(),
                                        [&](const Command& known) { return known.name == words; });
}

/// `text` with the arguments in place of their names in braces.
std::string expanded(std::string_view text, const Arguments& given)
{
    std::string result;
    for (auto open = text.find('{'); open != std::string_view::npos; open = text.find('{')) {
        const auto close = text.find('}', open);
        result += text.substr(0, open);
        result += given.texts.at(std::string(text.substr(open + 1, close - open - 1)));
        text.remove_prefix(close + 1);
    }
    return result.append(text);
}

/// The text of the first advice that applies to a refusal, or nothing. `result` is the service's, a
/// negative error number. Advice on the arguments comes first.
std::string probableCause(const Command& command, int result, const Arguments& given)
{
    std::vector<Advice> advice;
    for (const Argument& argument : command.arguments)
        advice.insert(advice.end(), argument.advice.begin(), argument.advice.end());
    advice.insert(advice.end(), command.advice.begin(), command.advice.end());
    for (const Advice& candidate : advice)
        if (-candidate.error == result && (!candidate.applies || candidate.applies(given)))
            return "Probably " + expanded(candidate.text, given);
    return "";
}

/// The default socket of chronal-simd, or empty if there is none. A socket at which no service
/// listens any more counts: a simulation in its place would silently lose what is set.
std::string foundSocket()
{
    const std::string socket = tools::defaultSocket();
    std::error_code ignored;
    const auto there = std::filesystem::symlink_status(socket, ignored).type();
    return there == std::filesystem::file_type::not_found ? "" : socket;
}

} // namespace

CommandLine::CommandLine() : app_(description, "chronalctl")
{
    // Options of the program may be anywhere on the line.
    app_.fallthrough();
    app_.require_subcommand(1);
    app_.get_formatter()->label("Positionals", "Arguments");
    app_.get_formatter()->label("SUBCOMMAND", "COMMAND");
    add(app_, {"--socket", "PATH", socketHelp, read<&Arguments::socket, tools::parseSocket>})
        ->envname("CHRONAL_SOCKET");
    app_.add_flag("--json", given_.json, "Print JSON, one value per line, also for an error");
    add(app_, {"--timeout", "DURATION",
               "How long to wait for the service and for each answer (default: 5s)",
               read<&Arguments::timeout, parseWait>});
    app_.set_version_flag("--version", "chronalctl " CHRONAL_VERSION, "Print the version and exit");
    app_.set_help_flag("-h,--help", "Print this help and exit");
    // A command copies the footer that the program has when the command is added.
    app_.footer("Options of all commands, such as --socket, --json and --timeout: "
                "chronalctl --help");
    for (const Command& command : commands)
        add(command);
    app_.footer("Exit status: 0 done, 1 refused by the service, 2 bad usage, 3 no service or no "
                "answer, 4 a source has no time.\nchronalctl(1) describes the forms of times, and "
                "errors with --json.");
}

void CommandLine::add(const Command& command)
{
    const std::string words = command.name;
    const auto blank = words.rfind(' ');
    CLI::App& group = blank == std::string::npos ? app_ : find(app_, words.substr(0, blank));
    CLI::App& added = *group.add_subcommand(words.substr(blank + 1), command.help);
    added.group("Commands");
    for (const Argument& argument : command.arguments)
        add(added, argument);
    added.require_option(command.optionsRequired, 0);
    if (command.run)
        added.callback([this, &command] { chosen_ = &command; });
    else
        added.require_subcommand(1);
}

CLI::Option* CommandLine::add(CLI::App& app, const Argument& argument)
{
    const std::string name = argument.name;
    if (!argument.type)
        return app.add_flag_callback(
            name, [this, argument] { argument.read("", given_); }, argument.help);
    const auto read = [this, argument](const std::string& word) {
        const std::string text = word.substr(word.compare(0, 3, " -P") == 0 ? 1 : 0);
        argument.read(text, given_);
        std::string& typed = given_.texts[argument.name];
        typed += (typed.empty() ? "" : " ") + text;
    };
    const std::string plainName = name.substr(0, name.find_first_of(".?"));
    CLI::Option* const option =
        tools::addParsed(app, plainName, argument.type, argument.help, read);
    if (name.back() == '.')
        return option->expected(1, -1)->allow_extra_args();
    return option->required(name.front() != '-' && plainName == name);
}

bool CommandLine::parse(int argc, const char* const* argv)
{
    // An error in the line is reported in the form that the line asks for.
    given_.json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
    std::vector<std::string> typed(argv + std::min(argc, 1), argv + argc);
    // "help COMMAND" is another way to say "COMMAND --help".
    if (!typed.empty() && typed.front() == "help") {
        typed.erase(typed.begin());
        if (isCommand(tools::join(typed, " "))) // otherwise it is an error like any other
            typed.emplace_back("--help");
    }
    // With a blank before it, CLI11 takes the span "-PT1H" for a value.
    for (std::string& word : typed)
        if (word.compare(0, 2, "-P") == 0)
            word.insert(0, " ");
    std::reverse(typed.begin(), typed.end()); // as CLI11 wants it
    try {
        app_.parse(std::move(typed));
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        app_.exit(wanted, text);
        print(tools::fitted(text.str()));
        return false;
    }
    // The word may have been the value of another option.
    given_.json = given_.json && app_.get_option("--json")->count() != 0;
    given_.command = words();
    if (given_.socket.empty())
        given_.socket = foundSocket();
    return true;
}

void CommandLine::run() const
{
    for (const std::string& remark : given_.remarks)
        ctl::remark(remark);
    try {
        chosen_->run(given_);
    } catch (Failure& failure) {
        if (failure.status == ExitStatus::refused)
            failure.advice = probableCause(*chosen_, failure.number, given_);
        throw;
    }
}

const CLI::App& CommandLine::parsed() const
{
    const CLI::App* place = &app_;
    for (auto next = place->get_subcommands(); !next.empty(); next = place->get_subcommands())
        place = next.front();
    return *place;
}

std::string CommandLine::words() const
{
    std::vector<std::string> words;
    for (const CLI::App* place = &parsed(); place != &app_; place = place->get_parent())
        words.insert(words.begin(), place->get_name());
    return tools::join(words, " ");
}

Failure CommandLine::badUsage(const CLI::ParseError& error) const
{
    const std::string command = words();
    const std::string path = app_.get_name() + (command.empty() ? "" : ' ' + command);
    return {ExitStatus::badUsage, 0, mistake(error, path), "See: " + path + " --help"};
}

std::string CommandLine::mistake(const CLI::ParseError& error, const std::string& path) const
{
    const std::vector<std::string> unknown = app_.remaining(true);
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    if (code == CLI::ExitCodes::ExtrasError)
        return "not expected: " + tools::join(unknown, " ");
    std::vector<std::string> names;
    for (const CLI::App* command : parsed().get_subcommands({}))
        names.push_back(command->get_name());
    if (names.empty() || code != CLI::ExitCodes::RequiredError)
        return error.what();
    // A wrong option comes first, even if a command is missing as well.
    if (!unknown.empty() && unknown.front().front() == '-')
        return "not expected: " + unknown.front();
    const std::string wrong =
        unknown.empty() ? "missing command after" : "'" + unknown.front() + "' is not a command of";
    return wrong + " \"" + path + "\"; expected one of: " + tools::join(names, ", ");
}

} // namespace chronal::ctl
