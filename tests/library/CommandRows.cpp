#include "CommandRows.h"

namespace {

const CallersTime a = {{5, 6}};
const CallersTime b = {{-7, -8}};
const CallersTime c = {{0x123456789LL, 1000001}};
const CallersTime d = {{1, 2}};
const CallersTime least = {{INT64_MIN, INT32_MIN}};
const chronal::ReferenceTimeId ntp = chronal::referenceTimeNtp;
const chronal::ReferenceTimeId unnamed = static_cast<chronal::referenceTimeId_enum>(-9);

} // namespace

#define CALL(command, ...)                                                                         \
#command, [](chronal::UserAdapter & to, fabric::MsgIds & ids) { to.command(__VA_ARGS__); }

// clang-format off
const std::vector<CommandRow> commandRows = {
    {CALL(cmdRefTimeSet, ids, a, b, ntp, 42, false),
     "31032008 26032007 0 MsgCmdRefTimeData 2 {5 6} {-7 -8} 42 {0 0} {0 0}", "Current UTC Time is 5."},
    {CALL(cmdRefTimeSet, ids, b, a, ntp, -1, true),
     "31032008 26032007 0 MsgCmdRefTimeData 2 {7 8} {5 6} -1 {0 0} {0 0}", "Current UTC Time is -7."},
    {CALL(cmdRefTimeSet, ids, least, a, ntp, 42, true),
     "31032008 26032007 0 MsgCmdRefTimeData 2 {-9223372036854775808 -2147483648} {5 6} 42 {0 0} {0 0}",
     "Current UTC Time is -9223372036854775808."},
    {CALL(cmdRefLocalTimeSet, ids, c, a, ntp, 42, false),
     "31032019 26032007 0 MsgCmdRefTimeData 2 {4886718345 1000001} {5 6} 42 {0 0} {0 0}",
     "Current Local Time is 4886718345."},
    {CALL(cmdRefLocalTimeSet, ids, b, a, ntp, 42, true),
     "31032019 26032007 0 MsgCmdRefTimeData 2 {7 8} {5 6} 42 {0 0} {0 0}", "Current Local Time is -7."},
    {CALL(cmdRefTimeFetch, ids, unnamed), "31032008 26032008 0 MsgCmdRefTimeId -9"},
    {CALL(cmdNextTimeDeviationChangeSet, ids, a, c, ntp),
     "31032010 26032007 0 MsgCmdRefTimeData 2 {5 6} {4886718345 1000001} 0 {0 0} {0 0}"},
    {CALL(cmdSendDaylightsavingInfo, ids, a, b, c, d, ntp),
     "31032011 26032007 0 MsgCmdRefTimeData 2 {5 6} {-7 -8} 0 {4886718345 1000001} {1 2}"},
    {CALL(cmdNextTimeDeviationChangeFetch, ids, ntp), "31032010 26032008 0 MsgCmdRefTimeId 2"},
    {CALL(cmdRefTimeSubscribe, ids, ntp), "31032008 26032009 0 MsgCmdRefTimeId 2"},
    {CALL(cmdRefTimeUnsubscribe, ids, ntp), "31032008 26032010 0 MsgCmdRefTimeId 2"},
    {CALL(cmdRefTimeLock, ids, ntp), "31032008 26032011 0 MsgCmdRefTimeId 2"},
    {CALL(cmdRefTimeUnlock, ids, ntp), "31032008 26032012 0 MsgCmdRefTimeId 2"},
    {CALL(cmdRefTimeAt, ids, a, ntp),
     "31032008 26032013 0 MsgCmdRefTimeData 2 {5 6} {0 0} 0 {0 0} {0 0}"},
    {CALL(cmdLocaltimeAt, ids, a), "31032010 26032013 0 MsgCmdTimeAtData {5 6} 0"},
    {CALL(cmdUTCTimeAt, ids, a), "31032010 26032013 0 MsgCmdTimeAtData {5 6} 1"},
    {CALL(cmdDateTimeSettingsSet, ids, a, b, c, d, 42, "pool"),
     "31032013 26032007 0 MsgDateTime {0 0} {5 6} {-7 -8} {4886718345 1000001} {1 2} 42 4 5:pool. -1 -1 0"},
    {CALL(cmdTimezoneSyncEnableSet, ids, 5),
     "31032012 26032007 0 MsgDateTime {0 0} {0 0} {0 0} {0 0} {0 0} 0 null 0 0 5", "User set timezone sync enable = 5."},
    {CALL(cmdDateTimeNtpSet, ids, "pool", true), "31032015 26032007 0 MsgNtpData 4 5:pool. 1"},
    {CALL(cmdDateTimeNtpSet, ids, "", false), "31032015 26032007 0 MsgNtpData 0 1:. 0"},
    {CALL(cmdDateTimeNtpStart, ids), "31032015 26032009 0 CmdDummy 0"},
    {CALL(cmdDateTimeAutoTimeSet, ids, true), "31032016 26032007 0 MsgAutoTime 1"},
    {CALL(cmdDateTimeAutoTimeSet, ids, false), "31032016 26032007 0 MsgAutoTime 0"},
    {CALL(cmdDateTimeSettingsFetch, ids), "31032013 26032008 0 MsgReplyResult 0"},
    {CALL(cmdTimezoneSet, ids, {"a\0b", 3}), "31032014 26032007 0 MsgTimezone 3 4:a.b. {0 0}"},
    {CALL(cmdTimezoneFetch, ids), "31032014 26032008 0 MsgReplyResult 0"},
    {CALL(cmdTimeInit, ids), "31032017 26032014 0 MsgAutoTime 0"},
};
// clang-format on
