#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <fabric-host/Frame.h>

#include "Manual.h"
#include "NumberText.h"
#include "Output.h"
#include "ParsedOption.h"
#include "SocketText.h"
#include "TimeService.h"
#include "TimeText.h"
#include "ZoneRules.h"

namespace chronal::ctl {

namespace {

using Ids = fabric::MsgIds;

constexpr char sourceType[] = "{RTC,NTP,DVB,TTX,ATSC}";
constexpr char switchType[] = "{on,off}";
constexpr ReferenceTimeId allSources[] = {referenceTimeRtc, referenceTimeNtp, referenceTimeDvb,
                                          referenceTimeTeletext, referenceTimeAtsc};

const tools::ManPageText& manPageText()
{
    static const tools::ManPageText text = {
        "talk to the time service",
        {{"TIMES, SPANS AND DURATIONS",
          {"A TIME is a date with or without a time of day (2026-03-29, 2026-03-29T01:00Z, "
           "\"2026-03-29 01:00:00.250\", 2026-03-29T03:00:00+02:00), UTC unless it names an "
           "offset (+02:00, +0200, +02); "
           "or seconds since 1970-01-01 (@1774746000.5). A local time has neither Z nor an offset.",
           "A SPAN is a sign, which may be left out, and counts with units from larger to smaller "
           "ones (+1h30m, -90s, 1d2h, 250ms; units d, h, m or min, s, ms, us), or an offset "
           "(+05:30).",
           "A DURATION is a number of seconds (5, 0.5), or counts with the units of a span (250ms, "
           "2s, 1min)."}},
         {"EXIT STATUS",
          {"0: done. 1: refused by the service. 2: bad usage. 3: no service, no answer in time, or "
           "nowhere to print it. "
           "Why is on standard error, with what is probably behind it. A refusal itself is only a "
           "negative error number, by which a device's service may mean something else than the "
           "simulated one.",
           "With --json, the last line of standard output says the same, also of bad usage:",
           "  {\"command\":\"timezone set\",\"error\":{\"status\":1,\"number\":-2,\n"
           "   \"text\":\"the service refused ...\",\"advice\":\"Probably ...\"}}",
           "The command is what has been understood of it; status is the exit status; number is a "
           "negative error number, or 0 for none; advice may be empty."}},
         {"ENVIRONMENT",
          {"CHRONAL_SOCKET is the socket to use when --socket is not given.",
           "CHRONAL_SOCKET_UID is the id of a user whose service is trusted, besides this user's "
           "own and root's.",
           "XDG_RUNTIME_DIR is the directory where chronal-simd listens by default. Without "
           "--socket "
           "and CHRONAL_SOCKET, chronal.sock in it is used, if it exists, even if nobody listens "
           "there any more.",
           "TZDIR is the directory of the time-zone database of a service simulated in this "
           "process "
           "(default: /usr/share/zoneinfo)."}},
         {"EXAMPLES",
          {"  chronal-simd &\n"
           "  chronalctl status\n"
           "  chronalctl ref-time set DVB 2026-03-29T00:59:50Z\n"
           "  chronalctl --socket /run/chronal.sock timezone set Europe/Berlin\n"
           "  chronalctl monitor NTP DVB --for 10",
           "A service simulated in this process starts anew with every run. Commands that set "
           "something or wait for notifications say so on standard error."}},
         {"SEE ALSO", {"chronal-simd(1)"}}}};
    return text;
}

std::string upperCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

ReferenceTimeId parseSource(const std::string& text)
{
    const std::string name = upperCase(text);
    if (name == "TELETEXT")
        return referenceTimeTeletext;
    // The invalid one can be named, to see how it is refused.
    if (name == Helpers::getRefTimeStr(referenceTimeInvalid))
        return referenceTimeInvalid;
    for (const ReferenceTimeId source : allSources)
        if (name == Helpers::getRefTimeStr(source))
            return source;
    throw std::invalid_argument("'" + text +
                                "' is no source; right would be RTC, NTP, DVB, TTX or ATSC");
}

void addOnce(std::vector<ReferenceTimeId>& sources, ReferenceTimeId source)
{
    if (std::find(sources.begin(), sources.end(), source) == sources.end())
        sources.push_back(source);
}

bool parseSwitch(const std::string& text)
{
    const std::string name = upperCase(text);
    if (name == "ON" || name == "OFF")
        return name == "ON";
    throw std::invalid_argument("'" + text + "' is neither on nor off");
}

std::chrono::microseconds parseWait(const std::string& text)
{
    const std::chrono::microseconds wait = tools::parseDuration(text);
    if (wait.count() == 0)
        throw std::invalid_argument("'" + text + "' is no time to wait");
    return wait;
}

std::string parseText(const std::string& text)
{
    // A round number that leaves room in a frame for what else the message holds.
    constexpr std::size_t longest = 65000;
    static_assert(longest + sizeof(chronalMsgDateTime_t) + fabric::host::frameHeaderSize <
                  fabric::host::maxFrameSize);
    if (text.size() > longest)
        throw std::invalid_argument("has " + std::to_string(text.size()) +
                                    " characters; a message has room for " +
                                    std::to_string(longest));
    return text;
}

using tools::addParsed;
using tools::readArgument;

template <class Result, class Value>
void addArgument(CLI::App& app, const std::string& name, Value& value,
                 Result (*parse)(const std::string&), const std::string& description,
                 const std::string& type = "")
{
    addParsed(app, name, value, parse, type, description)->required();
}

/// The words that a command consists of, without the program's name.
std::string wordsOf(const CLI::App& command)
{
    const CLI::App* const group = command.get_parent();
    if (!group)
        return "";
    const std::string words = wordsOf(*group);
    return words.empty() ? command.get_name() : words + ' ' + command.get_name();
}

/// `text`, with what was given for each "{NAME}".
std::string filled(std::string_view text, const CLI::App& command)
{
    std::string result;
    for (auto slot = text.find('{'); slot != std::string_view::npos; slot = text.find('{')) {
        const auto end = text.find('}', slot);
        const std::string name(text.substr(slot + 1, end - slot - 1));
        result += text.substr(0, slot);
        result += CLI::detail::join(command.get_option(name)->results(), " ");
        text.remove_prefix(end + 1);
    }
    return result.append(text);
}

// What the simulated service accepts.

constexpr char sourceLocked[] =
    "{SOURCE} is locked; to unlock it: chronalctl ref-time unlock {SOURCE}";
const std::string tooLong = "has more than " + std::to_string(sim::longestText) + " characters";
const std::string serverTooLong = "the server's name " + tooLong;

constexpr std::int64_t day = 86400; // seconds

/// Years 1970 to 9999, without `margin` seconds at both ends.
bool isInCalendar(const nubOsalTime_struct& time, std::int64_t margin = 0)
{
    constexpr std::int64_t end = sim::calendarEnd.time_since_epoch() / std::chrono::seconds(1);
    const std::int64_t second = time.seconds - (time.microseconds < 0 ? 1 : 0);
    return second >= margin && second < end - margin;
}

bool isOverADay(nubOsalTime_struct span)
{
    nubOsalTime_struct limit = {};
    limit.seconds = day;
    Helpers::absTimeSpan(&span);
    return nubOsalCompareTime(&span, &limit) > 0;
}

bool isTooLong(const std::string& text)
{
    return text.size() > sim::longestText;
}

/// The answer to a command. Throws Failure if that is a refusal.
Report askFor(Connection<Asker>& service, const std::string& command, const std::string& wanted,
              const Asker::Send& send)
{
    Report report = service->ask(send, wanted);
    if (report.result < 0)
        throw refusal(command, report.result);
    return report;
}

Connection<Asker> connect(const Options& options)
{
    return Connection<Asker>(options.socket, options.timeout, options.socket);
}

/// Reminds that a service in this process is nobody else's and ends with it.
void noteSimulation(const Options& options)
{
    if (options.socket.empty())
        std::fputs("chronalctl: the service is simulated in this process and ends with it; to have "
                   "one that stays, run chronal-simd\n",
                   stderr);
}

template <class Answer>
void printAnswer(const Options& options, const Answer& answer)
{
    print(options.json ? asJson(answer) : asTable(answer));
}

/// What is refused does not keep the rest from being shown, but is the outcome.
void showStatus(const Options& options)
{
    Connection<Asker> service = connect(options);
    std::optional<Failure> firstRefusal;
    const auto ask = [&](const std::string& command, const char* wanted, const Asker::Send& send) {
        Report report = service->ask(send, wanted);
        if (report.result < 0 && !firstRefusal)
            firstRefusal = refusal(command, report.result);
        return report;
    };
    Status status;
    for (const ReferenceTimeId source : allSources)
        status.sources.push_back(
            {Helpers::getRefTimeStr(source),
             ask("ref-time get " + Helpers::getRefTimeStr(source), "ref-time",
                 [&](UserAdapter& adapter, Ids& ids) { adapter.cmdRefTimeFetch(ids, source); })});
    status.timezone = ask("timezone get", "timezone",
                          [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); });
    status.nextDeviation =
        ask("deviation next get RTC", "next-deviation", [](UserAdapter& adapter, Ids& ids) {
            adapter.cmdNextTimeDeviationChangeFetch(ids, referenceTimeRtc);
        });
    status.settings = ask("settings get", "settings", [](UserAdapter& adapter, Ids& ids) {
        adapter.cmdDateTimeSettingsFetch(ids);
    });
    printAnswer(options, status);
    if (firstRefusal)
        throw Failure(*firstRefusal);
}

/// The command replaces all settings, so what is not given is fetched first.
void setSettings(const Options& options, const Arguments& given)
{
    noteSimulation(options);
    Connection<Asker> service = connect(options);
    const Report old =
        askFor(service, "settings get", "settings",
               [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); });
    const auto time = [&](std::size_t index, const char* name) {
        return given.times[index].value_or(std::get<Time>(old.field(name).value).value);
    };
    const auto value = static_cast<int>(std::get<std::int64_t>(old.field("value").value));
    const std::string server =
        given.server.value_or(std::get<std::string>(old.field("ntp_server").value));
    const auto set = [&](UserAdapter& adapter, Ids& ids) {
        adapter.cmdDateTimeSettingsSet(ids, time(0, "time1"), time(1, "time2"), time(2, "time3"),
                                       time(3, "time4"), given.value.value_or(value), server);
    };
    printAnswer(options, askFor(service, "settings set", "result", set));
}

} // namespace

