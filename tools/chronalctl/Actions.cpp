#include "Actions.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <chronal/Helpers.h>

#include "Failure.h"
#include "Output.h"

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
    print(given.json ? asJson(answer) : asTable(answer));
}

void fetchSettings(UserAdapter& adapter, Ids& ids) { adapter.cmdDateTimeSettingsFetch(ids); }

} // namespace

void request(const Arguments& given, const char* answer, const SyncClient::Send& send)
{
    if (answer == std::string_view("result"))
        noteSimulation(given);
    Connection<SyncClient> service = connect(given);
    printAnswer(given, requestAccepted(service, given.command, answer, send));
}

void showStatus(const Arguments& given)
{
    Connection<SyncClient> service = connect(given);
    // A refusal does not keep the rest from being shown, but decides the exit status.
    std::optional<Failure> firstRefusal;
    const auto fetch = [&](const std::string& command, const char* answer,
                           const SyncClient::Send& send) {
        Report report = service->request(send, answer);
        if (report.result < 0 && !firstRefusal)
            firstRefusal = refusal(command, report.result);
        return report;
    };
    Status status;
    for (const ReferenceTimeId source : {referenceTimeRtc, referenceTimeNtp, referenceTimeDvb,
                                         referenceTimeTeletext, referenceTimeAtsc}) {
        const std::string name = Helpers::getRefTimeStr(source);
        status.sources.push_back(
            {name, fetch("ref-time get " + name, "ref-time", [&](UserAdapter& adapter, Ids& ids) {
                 adapter.cmdRefTimeFetch(ids, source);
             })});
    }
    status.timezone = fetch("timezone get", "timezone",
                            [](UserAdapter& adapter, Ids& ids) { adapter.cmdTimezoneFetch(ids); });
    status.nextDeviation =
        fetch("deviation next get RTC", "next-deviation", [](UserAdapter& adapter, Ids& ids) {
            adapter.cmdNextTimeDeviationChangeFetch(ids, referenceTimeRtc);
        });
    status.settings = fetch("settings get", "settings", fetchSettings);
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
        std::fputs("chronalctl: the service is simulated in this process and ends with it; to keep "
                   "one running, start chronal-simd\n",
                   stderr);
}

} // namespace chronal::ctl
