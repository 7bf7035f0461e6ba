#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <malloc.h>
#include <sys/stat.h>

#include "Desk.h"

namespace chronal::sim {
namespace {

using std::chrono::hours;

std::string describe(const Period& period)
{
    return text(wireSpan(period.deviation)) + (period.daylightSaving ? " DST" : "");
}

TEST(ZoneRules, FollowsTheDatabase)
{
    const std::array<const char*, 3> rows[] = {
        {"Europe/Berlin", "2026-01-01 00:00:00", "+3600, 2026-03-29 01:00:00 +7200 DST"},
        {"Europe/Berlin", "2026-03-29 00:59:59.999999", "+3600, 2026-03-29 01:00:00 +7200 DST"},
        {"Europe/Berlin", "2026-03-29 01:00:00", "+7200 DST, 2026-10-25 01:00:00 +3600"},
        {"America/New_York", "2026-07-01 00:00:00", "-14400 DST, 2026-11-01 06:00:00 -18000"},
        {"Australia/Lord_Howe", "2026-07-01 00:00:00", "+37800, 2026-10-03 15:30:00 +39600 DST"},
        {"Asia/Kolkata", "2026-07-01 00:00:00", "+19800"},
        {"UTC", "9999-12-31 23:59:59", "+0"},
        // The closing rule applies to times after those that the database lists.
        {"Europe/Berlin", "2040-05-01 00:00:00", "+7200 DST, 2040-10-28 01:00:00 +3600"},
        {"Europe/Berlin", "2437-12-01 00:00:00", "+3600, 2438-03-28 01:00:00 +7200 DST"},
        {"Europe/Dublin", "2440-01-01 00:00:00", "+0 DST, 2440-03-25 01:00:00 +3600"},
        {"Australia/Sydney", "9998-06-01 00:00:00", "+36000, 9998-10-03 16:00:00 +39600 DST"},
        {"Europe/Berlin", "9999-12-01 00:00:00", "+3600"},
        // A transition of 1968 changed the daylight-saving state but not the deviation.
        {"Europe/London", "1968-12-01 00:00:00", "+3600, 1971-10-31 02:00:00 +0"},
    };
    for (const auto& [zone, moment, expected] : rows) {
        const DeviationRule rule(findZone(zone));
        std::string found = describe(rule.periodAt(utc(moment)));
        if (const std::optional<Period> next = rule.nextChange(utc(moment)))
            found += ", " + text(wireTime(next->begin)) + " " + describe(*next);
        EXPECT_EQ(found, expected) << zone << " " << moment;
    }
}

TEST(ZoneRules, FindsTheEarliestUtcOfALocalTimeUnlessItIsSkipped)
{
    const std::array<const char*, 3> rows[] = {
        {"Europe/Berlin", "2026-03-29 01:59:59.999999", "2026-03-29 00:59:59.999999"},
        {"Europe/Berlin", "2026-03-29 02:00:00", "skipped"},
        {"Europe/Berlin", "2026-03-29 02:59:59.999999", "skipped"},
        {"Europe/Berlin", "2026-03-29 03:00:00", "2026-03-29 01:00:00"},
        {"Europe/Berlin", "2026-10-25 02:00:00", "2026-10-25 00:00:00"},
        {"Europe/Berlin", "2026-10-25 03:00:00", "2026-10-25 02:00:00"},
        {"Australia/Lord_Howe", "2026-04-05 01:45:00", "2026-04-04 14:45:00"},
        {"Pacific/Apia", "2011-12-30 12:00:00", "skipped"}, // a whole day
        {"Europe/Berlin", "2799-03-28 02:30:00", "skipped"},
        {"Europe/Berlin", "2799-10-31 02:30:00", "2799-10-31 00:30:00"},
    };
    for (const auto& [zone, local, expected] : rows) {
        const auto found = DeviationRule(findZone(zone)).toUtc(parsed<Local>(local));
        EXPECT_EQ(found ? text(wireTime(*found)) : "skipped", expected) << zone << " " << local;
    }
}

/// A temporary time-zone database.
class Database
{
public:
    Database()
    {
        setenv("TZDIR", mkdtemp(directory_.data()), 1);
        std::filesystem::create_directory(directory_ + "/Damaged");
        EXPECT_EQ(mkfifo((directory_ + "/Fifo").c_str(), 0600), 0);
    }
    ~Database()
    {
        unsetenv("TZDIR");
        std::filesystem::remove_all(directory_);
    }
    void write(const std::string& name, const std::string& content) const
    {
        std::ofstream(directory_ + '/' + name, std::ios::binary) << content;
    }

private:
    std::string directory_ = testing::TempDir() + "zones-XXXXXX";
};

TEST(ZoneRules, ReadsADamagedFileAsSomeZoneOrRefusesIt)
{
    std::vector<std::string> damaged;
    // The first is short enough to be damaged at each byte of its two headers.
    for (const auto& [zone, step] :
         {std::pair("Asia/Tokyo", 1U), std::pair("Europe/Berlin", 37U)}) {
        std::ifstream file(std::string("/usr/share/zoneinfo/") + zone, std::ios::binary);
        const std::string whole{std::istreambuf_iterator<char>(file), {}};
        ASSERT_EQ(whole.substr(0, 4), "TZif");
        for (std::size_t at = 0; at < whole.size(); at += step) {
            damaged.push_back(whole.substr(0, at));
            for (const char bits : {'\x01', '\x40', '\xff'}) {
                damaged.push_back(whole);
                damaged.back()[at] = static_cast<char>(whole[at] ^ bits);
            }
        }
    }
    damaged.push_back("TZif" + std::string(100000, '\0'));
    const Database database;
    EXPECT_EQ(findZone("Fifo"), nullptr) << "must not block";
    int found = 0;
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        const std::string name = "Damaged/" + std::to_string(i);
        database.write(name, damaged[i]);
        const auto zone = findZone(name);
        found += zone != nullptr;
        for (Utc now; zone && now < calendarEnd; now += hours(24 * 36500)) {
            const DeviationRule rule(zone);
            const Period period = rule.periodAt(now);
            EXPECT_TRUE(period.begin <= now && now < period.end) << name;
            EXPECT_LE(std::chrono::abs(period.deviation), largestDeviation) << name;
            EXPECT_GT(rule.nextChange(now).value_or(Period{now + hours(1), {}, {}, {}}).begin, now);
            rule.toUtc(Local(now.time_since_epoch()));
        }
    }
    EXPECT_GT(found, 100);
    EXPECT_LT(found, static_cast<int>(damaged.size()) - 100);
}

TEST(ZoneRules, CachesNoNameThatIsNotInTheDatabase)
{
    const std::size_t before = mallinfo2().uordblks; // always 0 under a sanitizer
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(findZone(std::string(200, 'x') + std::to_string(i)), nullptr);
    EXPECT_LT(mallinfo2().uordblks, before + 50000);
}

TEST(ZoneRules, AnnouncedChangesOverrideTheZoneAndEarlierChanges)
{
    const Utc now = utc("2026-01-01 00:00:00");
    DeviationRule rule(findZone("Europe/Berlin"));
    const auto after = [&](int time) { return describe(rule.periodAt(now + hours(time))); };

    rule.announce({{now + hours(2), hours(5), {}}}, now);
    rule.announce({{now + hours(1), hours(3), true}, {now + hours(4), hours(4), false}}, now);
    EXPECT_EQ(after(2), "+10800 DST");
    EXPECT_EQ(rule.toUtc(Local(now.time_since_epoch()) + hours(3)), std::nullopt);

    rule.setCurrent(hours(-2), now + hours(1));
    EXPECT_EQ(after(0), "-7200");
    EXPECT_EQ(after(3), "-7200");
    EXPECT_EQ(after(4), "+14400") << "pending changes stay";

    rule.announce({{now + hours(9), hours(9), {}}}, now + hours(4));
    EXPECT_EQ(after(5), "+14400") << "the change in force stays";
    EXPECT_EQ(rule.nextChange(now + hours(9)), std::nullopt) << "announced changes hold";

    rule.announce({{now + hours(10), hours(1), true}}, now + hours(9));
    rule.announce({{now + hours(11), hours(2), {}}}, now + hours(10));
    rule.announce({{now + hours(20), hours(3), {}}}, now + hours(12));
    EXPECT_EQ(after(12), "+7200 DST") << "the state of an earlier change stays as well";
}

TEST(Clock, StartsAgainAtTheOtherEndOfTheCalendar)
{
    constexpr Span second = std::chrono::seconds(1);
    const std::pair<Utc, Utc> rows[] = {
        {Utc(), Utc()},
        {calendarEnd - second, calendarEnd - second},
        {calendarEnd, Utc()},
        {calendarEnd + second, Utc(second)},
        {Utc(-second), calendarEnd - second},
        {Utc(-3 * calendarEnd.time_since_epoch()), Utc()},
    };
    for (const auto& [moment, shown] : rows)
        EXPECT_EQ(shown, wrapped(moment)) << moment.time_since_epoch().count();

    const ScaledClock clock(calendarEnd - Span(1), 1e6);
    const auto giveUp = clock.steady() + std::chrono::seconds(20);
    while (clock.utc() >= calendarEnd - Span(1) && clock.steady() < giveUp)
        continue;
    EXPECT_LT(clock.utc(), Utc(std::chrono::hours(24 * 365)));
}

TEST(Clock, ShowsTheMachinesTime)
{
    const auto shown = systemClock().utc().time_since_epoch() / std::chrono::seconds(1);
    EXPECT_LE(std::abs(shown - std::time(nullptr)), 1);
}

TEST(WireTime, AcceptsTimesOfTheCalendarInAnyFormAndNoOthers)
{
    constexpr std::int64_t end = 253402300800;
    const std::pair<nubOsalTime_struct, bool> rows[] = {
        {{0, -1}, false},
        {{1, -1000000}, true},
        {{-2147, INT32_MAX}, true},
        {{-2148, INT32_MAX}, false},
        {{end - 1, 999999}, true},
        {{end, 0}, false},
        {{end, -1}, true},
        {{end + 2147, INT32_MIN}, true},
        {{INT64_MIN, INT32_MIN}, false},
        {{INT64_MAX, INT32_MAX}, false},
    };
    for (const auto& [time, taken] : rows) {
        const std::optional<Utc> read = readUtc(time);
        EXPECT_EQ(read.has_value(), taken) << text(time);
        EXPECT_EQ(readLocal(time).has_value(), taken) << text(time);
        const nubOsalTime_struct normal = wireTime(read.value_or(Utc()));
        EXPECT_EQ(nubOsalCompareTime(&normal, &time) == 0, taken) << text(time);
    }
}

TEST(WireTime, KeepsTheSignOfADeviationInBothFieldsAndTheFractionOfATimePositive)
{
    EXPECT_EQ(text(wireTime(Utc(Span(-1)))), "-1.999999");
    EXPECT_EQ(text(wireSpan(*readDeviation(span(-2, 500000)))), "-1.-500000");
    EXPECT_EQ(text(wireSpan(*readDeviation(span(86399, 1000000)))), "+86400");
    EXPECT_FALSE(readDeviation(span(86400, 1)) || readDeviation(span(-86400, -1)));
    EXPECT_TRUE(isAnnounced(span(0, -1)) && isAnnounced(span(-360000, 1)));
    EXPECT_FALSE(isAnnounced(span(-360000)) || isAnnounced(span(-360002, 1000000)));
}

} // namespace
} // namespace chronal::sim