CommandLine::CommandLine()
    : app("Sends one command to the time service and prints its answer, or watches what the "
          "service tells everybody. Without --socket and CHRONAL_SOCKET it talks to a chronal-simd "
          "that listens in $XDG_RUNTIME_DIR, or else to a simulated service inside itself.",
          "chronalctl")
{
    // Options of the program may stand anywhere on the line.
    app.fallthrough();
    app.require_subcommand(1);
    // Of every command.
    app.footer("Options for all commands, such as --socket, --json and --timeout: "
               "chronalctl --help");
    addOptions();
    addWatching();
    addRefTime();
    addDeviation();
    addTimeAt();
    addSettings();
    addTimezone();
    // Its own, which the commands would take over before.
    app.footer("Exit status: 0 done, 1 refused by the service, 2 bad usage, 3 no service or no "
               "answer.\nchronalctl(1) tells more, also how errors look with --json.");
}

void CommandLine::addOptions()
{
    addParsed(app, "--socket", options.socket, tools::parseSocket, "PATH",
              "Talk to the service at this socket, or the one named chronal.sock in this directory "
              "(default: $CHRONAL_SOCKET, then $XDG_RUNTIME_DIR/chronal.sock if that exists, else "
              "simulated in this process)")
        ->envname("CHRONAL_SOCKET");
    app.add_flag("--json", options.json, "Print one JSON object a line, for an error as well");
    addParsed(app, "--timeout", options.timeout, parseWait, "DURATION",
              "How long to wait for the service, and for each answer; 5s if not given");
    app.set_version_flag("--version", "chronalctl " CHRONAL_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print what can be said here and exit");
    tools::addManual(app, manPageText());
}

CLI::App& CommandLine::addGroup(CLI::App& parent, const char* name, const char* description)
{
    return *parent.add_subcommand(name, description)->require_subcommand(1);
}

CLI::App& CommandLine::addCommand(CLI::App& parent, const char* name, const char* description,
                                  std::function<void()> carryOut)
{
    CLI::App* const added = parent.add_subcommand(name, description);
    // Not before the whole line has been read.
    added->callback([this, carryOut = std::move(carryOut)] { chosen = carryOut; });
    return *added;
}

CLI::App& CommandLine::addQuestion(CLI::App& parent, const char* name, const char* description,
                                   Asker::Send send, const char* answer)
{
    return addCommand(parent, name, description, [this, answer, send = std::move(send)] {
        if (answer == std::string_view("result"))
            noteSimulation(options);
        Connection<Asker> service = connect(options);
        printAnswer(options, askFor(service, words(), answer, send));
    });
}

void CommandLine::addSourceQuestion(CLI::App& parent, const char* name, const char* description,
                                    SendForSource send, const char* answer)
{
    CLI::App& added = addQuestion(
        parent, name, description,
        [this, send](UserAdapter& adapter, Ids& ids) { (adapter.*send)(ids, arguments.source); },
        answer);
    addSource(added);
}

void CommandLine::addSource(CLI::App& command)
{
    addArgument(command, "SOURCE", arguments.source, parseSource,
                "RTC, NTP, DVB, TTX (teletext) or ATSC", sourceType);
    addReason(command, EINVAL,
              "the service has no source {SOURCE}; right would be RTC, NTP, DVB, TTX or ATSC",
              [this] { return arguments.source == referenceTimeInvalid; });
}

void CommandLine::addUtc(CLI::App& command, const std::string& name, nubOsalTime_struct& time,
                         const std::string& description)
{
    addArgument(command, name, time, tools::parseUtc,
                description + ", such as 2026-03-29T01:00:00Z or @1774746000");
    addReason(command, EINVAL, "'{" + name + "}' is not within the years 1970 to 9999",
              [this, &time] { return !arguments.negate && !isInCalendar(time); });
}

void CommandLine::addLocal(CLI::App& command, const std::string& name, nubOsalTime_struct& time,
                           const std::string& description)
{
    addArgument(command, name, time, tools::parseLocal,
                description + ", such as 2026-03-29T03:00:00");
    addReason(command, EINVAL, "'{" + name + "}' is not within the years 1970 to 9999 of UTC",
              [this, &time] { return !arguments.negate && !isInCalendar(time, day); });
    addReason(command, EINVAL,
              "'{" + name +
                  "}' does not exist: the clocks skip it, as daylight saving begins there",
              [this] {
                  const nubOsalTime_struct zero = {};
                  return !arguments.negate && nubOsalCompareTime(&arguments.deviation, &zero) == 0;
              });
}

CLI::Option* CommandLine::addSpan(CLI::App& command, const std::string& name,
                                  nubOsalTime_struct& span, const std::string& description)
{
    addReason(command, EINVAL,
              "'{" + name + "}' is too much; right would be a deviation from -24h to +24h",
              [&span] { return isOverADay(span); });
    return addParsed(command, name, span, tools::parseSpan, "", description);
}

void CommandLine::addReason(const CLI::App& command, int error, const std::string& text,
                            std::function<bool()> mayApply)
{
    reasons[&command].push_back({error, text, std::move(mayApply)});
}

void CommandLine::addWatching()
{
    addCommand(app, "status", "Show all times, the zone and the settings",
               [this] { showStatus(options); });
    CLI::App& monitorCommand = addCommand(
        app, "monitor",
        "Print notifications until interrupted, also those of a service that restarts", [this] {
            noteSimulation(options);
            monitor(options, arguments.watch);
        });
    const auto readSources = [this](const std::vector<std::string>& names) {
        readArgument("SOURCE", [&] {
            for (const std::string& name : names)
                addOnce(arguments.watch.sources, parseSource(name));
        });
    };
    monitorCommand
        .add_option_function<std::vector<std::string>>(
            "SOURCE", readSources, "Sources whose current times are to be printed as well")
        ->type_name(sourceType);
    addReason(
        monitorCommand, EINVAL,
        "the service does not have all of {SOURCE}; right would be RTC, NTP, DVB, TTX or ATSC");
    addWatchOptions(monitorCommand);
}

void CommandLine::addWatchOptions(CLI::App& command)
{
    addParsed(command, "--for", arguments.watch.duration, parseWait, "DURATION",
              "End after this time");
    addParsed(command, "--count", arguments.watch.count, tools::parseWholeNumber<std::uint64_t, 1>,
              "N", "End after so many notifications");
}

void CommandLine::addRefTime()
{
    CLI::App& group = addGroup(app, "ref-time", "The time of one source");
    addSourceQuestion(group, "get", "Show a source's times", &UserAdapter::cmdRefTimeFetch,
                      "ref-time");
    addSetTime(group, "set", "Set a source's UTC time", &CommandLine::addUtc,
               &UserAdapter::cmdRefTimeSet);
    addSetTime(group, "set-local", "Set a source's local time", &CommandLine::addLocal,
               &UserAdapter::cmdRefLocalTimeSet);

    CLI::App& at = addQuestion(
        group, "at", "Show what a source shows at a moment",
        [this](UserAdapter& adapter, Ids& ids) {
            adapter.cmdRefTimeAt(ids, arguments.time, arguments.source);
        },
        "ref-time-at");
    addSource(at);
    addUtc(at, "TIME", arguments.time, "The moment, in UTC");

    CLI::App& subscribe =
        addCommand(group, "subscribe",
                   "Print a source's current time again and again, until interrupted", [this] {
                       arguments.watch.sources = {arguments.source};
                       arguments.watch.broadcasts = false;
                       noteSimulation(options);
                       monitor(options, arguments.watch);
                   });
    addSource(subscribe);
    addWatchOptions(subscribe);
    addSourceQuestion(group, "unsubscribe",
                      "Send the end of a subscription, which ends with its program anyway",
                      &UserAdapter::cmdRefTimeUnsubscribe);
    addSourceQuestion(group, "lock", "Keep a source from being set, by anybody",
                      &UserAdapter::cmdRefTimeLock);
    addSourceQuestion(group, "unlock", "Let a source be set again", &UserAdapter::cmdRefTimeUnlock);
}

void CommandLine::addSetTime(CLI::App& parent, const char* name, const char* description,
                             AddTime addTime, SendForTime send)
{
    CLI::App& set =
        addQuestion(parent, name, description, [this, send](UserAdapter& adapter, Ids& ids) {
            (adapter.*send)(ids, arguments.time, arguments.deviation, arguments.source,
                            arguments.value.value_or(0), arguments.negate);
        });
    addSource(set);
    addReason(set, EBUSY, sourceLocked);
    (this->*addTime)(set, "TIME", arguments.time, "The source's time from now on");
    addSpan(set, "--deviation", arguments.deviation,
            "Local time less UTC, such as +1h30m; the zone's if not given, or 0")
        ->type_name("SPAN");
    addReason(set, EINVAL, "'{TIME}', negated, is not within the years 1970 to 9999",
              [this] { return arguments.negate; });
    addValue(set, "A number to keep with the time; 0 if not given");
    set.add_flag("--negate", arguments.negate, "Send the time negated");
}

void CommandLine::addDeviation()
{
    CLI::App& deviation = addGroup(app, "deviation", "The deviation of local time from UTC");
    CLI::App& next = addGroup(deviation, "next", "Its next change");
    addSourceQuestion(next, "get",
                      "Show when it changes next, and to what (DEVIATION_INVALID: no change; "
                      "DEVIATION_UNKNOWN: the source has no time)",
                      &UserAdapter::cmdNextTimeDeviationChangeFetch, "next-deviation");
    CLI::App& set = addQuestion(next, "set", "Announce its next change",
                                [this](UserAdapter& adapter, Ids& ids) {
                                    adapter.cmdNextTimeDeviationChangeSet(
                                        ids, arguments.time, arguments.deviation, arguments.source);
                                });
    addSource(set);
    addReason(set, EBUSY, sourceLocked);
    addUtc(set, "TIME", arguments.time, "When it changes, in UTC");
    addSpan(set, "SPAN", arguments.deviation, "The deviation from then on, such as +1h30m")
        ->required();

    CLI::App& dst = addGroup(app, "dst", "Daylight saving");
    CLI::App& announce =
        addQuestion(dst, "announce", "Announce a period of daylight saving",
                    [this](UserAdapter& adapter, Ids& ids) {
                        adapter.cmdSendDaylightsavingInfo(ids, arguments.time, arguments.end,
                                                          arguments.deviationAfter,
                                                          arguments.deviation, arguments.source);
                    });
    addSource(announce);
    addReason(announce, EBUSY, sourceLocked);
    addUtc(announce, "BEGIN", arguments.time, "When it begins, in UTC");
    addUtc(announce, "END", arguments.end, "When it ends, in UTC");
    addSpan(announce, "DURING", arguments.deviation, "The deviation in between, such as +2h")
        ->required();
    addSpan(announce, "AFTER", arguments.deviationAfter, "The deviation afterwards, such as +1h")
        ->required();
    addReason(announce, EINVAL, "'{BEGIN}' is not before '{END}'",
              [this] { return nubOsalCompareTime(&arguments.time, &arguments.end) >= 0; });
}

void CommandLine::addTimeAt()
{
    CLI::App& group = addGroup(app, "at", "UTC and local time of one moment, by the zone");
    CLI::App& utc = addQuestion(
        group, "utc", "Of a moment in UTC",
        [this](UserAdapter& adapter, Ids& ids) { adapter.cmdUTCTimeAt(ids, arguments.time); },
        "time-at");
    addUtc(utc, "TIME", arguments.time, "The moment");
    CLI::App& local = addQuestion(
        group, "local", "Of a moment in local time",
        [this](UserAdapter& adapter, Ids& ids) { adapter.cmdLocaltimeAt(ids, arguments.time); },
        "time-at");
    addLocal(local, "TIME", arguments.time, "The moment");
}

void CommandLine::addSettings()
{
    CLI::App& group = addGroup(app, "settings", "The date-and-time settings");
    addQuestion(
        group, "get", "Show them",
        [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); }, "settings");
    CLI::App& set = addCommand(group, "set", "Change some of them; the others stay as they are",
                               [this] { setSettings(options, arguments); });
    set.require_option(1, 0);
    for (std::size_t index = 0; index < arguments.times.size(); ++index)
        addParsed(set, "--time" + std::to_string(index + 1), arguments.times[index],
                  tools::parseUtc, "TIME",
                  "Time " + std::to_string(index + 1) + " of the settings");
    addValue(set, "The settings' number");
    addParsed(set, "--server", arguments.server, parseText, "NAME", "The NTP server");
    addReason(set, EINVAL,
              "NTP is in use and needs a server; to do without one: chronalctl ntp set '' --off",
              [this] { return arguments.server == ""; });
    addReason(set, EINVAL, serverTooLong,
              [this] { return isTooLong(arguments.server.value_or("")); });

    CLI::App& ntp = addGroup(app, "ntp", "Time from the network");
    CLI::App& ntpSet = addQuestion(ntp, "set", "Name the server, and use it",
                                   [this](UserAdapter& adapter, Ids& ids) {
                                       adapter.cmdDateTimeNtpSet(ids, arguments.text, arguments.on);
                                   });
    addArgument(ntpSet, "SERVER", arguments.text, parseText, "Its name");
    ntpSet.add_flag("!--off", arguments.on, "Do not use it");
    addReason(ntpSet, EINVAL, "a server that is to be used needs a name; to use none: --off",
              [this] { return arguments.text.empty(); });
    addReason(ntpSet, EINVAL, serverTooLong, [this] { return isTooLong(arguments.text); });
    CLI::App& start =
        addQuestion(ntp, "start", "Get the time from the server now",
                    [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeNtpStart(ids); });
    addReason(start, EPERM,
              "NTP is not in use, as always at first, and the service in this process starts anew "
              "with every run; to have one that stays, run chronal-simd",
              [this] { return options.socket.empty(); });
    addReason(start, EPERM, "NTP is not in use; to use it: chronalctl ntp set SERVER");
    addReason(start, EBUSY, "NTP is locked; to unlock it: chronalctl ref-time unlock NTP");

    CLI::App& automatic =
        addQuestion(app, "auto-time", "Whether the clock follows what other sources are set to",
                    [this](UserAdapter& adapter, Ids& ids) {
                        adapter.cmdDateTimeAutoTimeSet(ids, arguments.on);
                    });
    addArgument(automatic, "STATE", arguments.on, parseSwitch, "on or off", switchType);
    CLI::App& init = addQuestion(app, "time-init", "Set all sources back to how they started",
                                 [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimeInit(ids); });
    addReason(init, EBUSY, "a source is locked; to unlock it: chronalctl ref-time unlock SOURCE");
}

