#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <utility>

#include <chronal/Helpers.h>

#include "Failure.h"
#include "Manual.h"
#include "Output.h"
#include "TimeText.h"

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
        {{"TIMES AND SPANS",
          {"A TIME is a date with or without a time of day (2026-03-29, 2026-03-29T01:00Z, "
           "\"2026-03-29 01:00:00.250\", 2026-03-29T03:00:00+02:00), UTC unless it names an "
           "offset; "
           "or seconds since 1970-01-01 (@1774746000.5). A local time has neither Z nor an offset.",
           "A SPAN is a sign, which may be left out, and counts with units from larger to smaller "
           "ones (+1h30m, -90s, 1d2h, 250ms; units d, h, m, s, ms, us), or an offset (+05:30)."}},
         {"EXIT STATUS",
          {"0: done. 1: refused by the service; its negative error number is on standard error. "
           "2: bad usage. 3: no service, or no answer in time."}},
         {"ENVIRONMENT", {"CHRONAL_SOCKET is the socket to use when --socket is not given."}},
         {"EXAMPLES",
          {"  chronalctl status\n"
           "  chronalctl ref-time set DVB 2026-03-29T00:59:50Z\n"
           "  chronalctl --socket /run/chronal.sock timezone set Europe/Berlin\n"
           "  chronalctl monitor NTP DVB --for 10",
           "On the simulated service in this process every run starts anew; to keep what is set, "
           "run chronal-simd and name its socket."}},
         {"SEE ALSO", {"chronal-simd(1)"}}}};
    return text;
}

ReferenceTimeId parseSource(const std::string& text)
{
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
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

bool parseSwitch(const std::string& text)
{
    if (text == "on" || text == "off")
        return text == "on";
    throw std::invalid_argument("'" + text + "' is neither on nor off");
}

template <class Number, Number least = std::numeric_limits<Number>::min()>
Number parseNumber(const std::string& text)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || rest != end || error != std::errc() || number < least)
        throw std::invalid_argument("'" + text + "' is no whole number from " +
                                    std::to_string(least) + " to " +
                                    std::to_string(std::numeric_limits<Number>::max()));
    return number;
}

std::string parseNonEmpty(const std::string& text)
{
    if (text.empty())
        throw std::invalid_argument("is empty");
    return text;
}

/// What `read` throws becomes an error of usage.
template <class Read>
void readArgument(const std::string& name, const Read& read)
{
    try {
        read();
    } catch (const std::invalid_argument& error) {
        throw CLI::ValidationError(name, error.what());
    }
}

/// An option or argument whose text `parse` reads.
template <class Result, class Value>
CLI::Option* addParsed(CLI::App& app, const std::string& name, Value& value,
                       Result (*parse)(const std::string&), const std::string& type,
                       const std::string& description)
{
    const auto read = [&value, parse, name](const std::string& text) {
        readArgument(name, [&] { value = parse(text); });
    };
    return app.add_option_function<std::string>(name, read, description)->type_name(type);
}

template <class Result, class Value>
void addArgument(CLI::App& app, const std::string& name, Value& value,
                 Result (*parse)(const std::string&), const std::string& description,
                 const std::string& type = "")
{
    addParsed(app, name, value, parse, type, description)->required();
}

void printReport(const Options& options, const Report& report)
{
    // A refusal is for standard error, unless a program reads every answer.
    if (options.json || report.result >= 0)
        print(options.json ? asJson(report) : asTable(report));
    if (report.result < 0)
        throw refusal(report.result);
}

/// An answer that cannot be gone on with when it is a refusal.
Report askFor(Connection<Asker>& service, const Asker::Send& send)
{
    Report report = service->ask(send);
    if (report.result < 0)
        throw refusal(report.result);
    return report;
}

Connection<Asker> connect(const Options& options)
{
    return Connection<Asker>(options.socket, options.timeout, options.socket);
}

void ask(const Options& options, const Asker::Send& send)
{
    Connection<Asker> service = connect(options);
    printReport(options, service->ask(send));
}

