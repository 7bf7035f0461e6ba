#include <limits>

#include <gtest/gtest.h>

#include "Desk.h"

namespace chronal::sim {
namespace {

TEST(ZoneRules, FollowsTheDatabase)
{
    const struct
    {
        const char* zone;
        const char* moment;
        int deviation;
        bool daylightSaving;
        const char* change;
        int deviationAfter;
    } cases[] = {
        {"Europe/Berlin", "2026-01-01 00:00:00", 3600, false, "2026-03-29 01:00:00", 7200},
        {"Europe/Berlin", "2026-03-29 00:59:59.999999", 3600, false, "2026-03-29 01:00:00", 7200},
        {"Europe/Berlin", "2026-03-29 01:00:00", 7200, true, "2026-10-25 01:00:00", 3600},
        {"America/New_York", "2026-07-01 00:00:00", -14400, true, "2026-11-01 06:00:00", -18000},
        {"Australia/Lord_Howe", "2026-07-01 00:00:00", 37800, false, "2026-10-03 15:30:00", 39600},
        {"Asia/Kolkata", "2026-07-01 00:00:00", 19800, false, nullptr, 0},
        {"UTC", "9999-12-31 23:59:59", 0, false, nullptr, 0},
        // Daylight saving all year round for a time: a transition that leaves the deviation alone.
        {"Europe/London", "1968-12-01 00:00:00", 3600, false, "1971-10-31 02:00:00", 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.moment);
        const DeviationRule rule(*findZone(row.zone));
        const Period period = rule.periodAt(utc(row.moment));
        EXPECT_EQ(period.deviation, std::chrono::seconds(row.deviation));
        EXPECT_EQ(period.daylightSaving, row.daylightSaving);
        const std::optional<Period> next = rule.nextChange(utc(row.moment));
        ASSERT_EQ(next.has_value(), row.change != nullptr);
        if (next) {
            EXPECT_EQ(next->begin, utc(row.change));
            EXPECT_EQ(next->deviation, std::chrono::seconds(row.deviationAfter));
        }
    }
}

TEST(ZoneRules, FindsTheEarliestUtcOfALocalTimeAndNoneForASkippedOne)
{
    const struct
    {
        const char* zone;
        const char* local;
        const char* utc; // null: skipped
    } cases[] = {
        {"UTC", "2026-01-01 00:00:00", "2026-01-01 00:00:00"},
        {"Asia/Kolkata", "2026-01-01 00:00:00", "2025-12-31 18:30:00"},
        {"Europe/Berlin", "2026-03-29 01:59:59.999999", "2026-03-29 00:59:59.999999"},
        {"Europe/Berlin", "2026-03-29 02:00:00", nullptr},
        {"Europe/Berlin", "2026-03-29 02:59:59.999999", nullptr},
        {"Europe/Berlin", "2026-03-29 03:00:00", "2026-03-29 01:00:00"},
        {"Europe/Berlin", "2026-10-25 02:00:00", "2026-10-25 00:00:00"},
        {"Europe/Berlin", "2026-10-25 02:59:59", "2026-10-25 00:59:59"},
        {"Europe/Berlin", "2026-10-25 03:00:00", "2026-10-25 02:00:00"},
        {"America/New_York", "2026-11-01 01:30:00", "2026-11-01 05:30:00"},
        {"America/New_York", "2026-03-08 02:30:00", nullptr},
        {"Australia/Lord_Howe", "2026-04-05 01:45:00", "2026-04-04 14:45:00"},
        {"Australia/Lord_Howe", "2026-10-04 02:15:00", nullptr},
        {"Pacific/Apia", "2011-12-30 12:00:00", nullptr}, // a whole day
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.local);
        const DeviationRule rule(*findZone(row.zone));
        const std::optional<Utc> found = rule.toUtc(parsed<Local>(row.local));
        ASSERT_EQ(found.has_value(), row.utc != nullptr);
        if (found) {
            EXPECT_EQ(*found, utc(row.utc));
        }
    }
}

TEST(ZoneRules, HasOnlyTheZonesOfTheDatabase)
{
    for (const char* const name : {"", "../UTC", "/etc/passwd", "Europe", "Europe/Berlin ",
                                   "europe/berlin", "tzdata.zi", "Mars/Olympus"})
        EXPECT_EQ(findZone(name), nullptr) << name;
    EXPECT_EQ(findZone(std::string("UTC\0x", 5)), nullptr);
}

TEST(ZoneRules, AnnouncedChangesTakeOverFromTheZoneAndFromThoseBefore)
{
    using std::chrono::hours;
    const Utc now = utc("2026-01-01 00:00:00");
    DeviationRule rule(*findZone("Europe/Berlin"));

    rule.announce({{now + hours(2), hours(5), {}}}, now);
    rule.announce({{now + hours(1), hours(3), true}, {now + hours(4), hours(4), false}}, now);
    EXPECT_EQ(rule.periodAt(now).deviation, hours(1));
    EXPECT_EQ(rule.periodAt(now + hours(2)).deviation, hours(3));
    EXPECT_TRUE(rule.periodAt(now + hours(2)).daylightSaving);
    EXPECT_EQ(rule.nextChange(now)->begin, now + hours(1));
    EXPECT_EQ(rule.toUtc(Local(now.time_since_epoch()) + hours(3)), std::nullopt);

    rule.setCurrent(hours(-2), now + hours(2));
    EXPECT_EQ(rule.periodAt(now).deviation, hours(-2));
    EXPECT_EQ(rule.periodAt(now + hours(3)).deviation, hours(-2));
    EXPECT_EQ(rule.periodAt(now + hours(4)).deviation, hours(4)) << "what is pending stays";

    rule.announce({{now + hours(9), hours(9), {}}}, now + hours(4));
    EXPECT_EQ(rule.periodAt(now + hours(5)).deviation, hours(4)) << "what is in force stays";
    EXPECT_EQ(rule.nextChange(now + hours(9)), std::nullopt) << "announced changes hold";
}

TEST(WireTime, TakesTimesOfTheCalendarInAnyFormAndNoOthers)
{
    constexpr std::int64_t end = 253402300800;
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const struct
    {
        nubOsalTime_struct time;
        bool taken;
    } cases[] = {
        {span(0, 0), true},
        {span(0, -1), false},
        {span(1, -1000000), true},
        {span(-2147, 2147483647), true},
        {span(-2148, 2147483647), false},
        {span(end - 1, 999999), true},
        {span(end, 0), false},
        {span(end, -1), true},
        {span(end + 2147, -2147483647 - 1), true},
        {span(least, -2147483647 - 1), false},
        {span(most, 2147483647), false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(spanText(row.time));
        const std::optional<Utc> read = readUtc(row.time);
        ASSERT_EQ(read.has_value(), row.taken);
        EXPECT_EQ(readLocal(row.time).has_value(), row.taken);
        if (read) {
            const nubOsalTime_struct normal = wireTime(*read);
            EXPECT_TRUE(0 <= normal.microseconds && normal.microseconds < 1000000);
            EXPECT_EQ(nubOsalCompareTime(&normal, &row.time), 0);
        }
    }
}

TEST(WireTime, KeepsTheSignOfADeviationInBothFieldsAndTheFractionOfATimePositive)
{
    EXPECT_EQ(spanText(wireTime(Utc(Span(-1)))), "-1.999999");
    EXPECT_EQ(spanText(wireSpan(*readDeviation(span(-2, 500000)))), "-1.-500000");
    EXPECT_EQ(spanText(wireSpan(*readDeviation(span(86399, 1000000)))), "+86400");
    EXPECT_FALSE(readDeviation(span(86400, 1)));
    EXPECT_FALSE(readDeviation(span(-86400, -1)));
    EXPECT_TRUE(isAnnounced(span(0, -1)));
    EXPECT_TRUE(isAnnounced(span(-360000, 1)));
    EXPECT_FALSE(isAnnounced(span(-360000)));
    EXPECT_FALSE(isAnnounced(span(-360002, 1000000)));
}

} // namespace
} // namespace chronal::sim
