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
        static_assert(sizeof(words) == sizeof(time), "the same, with a name for the padding");
        std::memcpy(&time, &words, sizeof(time));
    }

    operator const nubOsalTime_struct&() const { return time; }

private:
    nubOsalTime_struct time;
};

const Time a = {5, 250000};
const Time b = {-7, -1};
const Time c = {0x123456789LL, 1000001};
const Time d = {1, 2};
const Time least = {INT64_MIN, INT32_MIN};
const chronal::ReferenceTimeId ntp = chronal::referenceTimeNtp;
const chronal::ReferenceTimeId strange = static_cast<chronal::referenceTimeId_enum>(-9);
const std::string withNul("a\0b", 3);

} // namespace

#define TABLE(record) &__nub_EndianTable_##record

const std::vector<CommandRow> commandRows = {
    {"cmdRefTimeSet", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeSet(i, a, b, ntp, 42, false); },
     31032008, 26032007, TABLE(chronalMsgCmdRefTimeData_t), "2 {5 250000} {-7 -1} 42 {0 0} {0 0}",
     "0000005c0102030401d982c8018d378700010000ffffffff000000000000000000000000"
     "0000000200000000000000050003d090fffffffffffffff9ffffffff0000002a00000000"
     "0000000000000000000000000000000000000000",
     "Current UTC Time is 5."},
    {"cmdRefTimeSet", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeSet(i, a, b, ntp, -1, true); },
     31032008, 26032007, TABLE(chronalMsgCmdRefTimeData_t), "2 {-5 -250000} {-7 -1} -1 {0 0} {0 0}",
     "0000005c0102030401d982c8018d378700010000ffffffff000000000000000000000000"
     "00000002fffffffffffffffbfffc2f70fffffffffffffff9ffffffffffffffff00000000"
     "0000000000000000000000000000000000000000",
     "Current UTC Time is 5."},
    {"cmdRefLocalTimeSet",
     [](UserAdapter& x, MsgIds& i) { x.cmdRefLocalTimeSet(i, b, a, ntp, 42, false); }, 31032019,
     26032007, TABLE(chronalMsgCmdRefTimeData_t), "2 {-7 -1} {5 250000} 42 {0 0} {0 0}",
     "0000005c0102030401d982d3018d378700010000ffffffff000000000000000000000000"
     "00000002fffffffffffffff9ffffffff00000000000000050003d0900000002a00000000"
     "0000000000000000000000000000000000000000",
     "Current Local Time is -7."},
    {"cmdRefLocalTimeSet",
     [](UserAdapter& x, MsgIds& i) { x.cmdRefLocalTimeSet(i, least, a, ntp, 42, true); }, 31032019,
     26032007, TABLE(chronalMsgCmdRefTimeData_t),
     "2 {-9223372036854775808 -2147483648} {5 250000} 42 {0 0} {0 0}",
     "0000005c0102030401d982d3018d378700010000ffffffff000000000000000000000000"
     "0000000280000000000000008000000000000000000000050003d0900000002a00000000"
     "0000000000000000000000000000000000000000",
     "Current Local Time is -9223372036854775808."},
    {"cmdRefTimeFetch", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeFetch(i, strange); }, 31032008,
     26032008, TABLE(chronalMsgCmdRefTimeId_t), "-9",
     "000000280102030401d982c8018d378800010000ffffffff000000000000000000000000"
     "fffffff7"},
    {"cmdNextTimeDeviationChangeSet",
     [](UserAdapter& x, MsgIds& i) { x.cmdNextTimeDeviationChangeSet(i, a, c, ntp); }, 31032010,
     26032007, TABLE(chronalMsgCmdRefTimeData_t), "2 {5 250000} {4886718345 1000001} 0 {0 0} {0 0}",
     "0000005c0102030401d982ca018d378700010000ffffffff000000000000000000000000"
     "0000000200000000000000050003d0900000000123456789000f42410000000000000000"
     "0000000000000000000000000000000000000000"},
    {"cmdSendDaylightsavingInfo",
     [](UserAdapter& x, MsgIds& i) { x.cmdSendDaylightsavingInfo(i, a, b, c, d, ntp); }, 31032011,
     26032007, TABLE(chronalMsgCmdRefTimeData_t),
     "2 {5 250000} {-7 -1} 0 {4886718345 1000001} {1 2}",
     "0000005c0102030401d982cb018d378700010000ffffffff000000000000000000000000"
     "0000000200000000000000050003d090fffffffffffffff9ffffffff0000000000000001"
     "23456789000f4241000000000000000100000002"},
    {"cmdNextTimeDeviationChangeFetch",
     [](UserAdapter& x, MsgIds& i) { x.cmdNextTimeDeviationChangeFetch(i, ntp); }, 31032010,
     26032008, TABLE(chronalMsgCmdRefTimeId_t), "2",
     "000000280102030401d982ca018d378800010000ffffffff000000000000000000000000"
     "00000002"},
    {"cmdRefTimeSubscribe", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeSubscribe(i, ntp); },
     31032008, 26032009, TABLE(chronalMsgCmdRefTimeId_t), "2",
     "000000280102030401d982c8018d378900010000ffffffff000000000000000000000000"
     "00000002"},
    {"cmdRefTimeUnsubscribe", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeUnsubscribe(i, ntp); },
     31032008, 26032010, TABLE(chronalMsgCmdRefTimeId_t), "2",
     "000000280102030401d982c8018d378a00010000ffffffff000000000000000000000000"
     "00000002"},
    {"cmdRefTimeLock", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeLock(i, ntp); }, 31032008,
     26032011, TABLE(chronalMsgCmdRefTimeId_t), "2",
     "000000280102030401d982c8018d378b00010000ffffffff000000000000000000000000"
     "00000002"},
    {"cmdRefTimeUnlock", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeUnlock(i, ntp); }, 31032008,
     26032012, TABLE(chronalMsgCmdRefTimeId_t), "2",
     "000000280102030401d982c8018d378c00010000ffffffff000000000000000000000000"
     "00000002"},
    {"cmdRefTimeAt", [](UserAdapter& x, MsgIds& i) { x.cmdRefTimeAt(i, a, ntp); }, 31032008,
     26032013, TABLE(chronalMsgCmdRefTimeData_t), "2 {5 250000} {0 0} 0 {0 0} {0 0}",
     "0000005c0102030401d982c8018d378d00010000ffffffff000000000000000000000000"
     "0000000200000000000000050003d0900000000000000000000000000000000000000000"
     "0000000000000000000000000000000000000000"},
    {"cmdLocaltimeAt", [](UserAdapter& x, MsgIds& i) { x.cmdLocaltimeAt(i, a); }, 31032010,
     26032013, TABLE(chronalMsgCmdTimeAtData_t), "{5 250000} 0",
     "000000340102030401d982ca018d378d00010000ffffffff000000000000000000000000"
     "00000000000000050003d09000000000"},
    {"cmdUTCTimeAt", [](UserAdapter& x, MsgIds& i) { x.cmdUTCTimeAt(i, a); }, 31032010, 26032013,
     TABLE(chronalMsgCmdTimeAtData_t), "{5 250000} 1",
     "000000340102030401d982ca018d378d00010000ffffffff000000000000000000000000"
     "00000000000000050003d09000000001"},
    {"cmdDateTimeSettingsSet",
     [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeSettingsSet(i, a, b, c, d, 42, "pool"); },
     31032013, 26032007, TABLE(chronalMsgDateTime_t),
     "{0 0} {5 250000} {-7 -1} {4886718345 1000001} {1 2} 42 4:pool -1 -1 0",
     "000000780102030401d982cd018d378700010000ffffffff000000000000000000000000"
     "00000000000000000000000000000000000000050003d090fffffffffffffff9ffffffff"
     "0000000123456789000f42410000000000000001000000020000002a00000004706f6f6c"
     "ffffffffffffffff00000000"},
    {"cmdTimezoneSyncEnableSet",
     [](UserAdapter& x, MsgIds& i) { x.cmdTimezoneSyncEnableSet(i, 5); }, 31032012, 26032007,
     TABLE(chronalMsgDateTime_t), "{0 0} {0 0} {0 0} {0 0} {0 0} 0 null 0 0 5",
     "000000740102030401d982cc018d378700010000ffffffff000000000000000000000000"
     "000000000000000000000000000000000000000000000000000000000000000000000000"
     "000000000000000000000000000000000000000000000000000000000000000000000000"
     "0000000000000005",
     "User set timezone sync enable = 5."},
    {"cmdDateTimeNtpSet", [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeNtpSet(i, "pool", true); },
     31032015, 26032007, TABLE(chronalMsgNtpData_t), "4:pool 1",
     "000000300102030401d982cf018d378700010000ffffffff000000000000000000000000"
     "00000004706f6f6c00000001"},
    {"cmdDateTimeNtpSet", [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeNtpSet(i, "", false); },
     31032015, 26032007, TABLE(chronalMsgNtpData_t), "0: 0",
     "0000002c0102030401d982cf018d378700010000ffffffff000000000000000000000000"
     "0000000000000000"},
    {"cmdDateTimeNtpStart", [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeNtpStart(i); }, 31032015,
     26032009, TABLE(chronalCmdDummy_t), "0",
     "000000280102030401d982cf018d378900010000ffffffff000000000000000000000000"
     "00000000"},
    {"cmdDateTimeAutoTimeSet", [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeAutoTimeSet(i, true); },
     31032016, 26032007, TABLE(chronalMsgAutoTime_t), "1",
     "000000280102030401d982d0018d378700010000ffffffff000000000000000000000000"
     "00000001"},
    {"cmdDateTimeSettingsFetch", [](UserAdapter& x, MsgIds& i) { x.cmdDateTimeSettingsFetch(i); },
     31032013, 26032008, TABLE(chronalMsgReplyResult_t), "0",
     "000000280102030401d982cd018d378800010000ffffffff000000000000000000000000"
     "00000000"},
    {"cmdTimezoneSet", [](UserAdapter& x, MsgIds& i) { x.cmdTimezoneSet(i, "Europe/Berlin"); },
     31032014, 26032007, TABLE(chronalMsgTimezone_t), "13:Europe/Berlin {0 0}",
     "000000410102030401d982ce018d378700010000ffffffff000000000000000000000000"
     "0000000d4575726f70652f4265726c696e000000000000000000000000"},
    {"cmdTimezoneSet", [](UserAdapter& x, MsgIds& i) { x.cmdTimezoneSet(i, withNul); }, 31032014,
     26032007, TABLE(chronalMsgTimezone_t), "3:a.b {0 0}",
     "000000370102030401d982ce018d378700010000ffffffff000000000000000000000000"
     "00000003610062000000000000000000000000"},
    {"cmdTimezoneFetch", [](UserAdapter& x, MsgIds& i) { x.cmdTimezoneFetch(i); }, 31032014,
     26032008, TABLE(chronalMsgReplyResult_t), "0",
     "000000280102030401d982ce018d378800010000ffffffff000000000000000000000000"
     "00000000"},
    {"cmdTimeInit", [](UserAdapter& x, MsgIds& i) { x.cmdTimeInit(i); }, 31032017, 26032014,
     TABLE(chronalMsgAutoTime_t), "0",
     "000000280102030401d982d1018d378e00010000ffffffff000000000000000000000000"
     "00000000"},
};
