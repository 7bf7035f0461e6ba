#ifndef CHRONALCTL_COMMAND_LINE_H
#define CHRONALCTL_COMMAND_LINE_H

#include <array>
#include <functional>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "Asker.h"
#include "Monitor.h"
#include "Options.h"

namespace chronal::ctl {

/// What can be said with one command or another. Only one is carried out, so they share it.
struct Arguments
{
    ReferenceTimeId source;
    nubOsalTime_struct time = {};
    nubOsalTime_struct end = {};
    nubOsalTime_struct deviation = {};
    nubOsalTime_struct deviationAfter = {};
    bool negate = false;
    bool on = true;
    std::string text;
    // Settings are replaced as a whole, so what is not given has to be told from what is.
    std::array<std::optional<nubOsalTime_struct>, 4> times;
    std::optional<int> value;
    std::optional<std::string> server;
    Watch watch;
};

/// The command line: its definition is also the source of the manual and of the completion.
class CommandLine
{
public:
    CommandLine();

    /// Throws CLI::ParseError.
    void parse(int argc, const char* const* argv) { app.parse(argc, argv); }

    /// Carries out the command that has been parsed. Throws Failure.
    void run() const { chosen(); }

    /// What was wrong and what would be right, of an error that parse() has thrown.
    std::string explain(const CLI::ParseError& error) const;

    /// Prints what --help and its like ask for.
    int exit(const CLI::ParseError& error) const { return app.exit(error); }

private:
    using SendForSource = void (UserAdapter::*)(fabric::MsgIds&, const ReferenceTimeId&);
    using SendForTime = void (UserAdapter::*)(fabric::MsgIds&, const nubOsalTime_struct&,
                                              const nubOsalTime_struct&, const ReferenceTimeId&,
                                              int, bool);

    void addOptions();
    void addWatching();
    void addRefTime();
    void addDeviation();
    void addTimeAt();
    void addSettings();
    void addTimezone();

    // What the commands are put together from.
    static CLI::App& addGroup(CLI::App& parent, const char* name, const char* description);
    CLI::App& addCommand(CLI::App& parent, const char* name, const char* description,
                         std::function<void()> carryOut);
    /// A command that is one message and its answer.
    CLI::App& addQuestion(CLI::App& parent, const char* name, const char* description,
                          Asker::Send send);
    void addSourceQuestion(CLI::App& parent, const char* name, const char* description,
                           SendForSource send);
    void addSetTime(CLI::App& parent, const char* name, const char* description,
                    nubOsalTime_struct (*read)(const std::string&), SendForTime send);
    void addSource(CLI::App& command);
    void addValue(CLI::App& command, const char* description);
    void addWatchOptions(CLI::App& command);

    CLI::App app;
    Options options;
    Arguments arguments;
    std::function<void()> chosen;
};

} // namespace chronal::ctl

#endif
