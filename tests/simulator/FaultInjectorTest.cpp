#include "Desk.h"

namespace chronal::sim {
namespace {

TEST(FaultInjector, RefusesByNameAndDropsAClientAfterItsCommands)
{
    Desk(2, {"cmdUTCTimeAt", "cmdRefTimeSet"}).play(R"(
        cmdTimeAt 0 1; 2 cmdRefTimeSet 1 0 -> 12 EACCES
        cmdTimeAt 2026-07-01T02:00 0 -> 1 replyTimeAt 0 2026-07-01 +7200 2026-07-01T02:00 0 0, 1 dropped
        cmdTimezoneFetch -> 1 replyTimezoneInfo Europe/Berlin 2026-01-01T11:30
        2 drop; 2 connect; 2 cmdTimezoneFetch -> 2 replyTimezoneInfo Europe/Berlin 2026-01-01T11:30
        2 cmdRefTimeSet 1 0 -> 2 EACCES, 2 dropped)");
}

TEST(FaultInjector, KnowsEachCommandByTheOperationThatSendsIt)
{
    const std::vector<std::string> names = commandNames();
    EXPECT_EQ(names.size(), 22U);
    EXPECT_THAT(names, testing::IsSupersetOf({"cmdRefTimeSet", "cmdUTCTimeAt", "cmdLocaltimeAt"}));
}

TEST(FaultInjector, LogsConnectionsAndMessagesWithTheirIds)
{
    std::string log;
    Desk desk(0, {"cmdTimeInit"}, [&](const std::string& line) { log += '\n' + line; });
    desk.run("cmdRefTimeSet 1 0 -5 7; 2 cmdTimezoneSet UTC; cmdTimeInit; 2 drop");
    EXPECT_EQ(log, R"(
client 1 connected
client 2 connected
client 1 -> cmdRefTimeSet #1:99 refTimeId=RTC(1) time1=+0us value=7 time2=-5s time3=+0us time4=+0us
client 1 <- replyResult #1:99 result=0
client 1 <- notifyDeviationChange #0:1 refTimeId=RTC(1) utcTime=+0us utcDeviation=-5s localTime=-5s flag=1 value=7
client 2 <- notifyDeviationChange #0:1 refTimeId=RTC(1) utcTime=+0us utcDeviation=-5s localTime=-5s flag=1 value=7
client 2 -> cmdTimezoneSet #2:99 timezone="UTC" time=+0us
client 2 <- replyResult #2:99 result=0
client 1 <- notifyTimezoneChange #0:2 timezone="UTC" time=+0us
client 2 <- notifyTimezoneChange #0:2 timezone="UTC" time=+0us
client 1 <- notifyDeviationChange #0:3 refTimeId=RTC(1) utcTime=+0us utcDeviation=+0us localTime=+0us flag=1 value=7
client 2 <- notifyDeviationChange #0:3 refTimeId=RTC(1) utcTime=+0us utcDeviation=+0us localTime=+0us flag=1 value=7
client 1 -> cmdTimeInit #1:99 autoTime=0
client 1 <- replyResult #1:99 result=-13
client 2 disconnected)");
}

TEST(MessageText, NamesEachFieldOfARecord)
{
    std::string lines;
    for (const char* const fields :
         {"cmdDateTimeNtpStart 7", "notifyDSTChange 1", "notifyDtvTimeChange 360001",
          "notifyDtvTimeChange 360002", "notifyDtvTimeChange -360001",
          "cmdDateTimeNtpSet \"a\\\"\\\\b\" 1", "replyDateTimeSettingsInfo 1 2 3 4 5 6 t 7 8 9",
          "replyTimeAt 2 1 2 3 4 5", "cmdTimeAt 1 0", "cmdTimeAt 1 2", "cmdRefTimeSet 9 1 2 3 4 5",
          "cmdRefTimeLock 3"})
        lines += '\n' + messageText(message(fields));
    EXPECT_EQ(lines, R"(
cmdDateTimeNtpStart #0:0 dummy=7
notifyDSTChange #0:0 dst=1
notifyDtvTimeChange #0:0 dtvTime=+4d.04h.00m.01s
notifyDtvTimeChange #0:0 dtvTime='1970-01-05 04:00:02.000'
notifyDtvTimeChange #0:0 dtvTime=DEVIATION_UNKNOWN
cmdDateTimeNtpSet #0:0 text="a\x22\x5cb" flag=1
replyDateTimeSettingsInfo #0:0 time0=+1s time1=+2s time2=+3s time3=+4s time4=+5s value=6 text="t" flag1=7 flag2=8 timezoneSyncEnable=9
replyTimeAt #0:0 refTimeId=NTP(2) utcTime=+1s utcDeviation=+2s localTime=+3s flag=4 value=5
cmdLocaltimeAt #0:0 time=+1s isUtc=0
cmdUTCTimeAt #0:0 time=+1s isUtc=2
cmdRefTimeSet #0:0 refTimeId=<unknown>(9) time1=+1s value=3 time2=+2s time3=+4s time4=+5s
cmdRefTimeLock #0:0 refTimeId=DVB(3))");
    EXPECT_EQ(messageText({{}, {}, nullptr}), "unknown message");
}

} // namespace
} // namespace chronal::sim
