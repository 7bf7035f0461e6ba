#ifndef CHRONAL_SIM_TIME_SERVICE_H
#define CHRONAL_SIM_TIME_SERVICE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <chronal-sim/Messages.h>
#include <chronal/MessageRecords.h>
#include <fabric-host/Service.h>

#include "Clock.h"
#include "ZoneRules.h"
#include "api-chronal-record-text.h"

namespace chronal::sim {

using detail::copyText;
using detail::readText;

/// The longest accepted name of a zone or a server, in bytes. Real names are shorter.
inline constexpr std::size_t longestText = 255;

struct Options
{
    std::string zone = "UTC";                                               ///< at the start
    std::chrono::milliseconds notificationPeriod = std::chrono::seconds(1); ///< up to a day
};

/// A time service that behaves like a device's.
///
/// Five sources each keep a time that runs on. RTC and NTP start with the true time; DVB, teletext
/// and ATSC have none until they are set. A source's deviation from UTC is the zone's until one
/// that has been announced for the source comes into force; that one holds until the next
/// announced change. Announcements are dropped when the zone is set or the time is initialised.
///
/// A clock, the machine's or a source's, that leaves the years 1970 to 9999 continues at their
/// other end; clients are notified of a changed deviation after the next command.
///
/// The service answers every command to its sender, with the command's ids; notifications follow
/// the answer. "Result" is replyResult with 0. A refusal is replyResult with a negative error
/// number, and changes nothing. A source that does not exist is refused with -EINVAL, as are
/// absolute times outside the years 1970 to 9999 and deviations of more than 24 hours. Times need
/// not be normalised.
///
/// | command (cmd...)             | effect                        | answer, refusals              |
/// |------------------------------|-------------------------------|-------------------------------|
/// | RefTimeSet                   | the source's UTC is time1;    | Result; -EBUSY when locked    |
/// |                              | value is stored; time2 is its |                               |
/// |                              | deviation, unless it is zero  |                               |
/// |                              | or a marker                   |                               |
/// | RefLocalTimeSet              | the same with a local time1,  | Result; -EBUSY when locked;   |
/// |                              | converted by time2, else by   | -EINVAL for a local time that |
/// |                              | the rule in force, to the     | a change skips                |
/// |                              | earlier UTC of two            |                               |
/// | RefTimeFetch                 |                               | replyTimeRefInfo: the times   |
/// |                              |                               | and value; flag 1 with a time |
/// | NextTimeDeviationChangeSet   | announces deviation time2     | Result; -EBUSY when locked    |
/// |                              | from UTC time1 on; replaces   |                               |
/// |                              | pending changes               |                               |
/// | SendDaylightsavingInfo       | announces daylight saving     | Result; -EBUSY when locked;   |
/// |                              | from UTC time1 to time2 with  | -EINVAL unless time1 < time2  |
/// |                              | deviation time4, and time3    |                               |
/// |                              | afterwards; replaces pending  |                               |
/// |                              | changes                       |                               |
/// | NextTimeDeviationChangeFetch |                               | replyUtcDeviationInfo: UTC    |
/// |                              |                               | and local time of the next    |
/// |                              |                               | change, the deviation after   |
/// |                              |                               | it; deviationInvalid for none |
/// | RefTimeSubscribe             | notifyCurrentTime each period | Result, also when subscribed  |
/// | RefTimeUnsubscribe           | ends the subscription         | Result, also when not         |
/// |                              |                               | subscribed                    |
/// | RefTimeLock, RefTimeUnlock   | for all clients, until undone | Result, also when so already  |
/// | RefTimeAt                    |                               | replyTimeRefAt: UTC time1,    |
/// |                              |                               | and local time by the         |
/// |                              |                               | source's deviation at that    |
/// |                              |                               | time                          |
/// | UTCTimeAt, LocaltimeAt       |                               | replyTimeAt: UTC and local    |
/// |                              |                               | time by the zone, the earlier |
/// |                              |                               | UTC of two; -EINVAL for a     |
/// |                              |                               | local time that a transition  |
/// |                              |                               | skips                         |
/// | DateTimeSettingsSet          | stores time1 to time4, value, | Result; -EINVAL for text over |
/// |                              | text (the NTP server); flag1, | 255 characters, or empty with |
/// |                              | flag2 unless -1: automatic    | NTP in use                    |
/// |                              | time, NTP use                 |                               |
/// | TimezoneSyncEnableSet        | stores the word               | Result                        |
/// | DateTimeNtpSet               | NTP server and NTP use        | Result; -EINVAL as above      |
/// | DateTimeNtpStart             | the NTP source gets the true  | Result; -EPERM with NTP not   |
/// |                              | time                          | in use; -EBUSY when locked    |
/// | DateTimeAutoTimeSet          | automatic time on or off      | Result                        |
/// | DateTimeSettingsFetch        |                               | replyDateTimeSettingsInfo:    |
/// |                              |                               | all of these; time0 is the    |
/// |                              |                               | RTC's UTC                     |
/// | TimezoneSet                  | sets the zone, drops all      | Result; -ENOENT for an        |
/// |                              | announcements                 | unknown zone; -EINVAL for     |
/// |                              |                               | more than 255 characters      |
/// | TimezoneFetch                |                               | replyTimezoneInfo: the zone,  |
/// |                              |                               | the RTC's UTC                 |
/// | TimeInit                     | sources as at the start,      | Result; -EBUSY when any       |
/// |                              | automatic time off; zone,     | source is locked              |
/// |                              | settings and subscriptions    |                               |
/// |                              | stay                          |                               |
///
/// With automatic time on, a time that another source is set to becomes the RTC's as well, unless
/// the RTC is locked. A source without a time has deviationUnknown as its deviation, also after its
/// next change, and zero times.
///
/// | notification          | to                | when                                             |
/// |-----------------------|-------------------|--------------------------------------------------|
/// | notifyDtvTimeChange   | all clients       | the DVB or ATSC source has been set              |
/// | notifyTimezoneChange  | all clients       | the zone has changed                             |
/// | notifyDeviationChange | all clients       | the RTC's deviation has changed, by a command or |
/// |                       |                   | by the passing of time                           |
/// | notifyDSTChange       | all clients       | the same for its daylight-saving state; 1 or 0   |
/// | notifyCurrentTime     | each subscriber   | each period after subscribing; periods missed    |
/// |                       | of the source     | are skipped                                      |
///
/// Notifications of one occasion come in the order of this table, with originId 0 and a running
/// messageId. A client that disconnects loses its subscriptions; its locks stay.
class TimeService final : public fabric::host::Service
{
public:
    /// `clock` must outlive the service. Throws std::invalid_argument that names the wrong option.
    explicit TimeService(const Options& options = Options(), const Clock& clock = systemClock());

