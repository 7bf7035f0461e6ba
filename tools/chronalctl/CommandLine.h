#ifndef CHRONALCTL_COMMAND_LINE_H
#define CHRONALCTL_COMMAND_LINE_H

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Asker.h"
#include "Failure.h"
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

/// What a service probably means when it refuses a command with `error`. It says no more than that
/// number; the reasons are those of the simulated one, a device's may have others.
struct Reason
{
    int error;                      ///< as in <cerrno>
    std::string text;               ///< "{TIME}" in it stands for what was given as TIME
    std::function<bool()> mayApply; ///< by the arguments; empty where they do not matter
};

/// The command line: its definition is also the source of the manual and of the completion.
class CommandLine
{
public:
    CommandLine();

    /// Throws CLI::ParseError.
    void parse(int argc, const char* const* argv);

    /// Carries out the command that has been parsed. Throws Failure.
    void run() const;

    /// The command's words, as far as parse() has come.
    std::string words() const;

    /// Whether JSON is wanted, also of a line that cannot be parsed.
    bool wantsJson() const { return options.json; }

    /// What was wrong and what would be right, of an error that parse() has thrown.
    Failure badUsage(const CLI::ParseError& error) const;

    /// Prints what --help and its like ask for.
    int exit(const CLI::ParseError& error) const { return app.exit(error); }

private:
    using SendForSource = void (UserAdapter::*)(fabric::MsgIds&, const ReferenceTimeId&);
    using SendForTime = void (UserAdapter::*)(fabric::MsgIds&, const nubOsalTime_struct&,
                                              const nubOsalTime_struct&, const ReferenceTimeId&,
                                              int, bool);
    using AddTime = void (CommandLine::*)(CLI::App&, const std::string&, nubOsalTime_struct&,
                                          const std::string&);

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
                          Asker::Send send, const char* answer = "result");
    void addSourceQuestion(CLI::App& parent, const char* name, const char* description,
                           SendForSource send, const char* answer = "result");
    void addSetTime(CLI::App& parent, const char* name, const char* description, AddTime addTime,
                    SendForTime send);
    void addSource(CLI::App& command);
    void addUtc(CLI::App& command, const std::string& name, nubOsalTime_struct& time,
                const std::string& description);
    void addLocal(CLI::App& command, const std::string& name, nubOsalTime_struct& time,
                  const std::string& description);
    CLI::Option* addSpan(CLI::App& command, const std::string& name, nubOsalTime_struct& span,
                         const std::string& description);
    void addValue(CLI::App& command, const char* description);
    void addWatchOptions(CLI::App& command);
    /// Of several reasons that may apply, the first one counts.
    void addReason(const CLI::App& command, int error, const std::string& text,
                   std::function<bool()> mayApply = nullptr);

    const CLI::App& parsed() const;
    std::string probableReason(int number) const;

    CLI::App app;
    Options options;
    Arguments arguments;
    std::function<void()> chosen;
    std::map<const CLI::App*, std::vector<Reason>> reasons;
};

} // namespace chronal::ctl

#endif