void CommandLine::addTimezone()
{
    CLI::App& group = addGroup(app, "timezone", "The time zone");
    addQuestion(
        group, "get", "Show it",
        [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); }, "timezone");
    CLI::App& set = addQuestion(group, "set", "Change it", [this](UserAdapter& adapter, Ids& ids) {
        adapter.cmdTimezoneSet(ids, arguments.text);
    });
    addArgument(set, "ZONE", arguments.text, parseText, "Its name, for example Europe/Berlin");
    addReason(set, ENOENT,
              "the service knows no time zone '{ZONE}'; right would be a name of the time-zone "
              "database, such as Europe/Berlin");
    addReason(set, EINVAL, "the zone's name " + tooLong,
              [this] { return isTooLong(arguments.text); });
    CLI::App& sync = addQuestion(group, "sync", "Whether the zone is synchronised",
                                 [this](UserAdapter& adapter, Ids& ids) {
                                     adapter.cmdTimezoneSyncEnableSet(ids, arguments.on ? 1 : 0);
                                 });
    addArgument(sync, "STATE", arguments.on, parseSwitch, "on or off", switchType);
}

void CommandLine::addValue(CLI::App& command, const char* description)
{
    addParsed(command, "--value", arguments.value, tools::parseWholeNumber<int>, "NUMBER",
              description);
}