    const fabric::host::MessageCatalogue& catalogue() const override;
    void start(fabric::host::ClientSender& outlet) override;
    void clientConnected(fabric::host::ClientId client) override;
    void clientDisconnected(fabric::host::ClientId client) override;
    void commandReceived(fabric::host::ClientId client,
                         const fabric::SerializableMessageEvent& command) override;
    TimePoint runDue() override;

private:
    using ClientId = fabric::host::ClientId;

    struct Source
    {
        std::optional<Span> ahead; ///< of the true time; nullopt without a time
        std::int32_t value;
        bool locked;
        DeviationRule rule;
    };

    struct Settings
    {
        std::array<nubOsalTime_struct, 4> times;
        std::int32_t value;
        std::string ntpServer;
        bool ntpUsed;
        bool automaticTime;
        std::int32_t timezoneSyncEnable;
    };

    struct Handler;
    static const Handler handlers[];

    // Each function carries out one command and returns the answer.
    Content refTimeSet(const chronalMsgCmdRefTimeData_t& command);
    Content refLocalTimeSet(const chronalMsgCmdRefTimeData_t& command);
    Content refTimeFetch(const chronalMsgCmdRefTimeId_t& command);
    Content nextTimeDeviationChangeSet(const chronalMsgCmdRefTimeData_t& command);
    Content sendDaylightsavingInfo(const chronalMsgCmdRefTimeData_t& command);
    Content nextTimeDeviationChangeFetch(const chronalMsgCmdRefTimeId_t& command);
    Content refTimeSubscribe(ClientId client, const chronalMsgCmdRefTimeId_t& command);
    Content refTimeUnsubscribe(ClientId client, const chronalMsgCmdRefTimeId_t& command);
    Content refTimeLock(const chronalMsgCmdRefTimeId_t& command);
    Content refTimeUnlock(const chronalMsgCmdRefTimeId_t& command);
    Content refTimeAt(const chronalMsgCmdRefTimeData_t& command);
    Content timeAt(const chronalMsgCmdTimeAtData_t& command);
    Content dateTimeSettingsSet(const chronalMsgDateTime_t& command);
    Content timezoneSyncEnableSet(const chronalMsgDateTime_t& command);
    Content dateTimeNtpSet(const chronalMsgNtpData_t& command);
    Content dateTimeNtpStart(const chronalCmdDummy_t& command);
    Content dateTimeAutoTimeSet(const chronalMsgAutoTime_t& command);
    Content dateTimeSettingsFetch(const chronalMsgReplyResult_t& command);
    Content timezoneSet(const chronalMsgTimezone_t& command);
    Content timezoneFetch(const chronalMsgReplyResult_t& command);
    Content timeInit(const chronalMsgAutoTime_t& command);

    Source* find(referenceTimeId_enum id);
    static int refusalToSet(const Source* source);
    std::optional<Utc> utcOf(const Source& source) const;
    Utc rtcUtc() const;
    chronalMsgReplyTime_t timesOf(referenceTimeId_enum id) const;

    Content setTime(const chronalMsgCmdRefTimeData_t& command, bool isLocal);
    Content setLocked(referenceTimeId_enum id, bool locked);
    void setUtc(Source& source, Utc utc);
    void startSources();
    std::shared_ptr<const Zone> knownZone(const std::string& name);

    Content result(int code);
    template <class Make>
    void notify(ClientId client, Make content);
    void notifyAll(const Content& content);
    void notifyDeviation();
    void notifySubscribers(TimePoint now);

    const Clock& clock_;
    const Span period_;
    std::shared_ptr<const Zone> zone_;
    std::map<referenceTimeId_enum, Source> sources_;
    Settings settings_;

    fabric::host::ClientSender* outlet_;
    std::uint32_t lastNotification_;
    std::set<ClientId> clients_;
    std::map<std::pair<ClientId, referenceTimeId_enum>, TimePoint> subscriptions_; ///< next due
    TimePoint firstDue_ = TimePoint::max();               ///< no subscription is due earlier
    std::vector<std::shared_ptr<const Zone>> knownZones_; ///< most recently used first
    Content result_ = {};              ///< allocated in advance for the next result
    std::vector<Content> afterAnswer_; ///< notifications caused by the command in progress
    Period told_;                      ///< the RTC's period when clients were last notified
};

} // namespace chronal::sim

#endif
