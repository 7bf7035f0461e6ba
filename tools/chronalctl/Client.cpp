#include "Client.h"

#include <chronal/Helpers.h>

namespace chronal::ctl {

using chronal::Helpers::getRefTimeStr;

namespace {

Report answer(const char* name, std::vector<Field> fields)
{
    return {"answer", name, std::move(fields)};
}

Report notification(const char* name, std::vector<Field> fields)
{
    return {"notification", name, std::move(fields)};
}

} // namespace

void Client::onServiceConnected()
{
    UserAdapter::onServiceConnected();
    connected();
}

void Client::onServiceConnectionFailed(int reason)
{
    UserAdapter::onServiceConnectionFailed(reason);
    notConnected(reason);
}

void Client::onServiceDisconnected(int reason)
{
    UserAdapter::onServiceDisconnected(reason);
    notConnected(reason);
}

void Client::onReplyResult(const Ids& ids, int result)
{
    answered(ids, {"answer", "result", {{"result", std::int64_t{result}}}, result});
}

void Client::onReplyTimeRefInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                                const Stamp& local, const ReferenceTimeId& source, bool valid,
                                int value)
{
    answered(ids, answer("ref-time", {{"source", getRefTimeStr(source)},
                                      {"utc", Time{utc}},
                                      {"local", Time{local}},
                                      {"deviation", Span{deviation}},
                                      {"valid", valid},
                                      {"value", std::int64_t{value}}}));
}

void Client::onReplyTimeRefAt(const Ids& ids, const Stamp& utc, const Stamp& local,
                              const ReferenceTimeId& source)
{
    answered(ids, answer("ref-time-at", {{"source", getRefTimeStr(source)},
                                         {"utc", Time{utc}},
                                         {"local", Time{local}}}));
}

void Client::onReplyTimeAt(const Ids& ids, const Stamp& utc, const Stamp& local)
{
    answered(ids, answer("time-at", {{"utc", Time{utc}}, {"local", Time{local}}}));
}

void Client::onReplyUtcDeviationInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                                     const Stamp& local, const ReferenceTimeId& source)
{
    answered(ids, answer("next-deviation", {{"source", getRefTimeStr(source)},
                                            {"deviation", Span{deviation}},
                                            {"utc", Time{utc}},
                                            {"local", Time{local}}}));
}

void Client::onReplyDateTimeSettingsInfo(const Ids& ids, const Stamp& time, const Stamp& time1,
                                         const Stamp& time2, const Stamp& time3, const Stamp& time4,
                                         const int& value, const std::string& server,
                                         const bool& automatic, const bool& ntpUsed,
                                         const bool& zoneSync)
{
    answered(ids, answer("settings", {{"time", Time{time}},
                                      {"time1", Time{time1}},
                                      {"time2", Time{time2}},
                                      {"time3", Time{time3}},
                                      {"time4", Time{time4}},
                                      {"value", std::int64_t{value}},
                                      {"automatic_time", automatic},
                                      {"ntp_server", server},
                                      {"ntp_used", ntpUsed},
                                      {"zone_sync", zoneSync}}));
}

void Client::onReplyTimezoneInfo(const Ids& ids, const std::string& zone, const Stamp& time)
{
    answered(ids, answer("timezone", {{"zone", zone}, {"time", Time{time}}}));
}

void Client::onNotifyCurrentTime(const Ids&, const Stamp& deviation, const Stamp& utc,
                                 const Stamp& local, int flag, int value)
{
    notified(notification("current-time", {{"utc", Time{utc}},
                                           {"local", Time{local}},
                                           {"deviation", Span{deviation}},
                                           {"valid", flag != 0},
                                           {"value", std::int64_t{value}}}));
}

void Client::onNotifyDeviationChange(const Ids&, const Stamp& deviation, const Stamp& utc,
                                     const Stamp& local)
{
    notified(
        notification("deviation-change",
                     {{"deviation", Span{deviation}}, {"utc", Time{utc}}, {"local", Time{local}}}));
}

void Client::onNotifyTimezoneChange(const Ids&, const std::string& zone, const Stamp& time)
{
    notified(notification("timezone-change", {{"zone", zone}, {"time", Time{time}}}));
}

void Client::onNotifyDtvTimeChange(const Ids&, const Stamp& time)
{
    notified(notification("broadcast-time", {{"time", Time{time}}}));
}

void Client::onNotifyDSTChange(const Ids&, int dst)
{
    notified(notification("daylight-saving", {{"dst", std::int64_t{dst}}}));
}

std::unique_ptr<fabric::host::Session> startSession(const std::string& socket)
{
    return sim::start(socket);
}

} // namespace chronal::ctl