namespace {

/// Where chronal-simd listens by default; empty if there is nothing. A socket at which nobody
/// listens any more counts: simulating in its place would silently lose what is set.
std::string foundSocket()
{
    const std::string socket = tools::defaultSocket();
    std::error_code ignored;
    const auto there = std::filesystem::symlink_status(socket, ignored).type();
    return there == std::filesystem::file_type::not_found ? "" : socket;
}

bool isCommand(const CLI::App& app, const std::vector<std::string>& words)
{
    const CLI::App* command = &app;
    for (const std::string& word : words) {
        const auto named = command->get_subcommands(
            [&](const CLI::App* candidate) { return candidate->check_name(word); });
        if (named.empty())
            return false;
        command = named.front();
    }
    return true;
}

} // namespace

void CommandLine::parse(int argc, const char* const* argv)
{
    // A line that cannot be read to its end is complained about in the form that it asks for.
    options.json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
    std::vector<std::string> said(argv + std::min(argc, 1), argv + argc);
    // "help COMMAND" is another way to say "COMMAND --help".
    if (!said.empty() && said.front() == "help") {
        said.erase(said.begin());
        if (isCommand(app, said)) // else it is told like any other that there is none
            said.emplace_back("--help");
    }
    std::reverse(said.begin(), said.end()); // as CLI11 wants it
    app.parse(std::move(said));
    // In a whole line the word may turn out to be the value of another option.
    options.json = options.json && app.get_option("--json")->count() != 0;
    if (options.socket.empty())
        options.socket = foundSocket();
}

