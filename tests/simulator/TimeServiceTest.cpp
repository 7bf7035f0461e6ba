#include "Desk.h"

namespace chronal::sim {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

TEST(TimeService, RefusesOptionsThatItCannotServe)
{
    const std::string period = "notificationPeriod: not between 1 ms and a day";
    const std::pair<Options, std::string> rows[] = {{{"Mars"}, "zone: unknown time zone \"Mars\""},
                                                    {{"UTC", milliseconds(0)}, period},
                                                    {{"UTC", hours(24) + milliseconds(1)}, period},
                                                    {{"UTC", milliseconds::max()}, period}};
    for (const auto& row : rows)
        EXPECT_THAT([&] { TimeService{row.first}; },
                    testing::ThrowsMessage<std::invalid_argument>(row.second));
    for (const milliseconds accepted : {milliseconds(1), milliseconds(hours(24))})
        TimeService({"UTC", accepted});
}

TEST(TimeService, AnswersByTheTimeAndTheDeviationOfEachSource)
{
    Desk().play(R"(
        # Only RTC and NTP have a time at the start.
        cmdRefTimeFetch 1 -> 1 replyTimeRefInfo 1 2026-01-01T11:30 +3600 2026-01-01T12:30 1 0
        cmdNextTimeDeviationChangeFetch 2 -> 1 replyUtcDeviationInfo 2 2026-03-29T01:00 +7200 2026-03-29T03:00 0 0
        cmdRefTimeFetch 3 -> 1 replyTimeRefInfo 3 +0 -360001 +0 0 0
        cmdNextTimeDeviationChangeFetch 5 -> 1 replyUtcDeviationInfo 5 +0 -360001 +0 0 0
        # Each source uses its own deviation once one is announced.
        cmdRefTimeSet 3 2026-07-01 -360001 77 -> 1 done, 12 notifyDtvTimeChange 2026-07-01
        cmdRefTimeFetch 3 -> 1 replyTimeRefInfo 3 2026-07-01 +7200 2026-07-01T02:00 1 77
        cmdRefLocalTimeSet 5 2026-07-01 -> 1 done, 12 notifyDtvTimeChange 2026-06-30T22:00
        cmdRefLocalTimeSet 4 2026-07-01 -5400 -1; cmdRefLocalTimeSet 4 2026-07-01 -360000 -1 -> 1 done
        cmdRefTimeFetch 4 -> 1 replyTimeRefInfo 4 2026-07-01T01:30 -5400 2026-07-01 1 -1
        cmdNextTimeDeviationChangeFetch 4 -> 1 replyUtcDeviationInfo 4 +0 -360000 +0 0 0
        # Each announcement replaces the pending one.
        cmdNextTimeDeviationChangeSet 3 2026-08-01 +0/-500000 -> 1 done
        cmdNextTimeDeviationChangeFetch 3 -> 1 replyUtcDeviationInfo 3 2026-08-01 +0/-500000 2026-07-31T23:59:59/500000 0 0
        cmdSendDaylightsavingInfo 3 2026-09-01 2026-10-01 0 -3600 +60 -> 1 done
        cmdNextTimeDeviationChangeFetch 3 -> 1 replyUtcDeviationInfo 3 2026-09-01 +60 2026-09-01T00:01 0 0
        cmdRefTimeAt 3 2026-12-01 -> 1 replyTimeRefAt 3 2026-12-01 -3600 2026-11-30T23:00 0 0
        # The zone's times; the earlier one of two.
        cmdRefTimeAt 1 0 -> 1 replyTimeRefAt 1 +0 +3600 +3600 0 0
        cmdTimeAt 2026-07-01 -1 -> 1 replyTimeAt 0 2026-07-01 +7200 2026-07-01T02:00 0 0
        cmdTimeAt 2026-10-25T02:30 0 -> 1 replyTimeAt 0 2026-10-25T00:30 +7200 2026-10-25T02:30 0 0
        # Setting the zone drops what was announced; initialising keeps the zone.
        cmdTimezoneSet Europe/Berlin -> 1 done
        cmdRefTimeFetch 4 -> 1 replyTimeRefInfo 4 2026-07-01T01:30 +7200 2026-07-01T03:30 1 -1
        cmdRefTimeSet 1 2026-07-01 -> 1 done, 12 notifyDeviationChange 1 2026-07-01 +7200 2026-07-01T02:00 1 0, 12 notifyDSTChange 1
        cmdTimeInit -> 1 done, 12 notifyDeviationChange 1 2026-01-01T11:30 +3600 2026-01-01T12:30 1 0, 12 notifyDSTChange 0
        cmdRefTimeFetch 4; cmdTimezoneFetch -> 1 replyTimeRefInfo 4 +0 -360001 +0 0 0, 1 replyTimezoneInfo Europe/Berlin 2026-01-01T11:30)");
}

TEST(TimeService, KeepsTheSettings)
{
    Desk().play(R"(
        cmdDateTimeSettingsSet 5 1/-1 -2 3 4 -5 a -1 -1 1; cmdDateTimeSettingsFetch -> 1 done, 1 replyDateTimeSettingsInfo 2026-01-01T11:30 +1/-1 -2 +3 +4 -5 a 0 0 0
        cmdDateTimeSettingsSet 0 1 2 3 4 5 b 2 2; cmdDateTimeSettingsSet 0 6 7 8 9 10 c -1 -1; cmdTimezoneSyncEnableSet 0 0 0 0 0 0 d 0 0 5 -> 1 done
        cmdDateTimeSettingsFetch -> 1 replyDateTimeSettingsInfo 2026-01-01T11:30 +6 +7 +8 +9 10 c 1 1 5
        cmdDateTimeSettingsSet 0 1 2 3 4 5 *255 0 0; cmdDateTimeSettingsFetch -> 1 done, 1 replyDateTimeSettingsInfo 2026-01-01T11:30 +1 +2 +3 +4 5 *255 0 0 5
        cmdDateTimeNtpSet "" 0; cmdDateTimeNtpSet *255 -1; cmdDateTimeAutoTimeSet 2 -> 1 done
        cmdDateTimeSettingsFetch -> 1 replyDateTimeSettingsInfo 2026-01-01T11:30 +1 +2 +3 +4 5 *255 1 1 5
        cmdTimeInit; cmdDateTimeSettingsFetch -> 1 done, 1 replyDateTimeSettingsInfo 2026-01-01T11:30 +1 +2 +3 +4 5 *255 0 1 5)");
}

TEST(TimeService, SetsAnUnlockedRtcFromOtherSourcesWithAutomaticTimeOn)
{
    Desk().play(R"(
        cmdRefTimeSet 4 2026-02-01; cmdDateTimeAutoTimeSet 1; cmdTimezoneFetch -> 1 done, 1 replyTimezoneInfo Europe/Berlin 2026-01-01T11:30
        cmdRefTimeSet 4 2026-02-02; cmdTimezoneFetch -> 1 done, 1 replyTimezoneInfo Europe/Berlin 2026-02-02
        2 cmdRefTimeLock 1; cmdRefTimeLock 1; cmdRefTimeSet 1 0; cmdRefTimeSet 4 2026-02-01 -> 21 done, 1 EBUSY, 1 done
        cmdRefTimeUnlock 1; cmdTimezoneFetch -> 1 done, 1 replyTimezoneInfo Europe/Berlin 2026-02-02
        cmdDateTimeNtpSet time 1; cmdRefTimeLock 2; cmdDateTimeNtpStart; cmdRefTimeUnlock 2 -> 1 done, 1 EBUSY, 1 done
        cmdDateTimeNtpStart; cmdTimezoneFetch -> 1 done, 1 replyTimezoneInfo Europe/Berlin 2026-01-01T11:30
        cmdRefTimeSet 1 2026-02-03; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 2026-01-01T11:30 +3600 2026-01-01T12:30 1 0)");
}

TEST(TimeService, ChangesNothingWhenItRefusesACommand)
{
    Desk desk;
    desk.play("cmdRefTimeSet 4 2026-02-03 +1800 9; 2 cmdRefTimeLock 4 -> 12 done");
    const auto everything = [&] {
        return desk.run(R"(cmdDateTimeSettingsFetch; cmdTimezoneFetch;
            cmdRefTimeFetch 1; cmdRefTimeFetch 2; cmdRefTimeFetch 3; cmdRefTimeFetch 4; cmdRefTimeFetch 5;
            cmdNextTimeDeviationChangeFetch 1; cmdNextTimeDeviationChangeFetch 4)");
    };
    const std::string before = everything();
    desk.play(R"(
        cmdRefTimeSet 4 2026-12-01; cmdRefLocalTimeSet 4 2026-12-01; cmdTimeInit -> 1 EBUSY
        cmdNextTimeDeviationChangeSet 4 2026-12-01 60; cmdSendDaylightsavingInfo 4 1 2 0 3 4 -> 1 EBUSY
        cmdDateTimeNtpStart -> 1 EPERM
        cmdDateTimeNtpSet *256 0; cmdDateTimeNtpSet "" 1; cmdTimezoneSet *256 -> 1 EINVAL
        cmdDateTimeSettingsSet 0 1 2 3 4 5 *256 1 0; cmdDateTimeSettingsSet 0 1 2 3 4 5 "" 1 1 -> 1 EINVAL
        # Only names of the database, not all that a path or a library could lead to.
        cmdTimezoneSet ../UTC; cmdTimezoneSet /etc/localtime; cmdTimezoneSet /usr/share/zoneinfo/UTC -> 1 ENOENT
        cmdTimezoneSet Europe/../Europe/Paris; cmdTimezoneSet Europe//Paris; cmdTimezoneSet Europe/./Paris -> 1 ENOENT
        cmdTimezoneSet Europe/Paris/; cmdTimezoneSet file:/usr/share/zoneinfo/UTC; cmdTimezoneSet libc:UTC -> 1 ENOENT
        cmdTimezoneSet Fixed/UTC+05:00:00; cmdTimezoneSet localtime; cmdTimezoneSet europe/berlin -> 1 ENOENT
        cmdTimezoneSet *255; cmdTimezoneSet; cmdTimezoneSet "" -> 1 ENOENT
        # Times outside the calendar, deviations of more than a day, and local times that are skipped.
        cmdTimeAt -1 1; cmdTimeAt 10000-01-01 0; cmdTimeAt 2026-03-29T02:30 0; cmdRefTimeAt 1 -1 -> 1 EINVAL
        cmdRefTimeSet 1 0/-1; cmdRefTimeSet 1 10000-01-01; cmdRefTimeSet 5 2026-12-01 86400/1 -> 1 EINVAL
        cmdRefLocalTimeSet 5 -1; cmdRefLocalTimeSet 5 10000-01-01 60; cmdRefLocalTimeSet 5 1800 -> 1 EINVAL
        cmdRefLocalTimeSet 5 9999-12-31T23:59 -60; cmdRefLocalTimeSet 5 2026-12-01 -360002 -> 1 EINVAL
        cmdRefLocalTimeSet 5 59 60; cmdRefLocalTimeSet 5 2026-03-29T02:30 -> 1 EINVAL
        cmdNextTimeDeviationChangeSet 1 -1 60; cmdNextTimeDeviationChangeSet 1 1 -86400/-1 -> 1 EINVAL
        cmdSendDaylightsavingInfo 1 2 2 0 3 4; cmdSendDaylightsavingInfo 1 -1 2 0 3 4 -> 1 EINVAL
        cmdSendDaylightsavingInfo 1 1 2 0 86401 4; cmdSendDaylightsavingInfo 1 1 2 0 3 86401 -> 1 EINVAL
        cmdSendDaylightsavingInfo 1 1 10000-01-01 0 3 4 -> 1 EINVAL)");
    for (const std::string command :
         {"cmdRefTimeSet", "cmdRefLocalTimeSet", "cmdRefTimeFetch", "cmdRefTimeAt",
          "cmdNextTimeDeviationChangeSet", "cmdNextTimeDeviationChangeFetch",
          "cmdSendDaylightsavingInfo", "cmdRefTimeSubscribe", "cmdRefTimeUnsubscribe",
          "cmdRefTimeLock", "cmdRefTimeUnlock"})
        for (const std::string source : {" 0", " 6", " -1", " -2147483648"})
            desk.play(command + source + " 1 2 -> 1 EINVAL");
    desk.play(std::string("cmdTimezoneSet UTC\0 -> 1 ENOENT", 31));
    EXPECT_EQ(everything(), before);
}

TEST(TimeService, NotifiesAllClientsOfChangesAfterTheAnswer)
{
    Desk().play(R"(
        cmdRefTimeSet 1 2026-07-01 -60 -> 1 done, 12 notifyDeviationChange 1 2026-07-01 -60 2026-06-30T23:59 1 0, 12 notifyDSTChange 1
        2 cmdTimezoneSet Europe/Berlin -> 2 done, 12 notifyDeviationChange 1 2026-07-01 +7200 2026-07-01T02:00 1 0
        cmdTimezoneSet Europe/Paris -> 1 done, 12 notifyTimezoneChange Europe/Paris 2026-07-01
        cmdTimezoneSet Africa/Johannesburg -> 1 done, 12 notifyTimezoneChange Africa/Johannesburg 2026-07-01, 12 notifyDSTChange 0
        cmdTimezoneSet America/New_York -> 1 done, 12 notifyTimezoneChange America/New_York 2026-07-01, 12 notifyDeviationChange 1 2026-07-01 -14400 2026-06-30T20:00 1 0, 12 notifyDSTChange 1
        cmdDateTimeAutoTimeSet 1 -> 1 done
        cmdRefTimeSet 5 2026-01-01 -> 1 done, 12 notifyDtvTimeChange 2026-01-01, 12 notifyDeviationChange 1 2026-01-01 -18000 2025-12-31T19:00 1 0, 12 notifyDSTChange 0)");
}

TEST(TimeService, NotifiesOfEachChangeOfTheRtcWhenItComes)
{
    Desk().play(R"(
        until 2026-05-01 -> 12 notifyDeviationChange 1 2026-03-29T01:00 +7200 2026-03-29T03:00 1 0, 12 notifyDSTChange 1
        until 2027-01-01 -> 12 notifyDeviationChange 1 2026-10-25T01:00 +3600 2026-10-25T02:00 1 0, 12 notifyDSTChange 0
        # The RTC is an hour ahead of the clock, which stands at the last change.
        cmdRefTimeSet 1 2026-10-25T02:00; cmdSendDaylightsavingInfo 1 2026-10-25T02:30 2026-10-25T03:00 0 3600 7200 -> 1 done
        due; until 2027-01-01 -> in +1800, 12 notifyDeviationChange 1 2026-10-25T02:30 +7200 2026-10-25T04:30 1 0, 12 notifyDSTChange 1, 12 notifyDeviationChange 1 2026-10-25T03:00 +3600 2026-10-25T04:00 1 0, 12 notifyDSTChange 0)");
}

TEST(TimeService, KeepsAnnouncedChangesInForceUntilTheNext)
{
    Desk().play(R"(
        cmdRefTimeSet 1 2026-01-01; cmdNextTimeDeviationChangeSet 1 2026-01-01T02:00 18000; cmdSendDaylightsavingInfo 1 2026-01-01T01:00 2026-01-01T04:00 0 14400 10800 -> 1 done
        wait 7200 -> 12 notifyDeviationChange 1 2026-01-01T02:00 +10800 2026-01-01T05:00 1 0, 12 notifyDSTChange 1
        cmdRefLocalTimeSet 1 2026-01-01T03:00; cmdRefTimeAt 1 2026-01-01T00:59 -> 1 EINVAL, 1 replyTimeRefAt 1 2026-01-01T00:59 +3600 2026-01-01T01:59 0 0
        # A deviation that comes with a time also holds for earlier times, but does not stop what is pending.
        cmdRefTimeSet 1 2026-01-01T03:00 -7200 -> 1 done, 12 notifyDeviationChange 1 2026-01-01T03:00 -7200 2026-01-01T01:00 1 0, 12 notifyDSTChange 0
        cmdRefTimeAt 1 2025-01-01; wait 3600 -> 1 replyTimeRefAt 1 2025-01-01 -7200 2024-12-31T22:00 0 0, 12 notifyDeviationChange 1 2026-01-01T04:00 +14400 2026-01-01T08:00 1 0
        cmdNextTimeDeviationChangeSet 1 2026-01-01T09:00 32400; wait 18000 -> 1 done, 12 notifyDeviationChange 1 2026-01-01T09:00 +32400 2026-01-01T18:00 1 0
        cmdNextTimeDeviationChangeFetch 1 -> 1 replyUtcDeviationInfo 1 +0 -360000 +0 0 0
        # A change without a daylight-saving state leaves that of the change before.
        cmdSendDaylightsavingInfo 1 2026-01-01T10:00 2026-01-02 0 0 3600; wait 3600 -> 1 done, 12 notifyDeviationChange 1 2026-01-01T10:00 +3600 2026-01-01T11:00 1 0, 12 notifyDSTChange 1
        cmdNextTimeDeviationChangeSet 1 2026-01-01T11:00 7200; wait 3600 -> 1 done, 12 notifyDeviationChange 1 2026-01-01T11:00 +7200 2026-01-01T13:00 1 0
        cmdNextTimeDeviationChangeSet 1 2026-01-01T20:00 -1; cmdNextTimeDeviationChangeFetch 1 -> 1 done, 1 replyUtcDeviationInfo 1 2026-01-01T20:00 -1 2026-01-01T19:59:59 0 0)");
}

TEST(TimeService, ReadsTimesInAnyFormAndWritesThemNormalised)
{
    Desk().play(R"(
        cmdRefTimeSet 2 0 0/-1; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 +0 +0/-1 -1/999999 1 0
        cmdRefTimeSet 2 0 -2/500000; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 +0 -1/-500000 -2/500000 1 0
        cmdRefTimeSet 2 0 86399/1000000; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 +0 +86400 +86400 1 0
        cmdRefTimeSet 2 1/-1000000 -360002/1000000; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 +0 +86400 +86400 1 0
        cmdRefTimeSet 2 -2147/2147483647; cmdRefTimeFetch 2 -> 1 done, 1 replyTimeRefInfo 2 +0/483647 +86400 +86400/483647 1 0
        cmdRefTimeSet 2 10000-01-01T00:35:47/-2147483648 -86400 -> 1 done
        cmdRefTimeFetch 2 -> 1 replyTimeRefInfo 2 9999-12-31T23:59:59/516352 -86400 9999-12-30T23:59:59/516352 1 0
        cmdRefTimeSet 2 1 -360000/1; cmdRefTimeSet 2 -2148/2147483647; cmdRefTimeSet 2 10000-01-01T00:35:48/-2147483648 -> 1 EINVAL
        cmdRefTimeSet 2 -9223372036854775808/-2147483648; cmdRefTimeSet 2 9223372036854775807/2147483647 -> 1 EINVAL
        # In microseconds, the 64 bits of these would contain a time of 1970.
        cmdRefTimeSet 2 -18446744073709; cmdRefTimeSet 2 18446744073710 -> 1 EINVAL)");
}

TEST(TimeService, LetsEachClockStartAgainAtTheOtherEndOfTheCalendar)
{
    Desk desk;
    desk.ask("cmdTimezoneSet Australia/Sydney");
    desk.play("cmdRefTimeSet 2 9999-12-31T23:59:59; wait 2; cmdRefTimeFetch 2 -> 1 done, 1 "
              "replyTimeRefInfo 2 +1 +36000 +36001 1 0");
    desk.clock.setUtc(utc("9999-12-31T23:59:59"));
    desk.play(R"(
        cmdRefTimeSet 2 9999-12-31T23:59:58; due -> 1 done, in never
        cmdNextTimeDeviationChangeFetch 1 -> 1 replyUtcDeviationInfo 1 +0 -360000 +0 0 0
        wait 1/500000 -> 12 notifyDeviationChange 1 +0/500000 +36000 +36000/500000 1 0, 12 notifyDSTChange 0
        cmdRefTimeFetch 2 -> 1 replyTimeRefInfo 2 9999-12-31T23:59:59/500000 +39600 +253402340399/500000 1 0)");
}

TEST(TimeService, NotifiesSubscribersEachPeriodAndSkipsThoseMissed)
{
    Desk().play(R"(
        2 cmdRefTimeSubscribe 2; due; wait 0/500000; 2 cmdRefTimeSubscribe 2; due -> 2 done, in +1, 2 done, in +0/500000
        wait 0/500000 -> 2 notifyCurrentTime 2 2026-01-01T11:30:01 +3600 2026-01-01T12:30:01 1 0
        wait 60/500000; due -> 2 notifyCurrentTime 2 2026-01-01T11:31:01/500000 +3600 2026-01-01T12:31:01/500000 1 0, in +0/500000
        # Those of a client end with it, unlike its locks.
        2 cmdRefTimeUnsubscribe 2; 2 cmdRefTimeUnsubscribe 2; 2 cmdRefTimeSubscribe 3 -> 2 done
        cmdRefTimeSubscribe 1; cmdRefTimeSubscribe 3; cmdRefTimeSubscribe 5; cmdRefTimeLock 3 -> 1 done
        wait 1 -> 1 notifyCurrentTime 1 2026-01-01T11:31:02/500000 +3600 2026-01-01T12:31:02/500000 1 0, 1 notifyCurrentTime 3 +0 -360001 +0 0 0, 1 notifyCurrentTime 5 +0 -360001 +0 0 0, 2 notifyCurrentTime 3 +0 -360001 +0 0 0
        1 drop; wait 1 -> 2 notifyCurrentTime 3 +0 -360001 +0 0 0
        2 cmdRefTimeSet 3 0; 2 cmdRefTimeSet 5 0 -> 2 EBUSY, 2 done, 2 notifyDtvTimeChange +0
        2 cmdRefTimeUnsubscribe 3; wait 1 -> 2 done)");
}

TEST(TimeService, KeepsMoreZonesApartThanItRemembers)
{
    Desk desk;
    for (int i = 0; i < 100; ++i) {
        const std::string zone = "Etc/GMT-" + std::to_string(i * (i / 20 + 1) % 14);
        desk.ask("cmdTimezoneSet Etc/GMT+" + std::to_string(i % 12));
        desk.ask("cmdTimezoneSet " + zone);
        desk.play("cmdTimezoneFetch -> 1 replyTimezoneInfo " + zone + " 2026-01-01T11:30");
    }
}

TEST(TimeService, IgnoresWhatIsNotACommand)
{
    Desk().play("replyTimeRefAt 1 1; notifyDeviationChange 1; replyTimeAt 1; replyTimeRefInfo 1 -> "
                "nothing");
}

} // namespace
} // namespace chronal::sim
