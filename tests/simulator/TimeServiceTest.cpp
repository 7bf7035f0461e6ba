#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "Desk.h"

namespace chronal::sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::_;
using testing::FieldsAre;

const char* const done = "replyResult 0";
const std::string longestName(255, 'x');

const auto fetch = [](std::int32_t id) { return about(cmdRefTimeFetch, id); };
const auto next = [](std::int32_t id) { return about(cmdNextTimeDeviationChangeFetch, id); };
const auto timeAt = [](auto time, std::int32_t utc) { return command(cmdTimeAt, {time, utc}); };

TEST(TimeService, RefusesOptionsThatItCannotServe)
{
    for (const Options& options :
         {Options{"Mars/Olympus"}, Options{"UTC", seconds(0)}, Options{"UTC", milliseconds::min()},
          Options{"UTC", milliseconds::max()}})
        EXPECT_THROW(TimeService{options}, std::invalid_argument);
}

TEST(TimeService, AnswersEachCommand)
{
    const nubOsalTime_struct summer = at("2026-07-01 00:00:00");
    // The commands run one after the other on the same service.
    const std::pair<Content, Texts> rows[] = {
        // Only RTC and NTP have a time at the start.
        {fetch(1), {"replyTimeRefInfo 1 2026-01-01 11:30:00 +3600 2026-01-01 12:30:00 1 0"}},
        {next(2), {"replyUtcDeviationInfo 2 2026-03-29 01:00:00 +7200 2026-03-29 03:00:00 0 0"}},
        {fetch(3), {"replyTimeRefInfo 3 +0 -360001 +0 0 0"}},
        {next(5), {"replyUtcDeviationInfo 5 +0 -360001 +0 0 0"}},
        // A source uses its own deviation once one is announced.
        {about(cmdRefTimeSet, 3, summer, span(-360001), {}, {}, 77),
         {done, "notifyDtvTimeChange 2026-07-01 00:00:00"}},
        {fetch(3), {"replyTimeRefInfo 3 2026-07-01 00:00:00 +7200 2026-07-01 02:00:00 1 77"}},
        {about(cmdRefLocalTimeSet, 5, summer), {done, "notifyDtvTimeChange 2026-06-30 22:00:00"}},
        {about(cmdRefLocalTimeSet, 4, summer, span(-5400), {}, {}, -1), {done}},
        {fetch(4), {"replyTimeRefInfo 4 2026-07-01 01:30:00 -5400 2026-07-01 00:00:00 1 -1"}},
        {about(cmdRefLocalTimeSet, 4, summer), {done}}, // by the deviation in force
        {about(cmdRefTimeAt, 4, at("2026-07-01 01:30:00")),
         {"replyTimeRefAt 4 2026-07-01 01:30:00 -5400 2026-07-01 00:00:00 0 0"}},
        {next(4), {"replyUtcDeviationInfo 4 +0 -360000 +0 0 0"}},
        // Announced changes.
        {about(cmdNextTimeDeviationChangeSet, 3, at("2026-08-01 00:00:00"), span(0, -500000)),
         {done}},
        {next(3),
         {"replyUtcDeviationInfo 3 2026-08-01 00:00:00 +0.-500000 2026-07-31 23:59:59.500000 0 0"}},
        {about(cmdSendDaylightsavingInfo, 3, at("2026-09-01 00:00:00"), at("2026-10-01 00:00:00"),
               span(-3600), span(60)),
         {done}},
        {next(3), {"replyUtcDeviationInfo 3 2026-09-01 00:00:00 +60 2026-09-01 00:01:00 0 0"}},
        {about(cmdRefTimeAt, 3, at("2026-12-01 00:00:00")),
         {"replyTimeRefAt 3 2026-12-01 00:00:00 -3600 2026-11-30 23:00:00 0 0"}},
        // Times by the zone.
        {about(cmdRefTimeAt, 1, span(0)), {"replyTimeRefAt 1 +0 +3600 +3600 0 0"}},
        {timeAt(summer, -1), {"replyTimeAt 0 2026-07-01 00:00:00 +7200 2026-07-01 02:00:00 0 0"}},
        {timeAt(at("2026-10-25 02:30:00"), 0),
         {"replyTimeAt 0 2026-10-25 00:30:00 +7200 2026-10-25 02:30:00 0 0"}},
        // Locks are not counted.
        {about(cmdRefTimeLock, 2), {done}},
        {about(cmdRefTimeLock, 2), {done}},
        {about(cmdRefTimeUnlock, 2), {done}},
        {about(cmdRefTimeSet, 2, summer), {done}},
        // Settings.
        {settingsSet("a", -1, -1), {done}},
        {command(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00 +1.-1 -2 +3 +4 -5 a 0 0 0"}},
        {settingsSet("b", 2, 2), {done}},
        {settingsSet("c", -1, -1), {done}},
        {command(cmdTimezoneSyncEnableSet, {{}, {}, {}, {}, {}, 0, {}, 0, 0, 5}), {done}},
        {command(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00 +1.-1 -2 +3 +4 -5 c 1 1 5"}},
        {command(cmdDateTimeAutoTimeSet, {1}), {done}},
        {ntpSet("", 0), {done}},
        {ntpSet(longestName, -1), {done}},
        {command(cmdDateTimeNtpStart), {done}},
        // TimeInit restores the sources but keeps the settings and the zone.
        {command(cmdTimeInit), {done}},
        {fetch(4), {"replyTimeRefInfo 4 +0 -360001 +0 0 0"}},
        {command(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00 +1.-1 -2 +3 +4 -5 " + longestName +
          " 0 1 5"}},
        {command(cmdTimezoneFetch), {"replyTimezoneInfo Europe/Berlin 2026-01-01 11:30:00"}},
    };
    Desk desk;
    for (const auto& [command, answers] : rows)
        EXPECT_EQ(desk.ask(command), answers) << "row " << &answers - &rows[0].second;
}

/// Returns all state that can be fetched.
Texts everything(Desk& desk)
{
    Texts texts;
    for (const std::int32_t id : {1, 2, 3, 4, 5})
        for (const Content& question :
             {fetch(id), next(id), command(cmdDateTimeSettingsFetch), command(cmdTimezoneFetch)})
            texts.push_back(desk.ask(question).at(0));
    return texts;
}

TEST(TimeService, ChangesNothingWhenItRefusesACommand)
{
    Desk desk;
    desk.ask(about(cmdRefTimeSet, 3, at("2026-02-03 04:05:06"), span(1800), {}, {}, 9));
    desk.ask(about(cmdRefTimeLock, 3), 2);
    const Texts before = everything(desk);
    const auto refuses = [&](int error, const std::vector<Content>& commands) {
        for (const Content& command : commands) {
            SCOPED_TRACE(std::to_string(error) + ", " + std::to_string(&command - &commands[0]));
            EXPECT_EQ(desk.ask(command), Texts{"replyResult " + std::to_string(error)});
            EXPECT_EQ(desk.sent.size(), 1U);
            EXPECT_EQ(everything(desk), before);
        }
    };
    const nubOsalTime_struct early = span(-1), late = span(253402300800);
    const nubOsalTime_struct winter = at("2026-12-01 00:00:00");
    const nubOsalTime_struct skipped = at("2026-03-29 02:30:00");
    refuses(-EBUSY, {about(cmdRefTimeSet, 3, winter), about(cmdRefLocalTimeSet, 3, winter),
                     about(cmdNextTimeDeviationChangeSet, 3, winter, span(60)),
                     about(cmdSendDaylightsavingInfo, 3, span(1), span(2), span(3), span(4)),
                     command(cmdTimeInit)});
    refuses(-EPERM, {command(cmdDateTimeNtpStart)});
    refuses(-ENOENT, {zoneSet("../UTC"), zoneSet("../../../etc/passwd"), zoneSet("/etc/localtime"),
                      zoneSet("/usr/share/zoneinfo/UTC"), zoneSet("Europe/../Europe/Paris"),
                      zoneSet("Europe//Paris"), zoneSet("Europe/./Paris"), zoneSet("Europe/Paris/"),
                      zoneSet("file:/usr/share/zoneinfo/UTC"), zoneSet("libc:UTC"),
                      zoneSet("Fixed/UTC+05:00:00"), zoneSet("localtime"), zoneSet("europe/berlin"),
                      zoneSet(std::string("UTC\0", 4)), zoneSet(std::string("UTC\0x", 5)),
                      zoneSet(longestName), command(cmdTimezoneSet)});
    refuses(-EINVAL, {settingsSet(longestName + "x", 1, 0), settingsSet("", 1, 1),
                      ntpSet(longestName + "x", 0), ntpSet("", 1), zoneSet(longestName + "x"),
                      timeAt(early, 1), timeAt(late, 0), timeAt(skipped, 0)});
    refuses(-EINVAL,
            {about(cmdRefTimeSet, 1, early), about(cmdRefTimeSet, 1, late),
             about(cmdRefTimeSet, 5, winter, span(86400, 1)), about(cmdRefLocalTimeSet, 5, early),
             about(cmdRefLocalTimeSet, 5, late),
             about(cmdRefLocalTimeSet, 5, winter, span(-360002)),
             about(cmdRefLocalTimeSet, 5, span(1800)), about(cmdRefLocalTimeSet, 5, skipped),
             about(cmdRefLocalTimeSet, 5, span(253402300799), span(-60)),
             about(cmdNextTimeDeviationChangeSet, 1, early, span(60)),
             about(cmdNextTimeDeviationChangeSet, 1, winter, span(-86401)),
             about(cmdSendDaylightsavingInfo, 1, winter, winter, span(3), span(4)),
             about(cmdSendDaylightsavingInfo, 1, early, span(2), span(3), span(4)),
             about(cmdSendDaylightsavingInfo, 1, span(1), late, span(3), span(4)),
             about(cmdSendDaylightsavingInfo, 1, span(1), span(2), span(86401), span(4)),
             about(cmdSendDaylightsavingInfo, 1, span(1), span(2), span(3), span(86401)),
             about(cmdRefTimeAt, 1, early)});
    for (const std::int32_t id : {0, 6, -1, INT32_MIN})
        refuses(-EINVAL,
                {about(cmdRefTimeSet, id, winter), about(cmdRefLocalTimeSet, id, winter),
                 about(cmdRefTimeAt, id, winter), about(cmdNextTimeDeviationChangeSet, id, winter),
                 about(cmdSendDaylightsavingInfo, id, span(1), winter), fetch(id), next(id),
                 about(cmdRefTimeSubscribe, id), about(cmdRefTimeUnsubscribe, id),
                 about(cmdRefTimeLock, id), about(cmdRefTimeUnlock, id)});
}

TEST(TimeService, AcceptsExactlyTheZoneFilesOfTheDatabase)
{
    const std::filesystem::path database = "/usr/share/zoneinfo";
    Desk desk;
    int zones = 0, others = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(database)) {
        const std::string name = entry.path().lexically_relative(database);
        std::string start(4, '\0');
        std::ifstream(entry.path(), std::ios::binary).read(start.data(), 4);
        // Files in "right" count leap seconds, and "localtime" is the machine's own zone.
        const bool isZone = start == "TZif" && name.rfind("right/", 0) != 0 &&
                            entry.path().filename() != "localtime";
        const std::string answer = desk.ask(zoneSet(name)).at(0);
        EXPECT_EQ(answer, isZone ? done : "replyResult -2") << name;
        ++(isZone ? zones : others);
    }
    EXPECT_GT(zones, 300);
    EXPECT_GT(others, 10) << "directories, tables";
}

TEST(TimeService, AnswersWithTheIdsOfTheCommandAndNotifiesWithItsOwn)
{
    Desk desk;
    desk.ask(zoneSet("Europe/London"), 2);
    const fabric::MsgIds answer = {2, 99}, first = {0, 1}, second = {0, 2};
    EXPECT_THAT(desk.sent, testing::ElementsAre(FieldsAre(2, answer, _), FieldsAre(1, first, _),
                                                FieldsAre(2, first, _), FieldsAre(1, second, _),
                                                FieldsAre(2, second, _)));
}

TEST(TimeService, NotifiesAllClientsOfChangesAfterTheAnswer)
{
    const std::string deviation = "notifyDeviationChange 1 2026-07-01 00:00:00 ";
    const auto zone = [](const std::string& name) {
        return "notifyTimezoneChange " + name + " 2026-07-01 00:00:00";
    };
    const std::pair<Content, Texts> rows[] = {
        {about(cmdRefTimeSet, 1, at("2026-07-01 00:00:00"), span(-60)),
         {deviation + "-60 2026-06-30 23:59:00 1 0", "notifyDSTChange 1"}},
        {zoneSet("Europe/Berlin"), {deviation + "+7200 2026-07-01 02:00:00 1 0"}},
        {zoneSet("Europe/Berlin"), {}},
        {zoneSet("Europe/Paris"), {zone("Europe/Paris")}},
        {zoneSet("Africa/Johannesburg"), {zone("Africa/Johannesburg"), "notifyDSTChange 0"}},
        {zoneSet("America/New_York"),
         {zone("America/New_York"), deviation + "-14400 2026-06-30 20:00:00 1 0",
          "notifyDSTChange 1"}},
    };
    Desk desk;
    for (const auto& [command, notifications] : rows) {
        EXPECT_EQ(desk.ask(command, 3), Texts{done});
        EXPECT_EQ(desk.sentTo(1), notifications);
        EXPECT_EQ(desk.sentTo(2), notifications);
    }
}

/// Returns what client 2 gets until a time; the service is called whenever it is due.
Texts reported(Desk& desk, const std::string& until)
{
    Texts texts;
    while (desk.clock.now + desk.due < utc(until))
        for (const std::string& text : desk.advance(desk.due))
            texts.push_back(text);
    return texts;
}

TEST(TimeService, ReportsEachTransitionOfAYearWhenItComes)
{
    Desk desk;
    const Texts expected = {
        "notifyDeviationChange 1 2026-03-29 01:00:00 +7200 2026-03-29 03:00:00 1 0",
        "notifyDSTChange 1",
        "notifyDeviationChange 1 2026-10-25 01:00:00 +3600 2026-10-25 02:00:00 1 0",
        "notifyDSTChange 0"};
    EXPECT_EQ(reported(desk, "2027-01-01 00:00:00"), expected);
}

TEST(TimeService, LetsASourceRunBeyondTheEndOfTheCalendar)
{
    Desk desk;
    desk.ask(about(cmdRefTimeSet, 2, at("9999-12-31 23:59:59")));
    desk.advance(seconds(2));
    EXPECT_EQ(desk.ask(fetch(2)), Texts{"replyTimeRefInfo 2 +1 +3600 +3601 1 0"});
}

TEST(TimeService, ReportsAnnouncedChangesOfTheRtcWhenTheyCome)
{
    Desk desk;
    // The RTC is an hour ahead of the clock, so its changes come an hour sooner.
    desk.ask(about(cmdRefTimeSet, 1, at("2026-01-01 12:30:00")));
    desk.ask(about(cmdSendDaylightsavingInfo, 1, at("2026-01-01 13:00:00"),
                   at("2026-01-01 14:00:00"), span(3600), span(7200)));
    const Texts expected = {
        "notifyDeviationChange 1 2026-01-01 13:00:00 +7200 2026-01-01 15:00:00 1 0",
        "notifyDSTChange 1",
        "notifyDeviationChange 1 2026-01-01 14:00:00 +3600 2026-01-01 15:00:00 1 0",
        "notifyDSTChange 0"};
    EXPECT_EQ(reported(desk, "2027-01-01 00:00:00"), expected);
}

TEST(TimeService, SetsAnUnlockedRtcFromOtherSourcesWithAutomaticTimeOn)
{
    Desk desk;
    const std::string clockStart = "2026-01-01 11:30:00";
    const std::string first = "2026-02-01 00:00:00", second = "2026-02-02 00:00:00";
    const std::pair<Content, std::string> rows[] = {
        {about(cmdRefTimeSet, 3, at(first)), clockStart},
        {command(cmdDateTimeAutoTimeSet, {1}), clockStart},
        {about(cmdRefTimeSet, 4, at(second)), second},
        {about(cmdRefTimeLock, 1), second},
        {about(cmdRefTimeSet, 4, at(first)), second},
        {about(cmdRefTimeUnlock, 1), second},
        {ntpSet("time", 1), second},
        {command(cmdDateTimeNtpStart), clockStart},
    };
    for (const auto& [command, time] : rows) {
        EXPECT_EQ(desk.ask(command).at(0), done);
        EXPECT_EQ(desk.ask(fetch(1)).at(0).substr(19, 19), time);
    }
}

TEST(TimeService, NotifiesASubscriberEachPeriodAndSkipsThoseMissed)
{
    Desk desk;
    desk.ask(about(cmdRefTimeSubscribe, 2), 2);
    desk.advance(milliseconds(500));
    desk.ask(about(cmdRefTimeSubscribe, 2), 2);
    EXPECT_EQ(desk.due, milliseconds(500)) << "subscribing again does not change it";
    const std::string first = "2026-01-01 11:30:01 +3600 2026-01-01 12:30:01 1 0";
    EXPECT_EQ(desk.advance(desk.due), Texts{"notifyCurrentTime 2 " + first});
    EXPECT_EQ(desk.advance(milliseconds(60500)).size(), 1U);
    EXPECT_EQ(desk.due, milliseconds(500)) << "no drift";

    desk.ask(about(cmdRefTimeUnsubscribe, 2), 2);
    EXPECT_EQ(desk.ask(about(cmdRefTimeUnsubscribe, 2), 2), Texts{done});
    EXPECT_EQ(desk.advance(seconds(5)), Texts());
}

TEST(TimeService, ForgetsTheSubscriptionsOfAClientThatDisconnectsButNotItsLocks)
{
    Desk desk;
    for (const ClientId client : {1U, 2U})
        desk.ask(about(cmdRefTimeSubscribe, 3), client);
    desk.ask(about(cmdRefTimeLock, 3));
    desk.service.clientDisconnected(1);
    EXPECT_EQ(desk.advance(seconds(1)), Texts{"notifyCurrentTime 3 +0 -360001 +0 0 0"});
    EXPECT_EQ(desk.sentTo(1), Texts());
    desk.service.clientDisconnected(2);
    desk.ask(zoneSet("UTC"), 3);
    EXPECT_EQ(desk.sentTo(2), Texts());
    EXPECT_EQ(desk.ask(about(cmdRefTimeSet, 3, span(0)), 3), Texts{"replyResult -16"});
}

TEST(TimeService, AnswersAnyCommandWithAnyWords)
{
    Desk desk;
    std::mt19937 random(2026);
    const auto word = [&] { // near the bounds, or random
        static constexpr std::uint32_t chosen[] = {
            0,          1,     2,          5,    0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFA81BF,
            0xFFFFAE80, 86400, 0x6955B900, 0x3A, 0x00003FFF, 999999,     1000000,    0x6953F500};
        const auto draw = static_cast<std::uint32_t>(random());
        return draw % 3 == 0 ? draw : chosen[draw % std::size(chosen)];
    };
    const auto fill = [&](const nubEndianTable_t* table, char* field) {
        const std::array<std::uint32_t, 3> words = {word(), word(), word()};
        if (table == &__nub_EndianTable_nubDeserString_t)
            *reinterpret_cast<nubDeserString_t*>(field) = string(std::string(words[0] % 300, 1));
        else
            std::memcpy(field, words.data(), table ? 12 : 4);
    };
    for (int round = 0; round < 2000; ++round)
        for (std::size_t i = 0; i < catalogue().count; ++i) {
            const fabric::host::MessageType& type = catalogue().types[i];
            ASSERT_EQ(catalogue().find(type.resourceId, type.operationId, type.kind), &type);
            const Content message = {
                {catalogue().serviceId, type.resourceId, type.operationId, type.kind},
                fabric::SerializableMessageData::create(type.table->size, *type.table)};
            forEachField(*type.table, static_cast<char*>(message.data->payload), fill);
            ASSERT_EQ(desk.ask(message).empty(), type.kind != detail::kindCommand) << type.name;
            ASSERT_GT(desk.due.count(), 0);
            if (round % 100 == 0)
                desk.advance(Span(word()));
        }
}

} // namespace
} // namespace chronal::sim
