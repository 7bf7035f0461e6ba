#include "Commands.h"

#include <algorithm>
#include <cerrno>

#include "Actions.h"
#include "ParsedOption.h"
#include "Parsers.h"
#include "TimeService.h"
#include "TimeText.h"
#include "WireTime.h"

namespace chronal::ctl {

namespace {

constexpr char sourceType[] = "{RTC,NTP,DVB,TTX,ATSC}";

const std::string sourceNames = "RTC, NTP, DVB, TTX or ATSC";

const Argument source = {
    "SOURCE",
    sourceType,
    "RTC, NTP, DVB, TTX (teletext) or ATSC",
    read<&Arguments::source, parseSource>,
    {{EINVAL, "the service has no source {SOURCE}; expected " + sourceNames,
      [](const Arguments& given) { return given.source == referenceTimeInvalid; }}}};

void readSources(const std::string& text, Arguments& given)
{
    const ReferenceTimeId added = parseSource(text);
    if (std::find(given.sources.begin(), given.sources.end(), added) == given.sources.end())
        given.sources.push_back(added);
}

const Argument sources = {
    "SOURCE...",
    sourceType,
    "Also print the current times of these sources",
    readSources,
    {{EINVAL, "the service does not have all of {SOURCE...}; expected " + sourceNames}}};

template <nubOsalTime_struct Arguments::*member>
Argument utc(const char* name, const std::string& help)
{
    const auto applies = [](const Arguments& given) {
        return !given.negate && !sim::readUtc(given.*member);
    };
    const std::string typed = "'{" + std::string(name) + "}'";
    return {name,
            "",
            help + ", such as 2026-03-29T01:00:00Z, @1774746000, now or +5min",
            [](const std::string& text, Arguments& given) {
                given.*member = tools::parseUtc(text, &given.remarks);
            },
            {{EINVAL, typed + " is not within the years 1970 to 9999", applies}}};
}

Argument local(const std::string& help)
{
    // In UTC it may be up to largestDeviation away.
    const auto isOutside = [](const Arguments& given) {
        const std::optional<sim::Local> time = sim::readLocal(given.time);
        const auto end = sim::calendarEnd.time_since_epoch() - sim::largestDeviation;
        return !given.negate && (!time || time->time_since_epoch() < sim::largestDeviation ||
                                 time->time_since_epoch() >= end);
    };
    const auto hasNoDeviation = [](const Arguments& given) {
        return !given.negate && sim::readDeviation(given.deviation) == sim::Span::zero();
    };
    return {"TIME",
            "",
            help + ", such as 2026-03-29T03:00:00",
            read<&Arguments::time, tools::parseLocal>,
            {{EINVAL, "'{TIME}' is not within the years 1970 to 9999 of UTC", isOutside},
             {EINVAL,
              "'{TIME}' does not exist: the clocks skip it; "
              "--earlier or --later takes a time before or after the change",
              hasNoDeviation}}};
}

template <nubOsalTime_struct Arguments::*member>
Argument span(const char* name, const char* type, const char* help)
{
    const auto applies = [](const Arguments& given) { return !sim::readDeviation(given.*member); };
    const std::string typed = "'{" + std::string(name) + "}'";
    return {name,
            type,
            help,
            read<member, tools::parseSpan>,
            {{EINVAL, typed + " is too large; expected a deviation from -24h to +24h", applies}}};
}

template <auto member, bool value>
Argument flag(const char* name, const char* help, const std::vector<Advice>& advice = {})
{
    const auto set = [](const std::string&, Arguments& given) { given.*member = value; };
    return {name, nullptr, help, set, advice};
}

const Argument deviation =
    span<&Arguments::deviation>("--deviation", "SPAN",
                                "Local time minus UTC, such as +1h30m; the time zone's if 0 or not "
                                "given");
const Argument value = {"--value", "NUMBER", "A number to keep with the time (default: 0)",
                        read<&Arguments::value, tools::parseWholeNumber<int>>};
const Argument negate = flag<&Arguments::negate, true>(
    "--negate", "Send the time negated",
    {{EINVAL, "'{TIME}', negated, is not within the years 1970 to 9999",
      [](const Arguments& given) { return given.negate; }}});
template <bool later>
void choose(const std::string&, Arguments& given)
{
    if (given.later)
        throw CLI::ExcludesError("--earlier", "--later");
    given.later = later;
}

const Argument earlier = {"--earlier", nullptr,
                          "Of a time that occurs twice, the first; of one that the clocks skip, "
                          "one as long before the change as it seems to be after it",
                          choose<false>};
const Argument later = {"--later", nullptr, "The second; or one as long after the change",
                        choose<true>};
const Argument timestamps = flag<&Arguments::timestamps, true>(
    "--timestamps", "Begin lines with the time at which they arrive, by this machine's clock");
const Argument state = {"STATE", "{on,off,get}", "on or off, or get to show it", readState};
const Argument duration = {"--for", "DURATION", "End after this time",
                           read<&Arguments::duration, parseWait>};
const Argument count = {"--count", "N", "End after this many notifications",
                        read<&Arguments::count, tools::parseWholeNumber<std::uint64_t, 1>>};

template <std::size_t index>
void readSettingsTime(const std::string& text, Arguments& given)
{
    given.times[index] = tools::parseUtc(text, &given.remarks);
}

const Advice sourceLocked = {
    EBUSY, "{SOURCE} is locked; to unlock it: chronalctl ref-time unlock {SOURCE}"};

const std::string tooLong = "has more than " + std::to_string(sim::longestText) + " characters";

bool textIsTooLong(const Arguments& given) { return given.text.size() > sim::longestText; }

/// Sends `command` with these arguments, and prints its answer.
template <auto command, auto... members>
std::function<void(const Arguments&)> sends(const char* answer = "result")
{
    return [answer](const Arguments& given) {
        request(given, answer, [&](UserAdapter& adapter, fabric::MsgIds& ids) {
            (adapter.*command)(ids, given.*members...);
        });
    };
}

/// Sends `command` with the state, or prints this field of the settings.
template <auto command>
std::function<void(const Arguments&)> switches(const char* field)
{
    return [field](const Arguments& given) {
        given.show ? showSettings(given, {field}) : sends<command, &Arguments::on>()(given);
    };
}

using A = Arguments;
using U = UserAdapter;

/// Sends a command with a local time and `members`; where the clocks change, one with the UTC time
/// that is chosen, or the earlier one.
template <auto atLocal, auto atUtc, auto... members>
void sendAtLocal(A given, const char* answer)
{
    const std::optional<tools::ClockChange> change = clockChange(given);
    given.occurs = !change ? "once" : change->skips ? "never" : "twice";
    if (!change || (change->skips && !given.later))
        return sends<atLocal, &A::time, members...>(answer)(given);
    given.time = sim::wireTime(given.later.value_or(false) ? change->later : change->earlier);
    sends<atUtc, &A::time, members...>(answer)(given);
    remark("'" + given.texts.at("TIME") +
           (change->skips ? "' does not exist; " : "' occurs twice; ") +
           tools::formatUtc(given.time) + " is taken" +
           (given.later ? "" : "; to take the other: --later"));
}

} // namespace

const std::vector<Command> commands = {
    {"status", "Show all times, the time zone and the settings", {}, showStatus},
    {"monitor",
     "Print notifications until interrupted, also after the service restarts",
     {sources, duration, count, timestamps},
     [](const A& given) { monitor(given, given.sources, true); }},

    {"ref-time", "Show, set, lock and watch the time of a source"},
    {"ref-time get",
     "Show a source's times",
     {source},
     sends<&U::cmdRefTimeFetch, &A::source>("ref-time")},
    {"ref-time set",
     "Set a source's UTC time",
     {source, utc<&A::time>("TIME", "The source's time from now on"), deviation, value, negate},
     sends<&U::cmdRefTimeSet, &A::time, &A::deviation, &A::source, &A::value, &A::negate>(),
     {sourceLocked}},
    {"ref-time set-local",
     "Set a source's local time",
     {source, local("The source's time from now on"), deviation, value, negate, earlier, later},
     [](const A& given) {
         sendAtLocal<&U::cmdRefLocalTimeSet, &U::cmdRefTimeSet, &A::deviation, &A::source,
                     &A::value, &A::negate>(given, "result");
     },
     {sourceLocked}},
    {"ref-time at",
     "Show what a source will show at a moment",
     {source, utc<&A::time>("TIME", "The moment, in UTC")},
     sends<&U::cmdRefTimeAt, &A::time, &A::source>("ref-time-at")},
    {"ref-time subscribe",
     "Print a source's current time repeatedly until interrupted",
     {source, duration, count, timestamps},
     [](const A& given) { monitor(given, {given.source}, false); }},
    {"ref-time unsubscribe",
     "Send the end of a subscription (a subscription also ends with its program)",
     {source},
     sends<&U::cmdRefTimeUnsubscribe, &A::source>()},
    {"ref-time lock",
     "Keep all clients from setting a source",
     {source},
     sends<&U::cmdRefTimeLock, &A::source>()},
    {"ref-time unlock",
     "Let clients set a source again",
     {source},
     sends<&U::cmdRefTimeUnlock, &A::source>()},

    {"deviation", "Show and announce the deviation of local time from UTC"},
    {"deviation next", "Show and announce its next change"},
    {"deviation next get",
     "Show the next change: its time and the new deviation",
     {source},
     sends<&U::cmdNextTimeDeviationChangeFetch, &A::source>("next-deviation")},
    {"deviation next set",
     "Announce the next change",
     {source, utc<&A::time>("TIME", "When it changes, in UTC"),
      span<&A::deviation>("SPAN", "", "The deviation from then on, such as +1h30m")},
     sends<&U::cmdNextTimeDeviationChangeSet, &A::time, &A::deviation, &A::source>(),
     {sourceLocked}},

    {"dst", "Announce daylight saving"},
    {"dst announce",
     "Announce a period of daylight saving",
     {source, utc<&A::time>("BEGIN", "When it begins, in UTC"),
      utc<&A::end>("END", "When it ends, in UTC"),
      span<&A::deviation>("DURING", "", "The deviation during the period, such as +2h"),
      span<&A::deviationAfter>("AFTER", "", "The deviation after it, such as +1h")},
     sends<&U::cmdSendDaylightsavingInfo, &A::time, &A::end, &A::deviationAfter, &A::deviation,
           &A::source>(),
     {sourceLocked,
      {EINVAL, "'{BEGIN}' is not before '{END}'",
       [](const A& given) { return nubOsalCompareTime(&given.time, &given.end) >= 0; }}}},

    {"at", "Convert between UTC and local time"},
    {"at utc",
     "Show UTC and local time at a moment in UTC",
     {utc<&A::time>("TIME", "The moment")},
     sends<&U::cmdUTCTimeAt, &A::time>("time-at")},
    {"at local",
     "Show UTC and local time at a moment in local time",
     {local("The moment"), earlier, later},
     [](const A& given) { sendAtLocal<&U::cmdLocaltimeAt, &U::cmdUTCTimeAt>(given, "time-at"); }},

    {"settings", "Show and change the date and time settings"},
    {"settings get", "Show the settings", {}, sends<&U::cmdDateTimeSettingsFetch>("settings")},
    {"settings set",
     "Change some settings and keep the others",
     {{"--time1", "TIME", "Time 1 of the settings", readSettingsTime<0>},
      {"--time2", "TIME", "Time 2 of the settings", readSettingsTime<1>},
      {"--time3", "TIME", "Time 3 of the settings", readSettingsTime<2>},
      {"--time4", "TIME", "Time 4 of the settings", readSettingsTime<3>},
      {"--value", "NUMBER", "The value of the settings",
       read<&A::number, tools::parseWholeNumber<int>>},
      {"--server", "NAME", "The NTP server", read<&A::server, parseText>}},
     changeSettings,
     {{EINVAL, "NTP is in use and needs a server; to do without one: chronalctl ntp set '' --off",
       [](const A& given) { return given.server == ""; }},
      {EINVAL, "the server's name " + tooLong,
       [](const A& given) { return given.server.value_or("").size() > sim::longestText; }}},
     1},

    {"ntp", "Show, configure and start NTP"},
    {"ntp get",
     "Show the server, and whether it is used",
     {},
     [](const A& given) {
         showSettings(given, {"ntp_server", "ntp_used"});
     }},
    {"ntp set",
     "Set the server, and use it",
     {{"SERVER", "", "Name of the server", read<&A::text, parseText>},
      flag<&A::on, false>("--off", "Do not use it")},
     sends<&U::cmdDateTimeNtpSet, &A::text, &A::on>(),
     {{EINVAL, "NTP needs a server's name; to switch NTP off: --off",
       [](const A& given) { return given.text.empty(); }},
      {EINVAL, "the server's name " + tooLong, textIsTooLong}}},
    {"ntp start",
     "Get the time from the server now",
     {},
     sends<&U::cmdDateTimeNtpStart>(),
     {{EPERM,
       "NTP is not in use: the service in this process is a new one in every run; to keep one "
       "running, start chronal-simd",
       [](const A& given) { return given.socket.empty(); }},
      {EPERM, "NTP is not in use; to use it: chronalctl ntp set SERVER"},
      {EBUSY, "NTP is locked; to unlock it: chronalctl ref-time unlock NTP"}}},

    {"auto-time",
     "Choose whether the clock follows the times that sources are set to",
     {state},
     switches<&U::cmdDateTimeAutoTimeSet>("automatic_time")},
    {"time-init",
     "Reset all sources to their initial state",
     {},
     sends<&U::cmdTimeInit>(),
     {{EBUSY, "a source is locked; to unlock it: chronalctl ref-time unlock SOURCE"}}},

    {"timezone", "Show and change the time zone"},
    {"timezone get", "Show the time zone", {}, sends<&U::cmdTimezoneFetch>("timezone")},
    {"timezone list",
     "List the time zones of this machine's database",
     {{"PATTERN?", "",
       "Only those with this in their names, such as berlin, or named like 'asia/*'",
       read<&A::text, parseText>}},
     listZones},
    {"timezone set",
     "Change the time zone",
     {{"ZONE", "", "Name of the zone, for example Europe/Berlin", read<&A::text, parseText>}},
     sends<&U::cmdTimezoneSet, &A::text>(),
     {{ENOENT, "the service does not know the time zone '{ZONE}'; expected a name of the "
               "time-zone database, for example Europe/Berlin"},
      {EINVAL, "the zone's name " + tooLong, textIsTooLong}}},
    {"timezone sync",
     "Switch synchronisation of the time zone on or off",
     {state},
     switches<&U::cmdTimezoneSyncEnableSet>("zone_sync")},
};

} // namespace chronal::ctl
