#include "Actions.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <variant>

#include <fnmatch.h>

#include <chronal/Helpers.h>

#include "Failure.h"
#include "Output.h"
#include "ParsedOption.h"
#include "StandardStreams.h"
#include "WireTime.h"

namespace chronal::ctl {

namespace {

using Ids = fabric::MsgIds;

Connection<SyncClient> connect(const Arguments& given)
{
    return Connection<SyncClient>(given.socket, given.timeout, given.socket);
}

/// Throws Failure if the answer is a refusal.
Report requestAccepted(Connection<SyncClient>& service, const std::string& command,
                       const char* answer, const SyncClient::Send& send)
{
    Report report = service->request(send, answer);
    if (report.result < 0)
        throw refusal(command, report.result);
    return report;
}

template <class Answer>
void printAnswer(const Arguments& given, const Answer& answer)
{
    print(given.json ? asJson(answer) : tools::fitted(asTable(answer)));
}

void fetchSettings(UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); }

bool hasNoTime(const Report& report)
{
    for (const Field& field : report.fields)
        if (const Span* const span = std::get_if<Span>(&field.value))
            return nubOsalCompareTime(&span->value, &Helpers::deviationUnknown) == 0;
    return false;
}

} // namespace

void request(const Arguments& given, const char* answer, const SyncClient::Send& send)
{
    if (answer == std::string_view("result"))
        noteSimulation(given);
    Connection<SyncClient> service = connect(given);
    Report report = requestAccepted(service, given.command, answer, send);
    if (given.json && given.occurs)
        report.fields.push_back({"occurs", *given.occurs});
    const bool timeless = hasNoTime(report);
    if (given.json || !timeless)
        printAnswer(given, report);
    if (timeless) {
        const std::string source = std::get<std::string>(report.field("source").value);
        throw Failure(ExitStatus::noTime, 0, source + " has no time",
                      "To set it: chronalctl ref-time set " + source + " TIME");
    }
}

std::optional<tools::ClockChange> clockChange(const Arguments& given)
{
    const std::optional<sim::Local> local = sim::readLocal(given.time);
    if (!local || given.negate || sim::isAnnounced(given.deviation))
        return std::nullopt;
    Connection<SyncClient> service = connect(given);
    return tools::findClockChange(*local, [&](sim::Utc moment) {
        const auto convert = [&](UserAdapter& adapter, Ids& ids) {
            if (given.source == referenceTimeInvalid)
                adapter.cmdUTCTimeAt(ids, sim::wireTime(moment));
            else
                adapter.cmdRefTimeAt(ids, sim::wireTime(moment), given.source);
        };
        const char* const answer = given.source == referenceTimeInvalid ? "time-at" : "ref-time-at";
        const Report report = requestAccepted(service, given.command, answer, convert);
        const auto shown = sim::readLocal(std::get<Time>(report.field("local").value).value);
        return shown.value_or(sim::Local()).time_since_epoch() - moment.time_since_epoch();
    });
}

void showSettings(const Arguments& given, const std::vector<std::string>& names)
{
    Connection<SyncClient> service = connect(given);
    Report report = requestAccepted(service, given.command, "settings", fetchSettings);
    const auto isOther = [&](const Field& field) {
        return std::find(names.begin(), names.end(), field.name) == names.end();
    };
    report.fields.erase(std::remove_if(report.fields.begin(), report.fields.end(), isOther),
                        report.fields.end());
    printAnswer(given, report);
}

void listZones(const Arguments& given)
{
    namespace fs = std::filesystem;
    const bool isGlob = given.text.find_first_of("*?[") != std::string::npos;
    const std::string pattern = isGlob ? given.text : '*' + given.text + '*';
    const char* const chosen = std::getenv("TZDIR");
    const fs::path database = chosen && *chosen ? chosen : "/usr/share/zoneinfo";
    std::set<std::string> names;
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(database, ignored), end; entry != end;
         entry.increment(ignored)) {
        const std::string name = entry->path().lexically_relative(database);
        // The zones once more, without and with leap seconds, and one of them.
        if (name == "posix" || name == "right" || name == "posixrules")
            entry.disable_recursion_pending();
        else if (fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0 && sim::findZone(name))
            names.insert(name);
    }
    if (names.empty())
        throw Failure(
            ExitStatus::badUsage, 0,
            "no time zone in " + database.string() + " matches '" + pattern + "'",
            "Expected a part of its name, such as berlin, or a pattern, such as 'asia/*'");
    print(given.json ? asJson(names) : tools::join({names.begin(), names.end()}, "\n") + '\n');
}

void showStatus(const Arguments& given)
{
    Connection<SyncClient> service = connect(given);
    // A refusal does not keep the rest from being shown, but decides the exit status.
    std::optional<Failure> firstRefusal;
    Status status;
    const auto fetch = [&](const std::string& label, const char* key, const std::string& command,
                           const char* answer, const SyncClient::Send& send) {
        status.push_back({label, key, service->request(send, answer)});
        const int result = status.back().report.result;
        if (result < 0 && !firstRefusal)
            firstRefusal = refusal(command, result);
    };
    for (const ReferenceTimeId source : {referenceTimeRtc, referenceTimeNtp, referenceTimeDvb,
                                         referenceTimeTeletext, referenceTimeAtsc}) {
        const std::string name = Helpers::getRefTimeStr(source);
        fetch(name, "sources", "ref-time get " + name, "ref-time",
              [&](UserAdapter& adapter, Ids& ids) { adapter.cmdRefTimeFetch(ids, source); });
    }
    fetch("zone", "timezone", "timezone get", "timezone",
          [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); });
    fetch("next change", "next_deviation", "deviation next get RTC", "next-deviation",
          [](UserAdapter& adapter, Ids& ids) {
              adapter.cmdNextTimeDeviationChangeFetch(ids, referenceTimeRtc);
          });
    fetch("settings", "settings", "settings get", "settings", fetchSettings);
    printAnswer(given, status);
    if (firstRefusal)
        throw Failure(*firstRefusal);
}

void changeSettings(const Arguments& given)
{
    noteSimulation(given);
    Connection<SyncClient> service = connect(given);
    const Report old = requestAccepted(service, "settings get", "settings", fetchSettings);
    const auto time = [&](std::size_t index, const char* name) {
        return given.times[index].value_or(std::get<Time>(old.field(name).value).value);
    };
    const auto number = static_cast<int>(std::get<std::int64_t>(old.field("value").value));
    const std::string server = std::get<std::string>(old.field("ntp_server").value);
    const auto set = [&](UserAdapter& adapter, Ids& ids) {
        adapter.cmdDateTimeSettingsSet(ids, time(0, "time1"), time(1, "time2"), time(2, "time3"),
                                       time(3, "time4"), given.number.value_or(number),
                                       given.server.value_or(server));
    };
    printAnswer(given, requestAccepted(service, given.command, "result", set));
}

void noteSimulation(const Arguments& given)
{
    if (given.socket.empty())
        remark("the service is simulated in this process and ends with it; to keep one running, "
               "start chronal-simd");
}

} // namespace chronal::ctl
