#include "CommandRows.h"

#include <cstring>
#include <string>

using chronal::UserAdapter;
using fabric::MsgIds;

namespace {

/// A time as a caller may have it: with its padding set.
class Time
{
public:
    Time(std::int64_t seconds, std::int32_t microseconds)
    {
        const struct
        {
            alignas(8) std::int64_t seconds;
            std::int32_t microseconds;
            std::uint32_t padding;
        } words = {seconds, microseconds, paddingOfCaller};
        static_assert(sizeof(words) == sizeof(time_), "the same, with a name for the padding");
        std::memcpy(&time_, &words, sizeof(time_));
    }

    operator const nubOsalTime_struct&() const { return time_; }

private:
    nubOsalTime_struct time_;
};

const Time a = {5, 250000};
const Time b = {-7, -1};
const Time c = {0x123456789LL, 1000001};
const Time d = {1, 2};
const Time least = {INT64_MIN, INT32_MIN};
const chronal::ReferenceTimeId ntp = chronal::referenceTimeNtp;
const chronal::ReferenceTimeId unnamed = static_cast<chronal::referenceTimeId_enum>(-9);
const std::string withNul("a\0b", 3);

} // namespace

#define CALL(command, ...)                                                                         \
#command, [](UserAdapter & adapter, MsgIds & ids) { adapter.command(__VA_ARGS__); }
#define TABLE(record) &__nub_EndianTable_chronal##record##_t

const std::vector<CommandRow> commandRows = {
    {CALL(cmdRefTimeSet, ids, a, b, ntp, 42, false), 31032008, 26032007, TABLE(MsgCmdRefTimeData),
     "2 {5 250000} {-7 -1} 42 {0 0} {0 0}", "Current UTC Time is 5."},
    {CALL(cmdRefTimeSet, ids, a, b, ntp, -1, true), 31032008, 26032007, TABLE(MsgCmdRefTimeData),
     "2 {-5 -250000} {-7 -1} -1 {0 0} {0 0}", "Current UTC Time is 5."},
    {CALL(cmdRefTimeSet, ids, least, a, ntp, 42, true), 31032008, 26032007,
     TABLE(MsgCmdRefTimeData), "2 {-9223372036854775808 -2147483648} {5 250000} 42 {0 0} {0 0}",
     "Current UTC Time is -9223372036854775808."},
    {CALL(cmdRefLocalTimeSet, ids, c, a, ntp, 42, false), 31032019, 26032007,
     TABLE(MsgCmdRefTimeData), "2 {4886718345 1000001} {5 250000} 42 {0 0} {0 0}",
     "Current Local Time is 4886718345."},
    {CALL(cmdRefLocalTimeSet, ids, b, a, ntp, 42, true), 31032019, 26032007,
     TABLE(MsgCmdRefTimeData), "2 {7 1} {5 250000} 42 {0 0} {0 0}", "Current Local Time is -7."},
    {CALL(cmdRefTimeFetch, ids, unnamed), 31032008, 26032008, TABLE(MsgCmdRefTimeId), "-9"},
    {CALL(cmdNextTimeDeviationChangeSet, ids, a, c, ntp), 31032010, 26032007,
     TABLE(MsgCmdRefTimeData), "2 {5 250000} {4886718345 1000001} 0 {0 0} {0 0}"},
    {CALL(cmdSendDaylightsavingInfo, ids, a, b, c, d, ntp), 31032011, 26032007,
     TABLE(MsgCmdRefTimeData), "2 {5 250000} {-7 -1} 0 {4886718345 1000001} {1 2}"},
    {CALL(cmdNextTimeDeviationChangeFetch, ids, ntp), 31032010, 26032008, TABLE(MsgCmdRefTimeId),
     "2"},
    {CALL(cmdRefTimeSubscribe, ids, ntp), 31032008, 26032009, TABLE(MsgCmdRefTimeId), "2"},
    {CALL(cmdRefTimeUnsubscribe, ids, ntp), 31032008, 26032010, TABLE(MsgCmdRefTimeId), "2"},
    {CALL(cmdRefTimeLock, ids, ntp), 31032008, 26032011, TABLE(MsgCmdRefTimeId), "2"},
    {CALL(cmdRefTimeUnlock, ids, ntp), 31032008, 26032012, TABLE(MsgCmdRefTimeId), "2"},
    {CALL(cmdRefTimeAt, ids, a, ntp), 31032008, 26032013, TABLE(MsgCmdRefTimeData),
     "2 {5 250000} {0 0} 0 {0 0} {0 0}"},
    {CALL(cmdLocaltimeAt, ids, a), 31032010, 26032013, TABLE(MsgCmdTimeAtData), "{5 250000} 0"},
    {CALL(cmdUTCTimeAt, ids, a), 31032010, 26032013, TABLE(MsgCmdTimeAtData), "{5 250000} 1"},
    {CALL(cmdDateTimeSettingsSet, ids, a, b, c, d, 42, "pool"), 31032013, 26032007,
     TABLE(MsgDateTime), "{0 0} {5 250000} {-7 -1} {4886718345 1000001} {1 2} 42 4:pool. -1 -1 0"},
    {CALL(cmdTimezoneSyncEnableSet, ids, 5), 31032012, 26032007, TABLE(MsgDateTime),
     "{0 0} {0 0} {0 0} {0 0} {0 0} 0 null 0 0 5", "User set timezone sync enable = 5."},
    {CALL(cmdDateTimeNtpSet, ids, "pool", true), 31032015, 26032007, TABLE(MsgNtpData),
     "4:pool. 1"},
    {CALL(cmdDateTimeNtpSet, ids, "", false), 31032015, 26032007, TABLE(MsgNtpData), "0:. 0"},
    {CALL(cmdDateTimeNtpStart, ids), 31032015, 26032009, TABLE(CmdDummy), "0"},
    {CALL(cmdDateTimeAutoTimeSet, ids, true), 31032016, 26032007, TABLE(MsgAutoTime), "1"},
    {CALL(cmdDateTimeAutoTimeSet, ids, false), 31032016, 26032007, TABLE(MsgAutoTime), "0"},
    {CALL(cmdDateTimeSettingsFetch, ids), 31032013, 26032008, TABLE(MsgReplyResult), "0"},
    {CALL(cmdTimezoneSet, ids, "Europe/Berlin"), 31032014, 26032007, TABLE(MsgTimezone),
     "13:Europe/Berlin. {0 0}"},
    {CALL(cmdTimezoneSet, ids, withNul), 31032014, 26032007, TABLE(MsgTimezone), "3:a.b. {0 0}"},
    {CALL(cmdTimezoneFetch, ids), 31032014, 26032008, TABLE(MsgReplyResult), "0"},
    {CALL(cmdTimeInit, ids), 31032017, 26032014, TABLE(MsgAutoTime), "0"},
};
