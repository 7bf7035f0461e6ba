#ifndef CHRONALCTL_CLIENT_H
#define CHRONALCTL_CLIENT_H

#include <memory>
#include <string>
#include <utility>

#include <chronal-sim/Start.h>
#include <chronal/UserAdapter.h>

#include "Report.h"

namespace chronal::ctl {

/// Turns answers and notifications into reports. The functions are called on the session's dispatch
/// thread.
class Client : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    void onServiceConnected() final;
    void onServiceConnectionFailed(int reason) final;
    void onServiceDisconnected(int reason) final;

protected:
    virtual void connected() = 0;
    /// Not connected, or no longer; `reason` is an error number, or 0 if the service has closed the
    /// connection.
    virtual void notConnected(int reason) = 0;
    virtual void answered(const fabric::MsgIds& ids, const Report& answer) = 0;
    virtual void notified(const Report& notification) = 0;

private:
    using Ids = fabric::MsgIds;
    using Stamp = nubOsalTime_struct;

    void onReplyResult(const Ids& ids, int result) final;
    void onReplyTimeRefInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                            const Stamp& local, const ReferenceTimeId& source, bool valid,
                            int value) final;
    void onReplyTimeRefAt(const Ids& ids, const Stamp& utc, const Stamp& local,
                          const ReferenceTimeId& source) final;
    void onReplyTimeAt(const Ids& ids, const Stamp& utc, const Stamp& local) final;
    void onReplyUtcDeviationInfo(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                                 const Stamp& local, const ReferenceTimeId& source) final;
    void onReplyDateTimeSettingsInfo(const Ids& ids, const Stamp& time, const Stamp& time1,
                                     const Stamp& time2, const Stamp& time3, const Stamp& time4,
                                     const int& value, const std::string& server,
                                     const bool& automatic, const bool& ntpUsed,
                                     const bool& zoneSync) final;
    void onReplyTimezoneInfo(const Ids& ids, const std::string& zone, const Stamp& time) final;
    void onNotifyCurrentTime(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                             const Stamp& local, int flag, int value) final;
    void onNotifyDeviationChange(const Ids& ids, const Stamp& deviation, const Stamp& utc,
                                 const Stamp& local) final;
    void onNotifyTimezoneChange(const Ids& ids, const std::string& zone, const Stamp& time) final;
    void onNotifyDtvTimeChange(const Ids& ids, const Stamp& time) final;
    void onNotifyDSTChange(const Ids& ids, int dst) final;
};

std::unique_ptr<fabric::host::Session> startSession(const std::string& socket);

/// A client with its own session, connected as long as it exists.
template <class ClientType>
class Connection
{
public:
    template <class... Arguments>
    explicit Connection(const std::string& socket, Arguments&&... arguments)
        : session(startSession(socket)),
          client(session->application(), session->component(),
                 std::forward<Arguments>(arguments)...),
          attachment(*session, client)
    {
        client.setServiceInterface(&session->service());
        session->connect();
    }

    ClientType* operator->() { return &client; }

private:
    const std::unique_ptr<fabric::host::Session> session;
    ClientType client;
    const fabric::host::Attachment attachment;
};

} // namespace chronal::ctl

#endif
