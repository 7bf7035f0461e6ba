#ifndef CHRONALCTL_CLIENT_H
#define CHRONALCTL_CLIENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <chronal-sim/Start.h>
#include <chronal/Helpers.h>
#include <chronal/UserAdapter.h>

#include "Report.h"

namespace chronal::ctl {

/// Turns answers and notifications into reports. The functions are called on the session's dispatch
/// thread.
class Client : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    void onServiceConnected() final
    {
        UserAdapter::onServiceConnected();
        connected();
    }

    void onServiceConnectionFailed(int reason) final
    {
        UserAdapter::onServiceConnectionFailed(reason);
        notConnected(reason);
    }

    void onServiceDisconnected(int reason) final
    {
        UserAdapter::onServiceDisconnected(reason);
        notConnected(reason);
    }

protected:
    virtual void connected() = 0;
    /// Not connected, or no longer; `reason` is an error number, or 0 if the service has closed the
    /// connection.
    virtual void notConnected(int reason) = 0;
    virtual void answered(const fabric::MsgIds&, const Report&) {}
    virtual void notified(const Report&) {}

private:
    using Ids = fabric::MsgIds;
    using Stamp = nubOsalTime_struct;

    void answer(const Ids& ids, const char* name, std::vector<Field> fields)
    {
        answered(ids, {"answer", name, std::move(fields)});
    }

    void notification(const char* name, std::vector<Field> fields)
    {
        notified({"notification", name, std::move(fields)});
    }

    void onReplyResult(const Ids& ids, int result) final
    {
        answered(ids, {"answer", "result", {{"result", std::int64_t{result}}}, result});
    }

    void onReplyTimeRefInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                            const Stamp& local, const ReferenceTimeId& source, bool valid,
                            int value) final
    {
        answer(ids, "ref-time",
               {{"source", Helpers::getRefTimeStr(source)},
                {"utc", Time{utc}},
                {"local", Time{local}},
                {"deviation", Span{deviation}},
                {"valid", valid},
                {"value", std::int64_t{value}}});
    }

    void onReplyTimeRefAt(const Ids& ids, const Stamp& utc, const Stamp& local,
                          const ReferenceTimeId& source) final
    {
        answer(ids, "ref-time-at",
               {{"source", Helpers::getRefTimeStr(source)},
                {"utc", Time{utc}},
                {"local", Time{local}}});
    }

    void onReplyTimeAt(const Ids& ids, const Stamp& utc, const Stamp& local) final
    {
        answer(ids, "time-at", {{"utc", Time{utc}}, {"local", Time{local}}});
    }

    void onReplyUtcDeviationInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                                 const Stamp& local, const ReferenceTimeId& source) final
    {
        answer(ids, "next-deviation",
               {{"source", Helpers::getRefTimeStr(source)},
                {"deviation", Span{deviation}},
                {"utc", Time{utc}},
                {"local", Time{local}}});
    }

    void onReplyDateTimeSettingsInfo(const Ids& ids, const Stamp& time, const Stamp& time1,
                                     const Stamp& time2, const Stamp& time3, const Stamp& time4,
                                     const int& value, const std::string& server,
                                     const bool& automatic, const bool& ntpUsed,
                                     const bool& zoneSync) final
    {
        answer(ids, "settings",
               {{"time", Time{time}},
                {"time1", Time{time1}},
                {"time2", Time{time2}},
                {"time3", Time{time3}},
                {"time4", Time{time4}},
                {"value", std::int64_t{value}},
                {"automatic_time", automatic},
                {"ntp_server", server},
                {"ntp_used", ntpUsed},
                {"zone_sync", zoneSync}});
    }

    void onReplyTimezoneInfo(const Ids& ids, const std::string& zone, const Stamp& time) final
    {
        answer(ids, "timezone", {{"zone", zone}, {"time", Time{time}}});
    }

    void onNotifyCurrentTime(const Ids&, const Stamp& deviation, const Stamp& utc,
                             const Stamp& local, int flag, int value) final
    {
        notification("current-time", {{"utc", Time{utc}},
                                      {"local", Time{local}},
                                      {"deviation", Span{deviation}},
                                      {"valid", flag != 0},
                                      {"value", std::int64_t{value}}});
    }

    void onNotifyDeviationChange(const Ids&, const Stamp& deviation, const Stamp& utc,
                                 const Stamp& local) final
    {
        notification("deviation-change",
                     {{"deviation", Span{deviation}}, {"utc", Time{utc}}, {"local", Time{local}}});
    }

    void onNotifyTimezoneChange(const Ids&, const std::string& zone, const Stamp& time) final
    {
        notification("timezone-change", {{"zone", zone}, {"time", Time{time}}});
    }

    void onNotifyDtvTimeChange(const Ids&, const Stamp& time) final
    {
        notification("broadcast-time", {{"time", Time{time}}});
    }

    void onNotifyDSTChange(const Ids&, int dst) final
    {
        notification("daylight-saving", {{"dst", std::int64_t{dst}}});
    }
};

/// A client with its own session, connected as long as it exists.
template <class ClientType>
class Connection
{
public:
    template <class... Arguments>
    explicit Connection(const std::string& socket, Arguments&&... arguments)
        : session_(sim::start(socket)),
          client_(session_->application(), session_->component(),
                  std::forward<Arguments>(arguments)...),
          attachment_(*session_, client_)
    {
        client_.setServiceInterface(&session_->service());
        session_->connect();
    }

    ClientType* operator->() { return &client_; }

private:
    const std::unique_ptr<fabric::host::Session> session_;
    ClientType client_;
    const fabric::host::Attachment attachment_;
};

} // namespace chronal::ctl

#endif