void showStatus(const Options& options)
{
    Connection<Asker> service = connect(options);
    Status status;
    for (const ReferenceTimeId source : allSources)
        status.sources.push_back(askFor(service, [&](UserAdapter& adapter, Ids& ids) {
            adapter.cmdRefTimeFetch(ids, source);
        }));
    status.timezone =
        askFor(service, [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); });
    status.nextDeviation = askFor(service, [](UserAdapter& adapter, Ids& ids) {
        adapter.cmdNextTimeDeviationChangeFetch(ids, referenceTimeRtc);
    });
    status.settings = askFor(
        service, [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); });
    print(options.json ? asJson(status) : asTable(status));
}

/// The command replaces all settings, so what is not given is fetched first.
void setSettings(const Options& options, const Arguments& given)
{
    Connection<Asker> service = connect(options);
    const Report old = askFor(
        service, [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); });
    const auto time = [&](std::size_t index, const char* name) {
        return given.times[index].value_or(std::get<Time>(old.field(name).value).value);
    };
    const auto value = static_cast<int>(std::get<std::int64_t>(old.field("value").value));
    const std::string server =
        given.server.value_or(std::get<std::string>(old.field("ntp_server").value));
    printReport(options, service->ask([&](UserAdapter& adapter, Ids& ids) {
        adapter.cmdDateTimeSettingsSet(ids, time(0, "time1"), time(1, "time2"), time(2, "time3"),
                                       time(3, "time4"), given.value.value_or(value), server);
    }));
}

} // namespace

CommandLine::CommandLine()
    : app("Sends one command to the time service and prints its answer, or watches what the "
          "service tells everybody. Without a socket it talks to a simulated service inside "
          "itself.",
          "chronalctl")
{
    // Options of the program may stand anywhere on the line.
    app.fallthrough();
    app.require_subcommand(1);
    addOptions();
    addWatching();
    addRefTime();
    addDeviation();
    addTimeAt();
    addSettings();
    addTimezone();
}

void CommandLine::addOptions()
{
    addParsed(app, "--socket", options.socket, parseNonEmpty, "PATH",
              "Talk to the service at this socket, for example one of chronal-simd")
        ->envname("CHRONAL_SOCKET");
    app.add_flag("--json", options.json, "Print one JSON object a line");
    addParsed(app, "--timeout", options.timeout, parseWait, "SECONDS",
              "How long to wait for the service, and for each answer; 5 if not given");
    app.set_version_flag("--version", "chronalctl " CHRONAL_VERSION, "Print the version and exit");
    app.set_help_flag("--help", "Print what can be said here and exit");
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
                                   Asker::Send send)
{
    return addCommand(parent, name, description,
                      [this, send = std::move(send)] { ask(options, send); });
}

void CommandLine::addSourceQuestion(CLI::App& parent, const char* name, const char* description,
                                    SendForSource send)
{
    CLI::App& added =
        addQuestion(parent, name, description, [this, send](UserAdapter& adapter, Ids& ids) {
            (adapter.*send)(ids, arguments.source);
        });
    addSource(added);
}

void CommandLine::addSource(CLI::App& command)
{
    addArgument(command, "SOURCE", arguments.source, parseSource,
                "RTC, NTP, DVB, TTX (teletext) or ATSC", sourceType);
}

void CommandLine::addWatching()
{
    addCommand(app, "status", "Show all times, the zone and the settings",
               [this] { showStatus(options); });
    CLI::App& monitorCommand =
        addCommand(app, "monitor",
                   "Print notifications until interrupted, also those of a service that restarts",
                   [this] { monitor(options, arguments.watch); });
    const auto readSources = [this](const std::vector<std::string>& names) {
        readArgument("SOURCE", [&] {
            std::transform(names.begin(), names.end(), std::back_inserter(arguments.watch.sources),
                           parseSource);
        });
    };
    monitorCommand
        .add_option_function<std::vector<std::string>>(
            "SOURCE", readSources, "Sources whose current times are to be printed as well")
        ->type_name(sourceType);
    addWatchOptions(monitorCommand);
}

