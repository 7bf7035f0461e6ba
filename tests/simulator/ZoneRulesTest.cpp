#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <malloc.h>
#include <sys/stat.h>

#include "Desk.h"

namespace chronal::sim {
namespace {

using std::chrono::hours;
using std::chrono::seconds;
namespace fs = std::filesystem;

const fs::path installed = "/usr/share/zoneinfo";

std::string contentOf(const fs::path& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

/// A temporary time-zone database.
struct Database
{
    Database() { setenv("TZDIR", mkdtemp(directory.data()), 1); }
    ~Database()
    {
        unsetenv("TZDIR");
        fs::remove_all(directory);
    }

    std::string directory = testing::TempDir() + "zones-XXXXXX";
};

/// Compares two years of a zone with the C library's reading of it, which TZ has chosen.
void compare(const DeviationRule& rule, Utc begin)
{
    const auto deviationAt = [&](Utc moment) {
        const auto time = static_cast<std::time_t>(moment.time_since_epoch() / seconds(1));
        const Period period = rule.periodAt(moment);
        std::tm read = {};
        localtime_r(&time, &read);
        EXPECT_TRUE(seconds(read.tm_gmtoff) == period.deviation &&
                    (read.tm_isdst != 0) == period.daylightSaving)
            << time << ": " << read.tm_gmtoff << " " << read.tm_isdst;
        return Span(seconds(read.tm_gmtoff));
    };
    constexpr hours step(24 * 28);
    for (Utc now = begin; now < begin + hours(2 * 365 * 24); now += step) {
        const Utc next = std::min(
            rule.nextChange(now).value_or(Period{Utc::max(), {}, {}, {}}).begin, now + step);
        const Span before = deviationAt(next - seconds(1)), after = deviationAt(next);
        EXPECT_EQ(deviationAt(now), before) << text(wireTime(now));
        EXPECT_EQ(before == after, next == now + step) << text(wireTime(now));
        for (const Span shown : {before, after})
            for (const int around : {-1, 0, 600}) {
                if (before == after)
                    continue;
                const Utc local = next + shown + seconds(around);
                std::optional<Utc> expected;
                for (const Span deviation : {std::min(before, after), std::max(before, after)})
                    if (deviationAt(local - deviation) == deviation)
                        expected = local - deviation;
                EXPECT_EQ(rule.toUtc(Local(local.time_since_epoch())), expected)
                    << text(wireTime(local));
            }
    }
}

TEST(ZoneRules, AreThoseOfTheCLibrary)
{
    if (sizeof(std::time_t) == 4)
        GTEST_SKIP() << "the C library does not know the time after 2038";
    // The closing rules of slim files apply sooner. Abseil keeps zones by name, so names differ.
    const Database database;
    fs::create_directory_symlink(installed, database.directory + "/fat");
    ASSERT_EQ(std::system(("PATH=$PATH:/usr/sbin zic -b slim -d " + database.directory + "/slim " +
                           (installed / "tzdata.zi").string())
                              .c_str()),
              0);
    std::set<std::string> read;
    int others = 0;
    for (const char* const kind : {"/fat", "/slim"})
        for (const auto& entry : fs::recursive_directory_iterator(database.directory + kind)) {
            const std::string name = entry.path().lexically_relative(database.directory);
            SCOPED_TRACE(name);
            const std::string content = contentOf(entry.path());
            // Files in "right" count leap seconds, and "localtime" is the machine's own zone.
            const auto zone = findZone(name);
            ASSERT_EQ(zone != nullptr, content.rfind("TZif", 0) == 0 &&
                                           name.rfind("fat/right/", 0) != 0 &&
                                           entry.path().filename() != "localtime");
            others += !zone;
            if (!zone || !read.insert(content).second)
                continue;
            setenv("TZ", (":" + name).c_str(), 1);
            tzset();
            // The years go past the lists of fat files, 32-bit times, and a cycle of the calendar.
            for (const int year : {1970, 2026, 2037, 2199, 2437, 9997})
                compare(DeviationRule(zone), utc(std::to_string(year) + "-01-01"));
        }
    unsetenv("TZ");
    tzset();
    EXPECT_GT(read.size(), 500U);
    EXPECT_GT(others, 10) << "directories, tables";
}

TEST(ZoneRules, FindNoZoneInADamagedFileOrOneThatCanBeUsed)
{
    const Database database;
    ASSERT_EQ(mkfifo((database.directory + "/Fifo").c_str(), 0600), 0);
    EXPECT_EQ(findZone("Fifo"), nullptr) << "must not block";
    EXPECT_NE(findZone("UTC"), nullptr) << "needs no database";
    std::vector<std::string> damaged = {"TZif" + std::string(100000, '\0')};
    // The first is short enough to be damaged at each byte of its two headers.
    for (const auto& [zone, step, bits] :
         {std::tuple("Asia/Tokyo", 1U, 0xff), std::tuple("Asia/Tokyo", 3U, 0x01),
          std::tuple("Europe/Berlin", 61U, 0xff)}) {
        const std::string whole = contentOf(installed / zone);
        ASSERT_EQ(whole.substr(0, 4), "TZif");
        for (std::size_t at = 0; at < whole.size(); at += step) {
            damaged.insert(damaged.end(), {whole.substr(0, at), whole});
            damaged.back()[at] = static_cast<char>(whole[at] ^ bits);
        }
    }
    std::size_t found = 0;
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        const std::string name = "Damaged" + std::to_string(i);
        std::ofstream(database.directory + '/' + name, std::ios::binary) << damaged[i];
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
    EXPECT_GT(found, 100U);
    EXPECT_LT(found, damaged.size() - 100);
}

TEST(ZoneRules, CacheNoNameThatIsNotInTheDatabase)
{
    const std::size_t before = mallinfo2().uordblks; // always 0 under a sanitizer
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(findZone(std::string(200, 'x') + std::to_string(i)), nullptr);
    EXPECT_LT(mallinfo2().uordblks, before + 50000);
}

TEST(Clock, RunsAtItsSpeedThroughTheEndOfTheCalendar)
{
    const Utc start = calendarEnd - Span(1);
    for (const double speed : {0.5, 1e9}) {
        const auto began = std::chrono::steady_clock::now();
        const SettableClock clock(start, speed);
        const auto begun = clock.steady();
        while (clock.steady() < begun + std::chrono::milliseconds(2))
            continue;
        const std::chrono::duration<double> least = clock.steady() - begun;
        const std::chrono::duration<double> shown =
            clock.utc() + calendarEnd.time_since_epoch() - start;
        const std::chrono::duration<double> most = clock.steady() - began;
        EXPECT_GE(shown / speed, least - Span(1));
        EXPECT_LE(shown / speed, most);
    }
    EXPECT_LE(std::abs(systemClock().utc().time_since_epoch() / seconds(1) - std::time(nullptr)),
              1);
}

TEST(Clock, WaitsUntilItsTimeOrAMinute)
{
    const SettableClock fast(Utc(), 1e3), slow(Utc(), 0.5);
    const std::tuple<const Clock&, Span, Span> rows[] = {
        {fast, hours(1), Span(3600000)},    {fast, Span(1), Span(1)},
        {fast, Span::max(), seconds(60)},   {slow, seconds(3), seconds(6)},
        {slow, Span(-1), Span(0)},          {systemClock(), seconds(3), seconds(3)},
        {systemClock(), Span(-1), Span(0)}, {systemClock(), Span::max(), seconds(60)}};
    for (const auto& [clock, wait, expected] : rows) {
        const auto earliest = clock.steady();
        const auto found = clock.steadyAfter(wait);
        EXPECT_TRUE(earliest + expected <= found && found <= clock.steady() + expected)
            << wait.count();
    }
}

} // namespace
} // namespace chronal::sim