void CommandLine::run() const
{
    try {
        chosen();
    } catch (Failure& failure) {
        if (failure.status == ExitStatus::refused)
            failure.advice = probableReason(failure.number);
        throw;
    }
}

const CLI::App& CommandLine::parsed() const
{
    const CLI::App* place = &app;
    for (auto next = place->get_subcommands(); !next.empty(); next = place->get_subcommands())
        place = next.front();
    return *place;
}

std::string CommandLine::words() const
{
    return wordsOf(parsed());
}

std::string CommandLine::probableReason(int number) const
{
    const CLI::App& command = parsed();
    const auto known = reasons.find(&command);
    if (known == reasons.end())
        return "";
    for (const Reason& reason : known->second)
        if (number == -reason.error && (!reason.mayApply || reason.mayApply()))
            return "Probably " + filled(reason.text, command);
    return "";
}

Failure CommandLine::badUsage(const CLI::ParseError& error) const
{
    const std::string path = app.get_name() + (words().empty() ? "" : ' ' + words());
    const std::string advice = "See: " + path + " --help";
    const auto commands = parsed().get_subcommands({});
    // An option that is wrong is told as such, also where a command is missing.
    const std::vector<std::string> unknown = app.remaining(true);
    const auto isAbout = [&](CLI::ExitCodes code) {
        return error.get_exit_code() == static_cast<int>(code);
    };
    if (isAbout(CLI::ExitCodes::ExtrasError))
        return {ExitStatus::badUsage, 0, "not expected: " + CLI::detail::join(unknown, " "),
                advice};
    if (commands.empty() || !isAbout(CLI::ExitCodes::RequiredError))
        return {ExitStatus::badUsage, 0, error.what(), advice};
    std::string names;
    for (const CLI::App* command : commands)
        names += (names.empty() ? "" : ", ") + command->get_name();
    if (!unknown.empty() && unknown.front().front() == '-')
        return {ExitStatus::badUsage, 0, "not expected: " + unknown.front(), advice};
    const std::string wrong =
        unknown.empty() ? "what to do is missing" : "'" + unknown.front() + "' is no command";
    return {ExitStatus::badUsage, 0,
            wrong + " after \"" + path + "\"; right would be one of: " + names, advice};
}

} // namespace chronal::ctl