void CommandLine::addWatchOptions(CLI::App& command)
{
    addParsed(command, "--for", arguments.watch.duration, parseWait, "SECONDS",
              "End after this time");
    addParsed(command, "--count", arguments.watch.count, parseNumber<std::uint64_t, 1>, "N",
              "End after so many notifications");
}

void CommandLine::addRefTime()
{
    CLI::App& group = addGroup(app, "ref-time", "The time of one source");
    addSourceQuestion(group, "get", "Show a source's times", &UserAdapter::cmdRefTimeFetch);
    addSetTime(group, "set", "Set a source's UTC time", parseUtc, &UserAdapter::cmdRefTimeSet);
    addSetTime(group, "set-local", "Set a source's local time", parseLocal,
               &UserAdapter::cmdRefLocalTimeSet);

    CLI::App& at = addQuestion(group, "at", "Show what a source shows at a moment",
                               [this](UserAdapter& adapter, Ids& ids) {
                                   adapter.cmdRefTimeAt(ids, arguments.time, arguments.source);
                               });
    addSource(at);
    addArgument(at, "TIME", arguments.time, parseUtc, "The moment, in UTC");

    CLI::App& subscribe =
        addCommand(group, "subscribe",
                   "Print a source's current time again and again, until interrupted", [this] {
                       arguments.watch.sources = {arguments.source};
                       arguments.watch.broadcasts = false;
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
                             nubOsalTime_struct (*read)(const std::string&), SendForTime send)
{
    CLI::App& set =
        addQuestion(parent, name, description, [this, send](UserAdapter& adapter, Ids& ids) {
            (adapter.*send)(ids, arguments.time, arguments.deviation, arguments.source,
                            arguments.value.value_or(0), arguments.negate);
        });
    addSource(set);
    addArgument(set, "TIME", arguments.time, read, "The source's time from now on");
    addParsed(set, "--deviation", arguments.deviation, parseSpan, "SPAN",
              "Local time less UTC; the zone's if not given, or 0");
    addValue(set, "A number to keep with the time; 0 if not given");
    set.add_flag("--negate", arguments.negate, "Send the time negated");
}

void CommandLine::addDeviation()
{
    CLI::App& deviation = addGroup(app, "deviation", "The deviation of local time from UTC");
    CLI::App& next = addGroup(deviation, "next", "Its next change");
    addSourceQuestion(next, "get", "Show when it changes next, and to what",
                      &UserAdapter::cmdNextTimeDeviationChangeFetch);
    CLI::App& set = addQuestion(next, "set", "Announce its next change",
                                [this](UserAdapter& adapter, Ids& ids) {
                                    adapter.cmdNextTimeDeviationChangeSet(
                                        ids, arguments.time, arguments.deviation, arguments.source);
                                });
    addSource(set);
    addArgument(set, "TIME", arguments.time, parseUtc, "When it changes, in UTC");
    addArgument(set, "SPAN", arguments.deviation, parseSpan, "The deviation from then on");

    CLI::App& dst = addGroup(app, "dst", "Daylight saving");
    CLI::App& announce =
        addQuestion(dst, "announce", "Announce a period of daylight saving",
                    [this](UserAdapter& adapter, Ids& ids) {
                        adapter.cmdSendDaylightsavingInfo(ids, arguments.time, arguments.end,
                                                          arguments.deviationAfter,
                                                          arguments.deviation, arguments.source);
                    });
    addSource(announce);
    addArgument(announce, "BEGIN", arguments.time, parseUtc, "When it begins, in UTC");
    addArgument(announce, "END", arguments.end, parseUtc, "When it ends, in UTC");
    addArgument(announce, "DURING", arguments.deviation, parseSpan, "The deviation in between");
    addArgument(announce, "AFTER", arguments.deviationAfter, parseSpan, "The deviation afterwards");
}

void CommandLine::addTimeAt()
{
    CLI::App& group = addGroup(app, "at", "UTC and local time of one moment, by the zone");
    CLI::App& utc =
        addQuestion(group, "utc", "Of a moment in UTC", [this](UserAdapter& adapter, Ids& ids) {
            adapter.cmdUTCTimeAt(ids, arguments.time);
        });
    addArgument(utc, "TIME", arguments.time, parseUtc, "The moment");
    CLI::App& local = addQuestion(
        group, "local", "Of a moment in local time",
        [this](UserAdapter& adapter, Ids& ids) { adapter.cmdLocaltimeAt(ids, arguments.time); });
    addArgument(local, "TIME", arguments.time, parseLocal, "The moment");
}

void CommandLine::addSettings()
{
    CLI::App& group = addGroup(app, "settings", "The date-and-time settings");
    addQuestion(group, "get", "Show them",
                [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); });
    CLI::App& set = addCommand(group, "set", "Change some of them; the others stay as they are",
                               [this] { setSettings(options, arguments); });
    set.require_option(1, 0);
    for (std::size_t index = 0; index < arguments.times.size(); ++index)
        addParsed(set, "--time" + std::to_string(index + 1), arguments.times[index], parseUtc,
                  "TIME", "Time " + std::to_string(index + 1) + " of the settings");
    addValue(set, "The settings' number");
    set.add_option("--server", arguments.server, "The NTP server")->type_name("NAME");

    CLI::App& ntp = addGroup(app, "ntp", "Time from the network");
    CLI::App& ntpSet = addQuestion(ntp, "set", "Name the server, and use it",
                                   [this](UserAdapter& adapter, Ids& ids) {
                                       adapter.cmdDateTimeNtpSet(ids, arguments.text, arguments.on);
                                   });
    ntpSet.add_option("SERVER", arguments.text, "Its name")->required()->type_name("");
    ntpSet.add_flag("!--off", arguments.on, "Do not use it");
    addQuestion(ntp, "start", "Get the time from the server now",
                [](UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeNtpStart(ids); });

    CLI::App& automatic =
        addQuestion(app, "auto-time", "Whether the clock follows what other sources are set to",
                    [this](UserAdapter& adapter, Ids& ids) {
                        adapter.cmdDateTimeAutoTimeSet(ids, arguments.on);
                    });
    addArgument(automatic, "STATE", arguments.on, parseSwitch, "on or off", switchType);
    addQuestion(app, "time-init", "Set all sources back to how they started",
                [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimeInit(ids); });
}

void CommandLine::addTimezone()
{
    CLI::App& group = addGroup(app, "timezone", "The time zone");
    addQuestion(group, "get", "Show it",
                [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); });
    CLI::App& set = addQuestion(group, "set", "Change it", [this](UserAdapter& adapter, Ids& ids) {
        adapter.cmdTimezoneSet(ids, arguments.text);
    });
    set.add_option("ZONE", arguments.text, "Its name, for example Europe/Berlin")
        ->required()
        ->type_name("");
    CLI::App& sync = addQuestion(group, "sync", "Whether the zone is synchronised",
                                 [this](UserAdapter& adapter, Ids& ids) {
                                     adapter.cmdTimezoneSyncEnableSet(ids, arguments.on ? 1 : 0);
                                 });
    addArgument(sync, "STATE", arguments.on, parseSwitch, "on or off", switchType);
}

void CommandLine::addValue(CLI::App& command, const char* description)
{
    addParsed(command, "--value", arguments.value, parseNumber<int>, "NUMBER", description);
}

std::string CommandLine::explain(const CLI::ParseError& error) const
{
    const CLI::App* place = &app;
    std::string path = app.get_name();
    for (auto parsed = place->get_subcommands(); !parsed.empty();
         parsed = place->get_subcommands()) {
        place = parsed.front();
        path += ' ' + place->get_name();
    }

    const std::string advice = "\nSee: " + path + " --help";
    const auto commands = place->get_subcommands({});
    // An option that is wrong is told as such, also where a command is missing.
    const bool wantsCommand =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
    if (commands.empty() || !wantsCommand)
        return error.what() + advice;
    std::string names;
    for (const CLI::App* command : commands)
        names += (names.empty() ? "" : ", ") + command->get_name();
    const std::vector<std::string> unknown = app.remaining(true);
    const std::string wrong =
        unknown.empty() ? "what to do is missing" : "'" + unknown.front() + "' is no command";
    return wrong + " after \"" + path + "\"; right would be one of: " + names + advice;
}

} // namespace chronal::ctl
