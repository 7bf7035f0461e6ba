#include <array>
#include <cstring>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Desk.h"

namespace chronal::sim {
namespace {

using std::chrono::hours;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const clockStart = "2026-01-01 11:30:00";
const nubOsalTime_struct tooLate = span(253402300800);
const std::string longestName(255, 'x');

constexpr const char* refusedInvalid = "replyResult -22";
constexpr const char* refusedBusy = "replyResult -16";

TEST(Catalogue, HoldsEachMessageOnceUnderItsIdentity)
{
    EXPECT_EQ(catalogue().count, 21U + 12U);
    for (std::size_t i = 0; i < catalogue().count; ++i) {
        const fabric::host::MessageType& type = catalogue().types[i];
        EXPECT_EQ(catalogue().find(type.resourceId, type.operationId, type.kind), &type)
            << type.name;
    }
    EXPECT_EQ(&catalogue(), &fabric::host::serviceCatalogue());
    EXPECT_EQ(&catalogue(), &fabric::host::createService()->catalogue());
}

TEST(TimeService, RefusesOptionsThatItCannotServe)
{
    const Options cases[] = {{"Mars/Olympus"},
                             {"", seconds(1)},
                             {"UTC", seconds(0)},
                             {"UTC", std::chrono::milliseconds::min()},
                             {"UTC", std::chrono::milliseconds::max()}};
    for (const Options& options : cases)
        EXPECT_THROW(TimeService{options}, std::invalid_argument);
}

TEST(TimeService, StartsWithTheTrueTimeInTheRtcAndNtpSourcesOnly)
{
    Desk desk;
    const std::string valid = ": 2026-01-01 11:30:00 +3600 = 2026-01-01 12:30:00, 1 0";
    const std::string none = ": 1970-01-01 00:00:00 -360001 = 1970-01-01 00:00:00, 0 0";
    const struct
    {
        referenceTimeId_enum id;
        bool hasTime;
    } cases[] = {{referenceTimeRtc, true},
                 {referenceTimeNtp, true},
                 {referenceTimeDvb, false},
                 {referenceTimeTeletext, false},
                 {referenceTimeAtsc, false}};
    for (const auto& row : cases) {
        const std::string id = std::to_string(row.id);
        EXPECT_THAT(desk.ask(about(cmdRefTimeFetch, row.id)),
                    ElementsAre("replyTimeRefInfo " + id + (row.hasTime ? valid : none)));
        EXPECT_THAT(
            desk.ask(about(cmdNextTimeDeviationChangeFetch, row.id)),
            ElementsAre(
                "replyUtcDeviationInfo " + id +
                (row.hasTime ? ": 2026-03-29 01:00:00 +7200 = 2026-03-29 03:00:00, 0 0" : none)));
    }
}

TEST(TimeService, AnswersEachCommand)
{
    const char* const done = "replyResult 0";
    const nubOsalTime_struct summer = at("2026-07-01 00:00:00");
    const nubOsalTime_struct unknown = span(-360001);
    // One after the other on the same service.
    const struct
    {
        Content command;
        Texts answers;
    } cases[] = {
        // Times of a source, by its own deviation once one is announced.
        {about(cmdRefTimeSet, 3, summer, unknown, {}, {}, 77),
         {done, "notifyDtvTimeChange 2026-07-01 00:00:00"}},
        {about(cmdRefTimeFetch, 3),
         {"replyTimeRefInfo 3: 2026-07-01 00:00:00 +7200 = 2026-07-01 02:00:00, 1 77"}},
        {about(cmdRefLocalTimeSet, 5, summer), {done, "notifyDtvTimeChange 2026-06-30 22:00:00"}},
        {about(cmdRefLocalTimeSet, 4, summer, span(-5400), {}, {}, -1), {done}},
        {about(cmdRefTimeFetch, 4),
         {"replyTimeRefInfo 4: 2026-07-01 01:30:00 -5400 = 2026-07-01 00:00:00, 1 -1"}},
        {about(cmdRefLocalTimeSet, 4, summer), {done}}, // by what is in force
        {about(cmdRefTimeAt, 4, at("2026-07-01 01:30:00")),
         {"replyTimeRefAt 4: 2026-07-01 01:30:00 -5400 = 2026-07-01 00:00:00, 0 0"}},
        {about(cmdNextTimeDeviationChangeFetch, 4),
         {"replyUtcDeviationInfo 4: 1970-01-01 00:00:00 -360000 = 1970-01-01 00:00:00, 0 0"}},
        // Announced changes.
        {about(cmdNextTimeDeviationChangeSet, 3, at("2026-08-01 00:00:00"), span(0, -500000)),
         {done}},
        {about(cmdNextTimeDeviationChangeFetch, 3),
         {"replyUtcDeviationInfo 3: 2026-08-01 00:00:00 +0.-500000 = "
          "2026-07-31 23:59:59.500000, 0 0"}},
        {about(cmdSendDaylightsavingInfo, 3, at("2026-09-01 00:00:00"), at("2026-10-01 00:00:00"),
               span(-3600), span(60)),
         {done}},
        {about(cmdNextTimeDeviationChangeFetch, 3),
         {"replyUtcDeviationInfo 3: 2026-09-01 00:00:00 +60 = 2026-09-01 00:01:00, 0 0"}},
        {about(cmdRefTimeAt, 3, at("2026-12-01 00:00:00")),
         {"replyTimeRefAt 3: 2026-12-01 00:00:00 -3600 = 2026-11-30 23:00:00, 0 0"}},
        // Times by the zone.
        {about(cmdRefTimeAt, 1, span(0)),
         {"replyTimeRefAt 1: 1970-01-01 00:00:00 +3600 = 1970-01-01 01:00:00, 0 0"}},
        {timeAt(summer, -1),
         {"replyTimeAt 0: 2026-07-01 00:00:00 +7200 = 2026-07-01 02:00:00, 0 0"}},
        {timeAt(at("2026-10-25 02:30:00"), 0),
         {"replyTimeAt 0: 2026-10-25 00:30:00 +7200 = 2026-10-25 02:30:00, 0 0"}},
        // Locks do not count.
        {about(cmdRefTimeLock, 2), {done}},
        {about(cmdRefTimeLock, 2), {done}},
        {about(cmdRefTimeUnlock, 2), {done}},
        {about(cmdRefTimeSet, 2, summer), {done}},
        // Settings.
        {settingsSet("a", -1, -1), {done}},
        {plain(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00, +1.-1 -2 +3 +4 -5 'a' 0 0 0"}},
        {settingsSet("b", 2, 2), {done}},
        {settingsSet("c", -1, -1), {done}},
        {compose(cmdTimezoneSyncEnableSet,
                 [](chronalMsgDateTime_t& record) { record.timezoneSyncEnable = 5; }),
         {done}},
        {plain(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00, +1.-1 -2 +3 +4 -5 'c' 1 1 5"}},
        {autoTimeSet(1), {done}},
        {ntpSet("", 0), {done}},
        {ntpSet(longestName, -1), {done}},
        {plain(cmdDateTimeNtpStart), {done}},
        {about(cmdRefTimeFetch, 2),
         {"replyTimeRefInfo 2: 2026-01-01 11:30:00 +3600 = 2026-01-01 12:30:00, 1 0"}},
        // Everything as at the start, but for the settings and the zone.
        {plain(cmdTimeInit), {done}},
        {about(cmdRefTimeFetch, 4),
         {"replyTimeRefInfo 4: 1970-01-01 00:00:00 -360001 = 1970-01-01 00:00:00, 0 0"}},
        {plain(cmdDateTimeSettingsFetch),
         {"replyDateTimeSettingsInfo 2026-01-01 11:30:00, +1.-1 -2 +3 +4 -5 '" + longestName +
          "' 0 1 5"}},
        {plain(cmdTimezoneFetch), {"replyTimezoneInfo Europe/Berlin 2026-01-01 11:30:00"}},
    };
    Desk desk;
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(desk.ask(cases[i].command), cases[i].answers) << "case " << i;
}

TEST(TimeService, ChangesNothingByACommandThatItRefuses)
{
    const nubOsalTime_struct winter = at("2026-12-01 00:00:00");
    const nubOsalTime_struct skipped = at("2026-03-29 02:30:00");
    const struct
    {
        Content command;
        const char* answer;
    } cases[] = {
        // Source 3 is locked.
        {about(cmdRefTimeSet, 3, winter), refusedBusy},
        {about(cmdRefLocalTimeSet, 3, winter), refusedBusy},
        {about(cmdNextTimeDeviationChangeSet, 3, winter, span(60)), refusedBusy},
        {about(cmdSendDaylightsavingInfo, 3, span(1), span(2), span(3), span(4)), refusedBusy},
        {plain(cmdTimeInit), refusedBusy},
        {about(cmdRefTimeSet, 1, span(-1)), refusedInvalid},
        {about(cmdRefTimeSet, 1, tooLate), refusedInvalid},
        {about(cmdRefTimeSet, 5, winter, span(86400, 1)), refusedInvalid},
        {about(cmdRefLocalTimeSet, 5, span(-1)), refusedInvalid},
        {about(cmdRefLocalTimeSet, 5, tooLate), refusedInvalid},
        {about(cmdRefLocalTimeSet, 5, winter, span(-360002)), refusedInvalid},
        {about(cmdRefLocalTimeSet, 5, span(1800)), refusedInvalid}, // 1969 in UTC
        {about(cmdRefLocalTimeSet, 5, span(253402300799), span(-60)), refusedInvalid},
        {about(cmdRefLocalTimeSet, 5, skipped), refusedInvalid},
        {about(cmdNextTimeDeviationChangeSet, 1, span(-1), span(60)), refusedInvalid},
        {about(cmdNextTimeDeviationChangeSet, 1, winter, span(-86401)), refusedInvalid},
        {about(cmdSendDaylightsavingInfo, 1, winter, winter, span(3), span(4)), refusedInvalid},
        {about(cmdSendDaylightsavingInfo, 1, span(-1), span(2), span(3), span(4)), refusedInvalid},
        {about(cmdSendDaylightsavingInfo, 1, span(1), tooLate, span(3), span(4)), refusedInvalid},
        {about(cmdSendDaylightsavingInfo, 1, span(1), span(2), span(86401), span(4)),
         refusedInvalid},
        {about(cmdSendDaylightsavingInfo, 1, span(1), span(2), span(3), span(86401)),
         refusedInvalid},
        {about(cmdRefTimeAt, 1, span(-1)), refusedInvalid},
        {timeAt(span(-1), 1), refusedInvalid},
        {timeAt(tooLate, 0), refusedInvalid},
        {timeAt(skipped, 0), refusedInvalid},
        {settingsSet(longestName + "x", 1, 0), refusedInvalid},
        {settingsSet("", 1, 1), refusedInvalid},
        {ntpSet(longestName + "x", 0), refusedInvalid},
        {ntpSet("", 1), refusedInvalid},
        {plain(cmdDateTimeNtpStart), "replyResult -1"},
        {zoneSet("../UTC"), "replyResult -2"},
        {zoneSet(std::string("UTC\0", 4)), "replyResult -2"},
        {plain(cmdTimezoneSet), "replyResult -2"},
        {zoneSet(longestName), "replyResult -2"},
        {zoneSet(longestName + "x"), refusedInvalid},
    };
    Desk desk;
    desk.ask(about(cmdRefTimeSet, 3, at("2026-02-03 04:05:06"), span(1800), {}, {}, 9));
    desk.ask(about(cmdRefTimeLock, 3), 2);
    const Texts before = desk.everything();
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_THAT(desk.ask(cases[i].command), ElementsAre(cases[i].answer)) << "case " << i;
        EXPECT_THAT(desk.sentTo(2), IsEmpty()) << "case " << i;
        EXPECT_EQ(desk.everything(), before) << "case " << i;
    }
}

TEST(TimeService, RefusesASourceThatDoesNotExist)
{
    Desk desk;
    const nubOsalTime_struct time = at(clockStart);
    for (const std::int32_t id : {0, 6, -1, 0x7FFFFFFF, -0x7FFFFFFF - 1})
        for (const Content& command :
             {about(cmdRefTimeSet, id, time), about(cmdRefLocalTimeSet, id, time),
              about(cmdNextTimeDeviationChangeSet, id, time), about(cmdRefTimeAt, id, time),
              about(cmdSendDaylightsavingInfo, id, span(1), span(2)), about(cmdRefTimeFetch, id),
              about(cmdNextTimeDeviationChangeFetch, id), about(cmdRefTimeSubscribe, id),
              about(cmdRefTimeUnsubscribe, id), about(cmdRefTimeLock, id),
              about(cmdRefTimeUnlock, id)})
            EXPECT_THAT(desk.ask(command), ElementsAre(refusedInvalid))
                << id << ' ' << command.meta.resourceId << ' ' << command.meta.operationId;
}

TEST(TimeService, IgnoresWhatIsNoCommandAlsoUnderTheIdsOfOne)
{
    Desk desk;
    for (const Content& stray :
         {plain(replyTimeAt), plain(replyTimeRefAt), plain(replyResult), plain(notifyDSTChange)})
        EXPECT_THAT(desk.ask(stray), IsEmpty());
}

TEST(TimeService, AnswersWithTheIdsOfTheCommandAndNotifiesWithItsOwn)
{
    Desk desk;
    desk.ask(zoneSet("Europe/London"), 2);
    ASSERT_EQ(desk.sent.size(), 1U + 2U + 2U);
    const std::pair<fabric::host::ClientId, fabric::MsgIds> expected[] = {
        {2, {2, 1}}, {1, {0, 1}}, {2, {0, 1}}, {1, {0, 2}}, {2, {0, 2}}};
    for (std::size_t i = 0; i < desk.sent.size(); ++i) {
        EXPECT_EQ(desk.sent[i].client, expected[i].first);
        EXPECT_EQ(desk.sent[i].event->ids, expected[i].second);
    }
}

TEST(TimeService, TellsEverybodyWhatANewZoneChangesAfterTheAnswer)
{
    Desk desk;
    desk.ask(about(cmdRefTimeSet, 1, at("2026-07-01 00:00:00")));
    const std::string zoneChange = "notifyTimezoneChange ";
    const std::string deviationChange = "notifyDeviationChange 1: 2026-07-01 00:00:00 ";
    const struct
    {
        const char* zone;
        Texts notifications;
    } cases[] = {
        {"Europe/Berlin", {}},
        {"Europe/Paris", {zoneChange + "Europe/Paris 2026-07-01 00:00:00"}},
        {"Africa/Johannesburg",
         {zoneChange + "Africa/Johannesburg 2026-07-01 00:00:00", "notifyDSTChange 0"}},
        {"America/New_York",
         {zoneChange + "America/New_York 2026-07-01 00:00:00",
          deviationChange + "-14400 = 2026-06-30 20:00:00, 1 0", "notifyDSTChange 1"}},
        {"America/Chicago",
         {zoneChange + "America/Chicago 2026-07-01 00:00:00",
          deviationChange + "-18000 = 2026-06-30 19:00:00, 1 0"}},
    };
    for (const auto& row : cases) {
        Texts withAnswer = desk.ask(zoneSet(row.zone));
        ASSERT_FALSE(withAnswer.empty());
        EXPECT_EQ(withAnswer.front(), "replyResult 0");
        withAnswer.erase(withAnswer.begin());
        EXPECT_EQ(withAnswer, row.notifications) << row.zone;
        EXPECT_EQ(desk.sentTo(2), row.notifications) << row.zone;
    }
}

TEST(TimeService, DropsWhatWasAnnouncedWhenTheZoneIsSet)
{
    Desk desk;
    EXPECT_THAT(desk.ask(about(cmdRefTimeSet, 1, at(clockStart), span(7200))),
                ElementsAre("replyResult 0", "notifyDeviationChange 1: 2026-01-01 11:30:00 +7200 "
                                             "= 2026-01-01 13:30:00, 1 0"));
    EXPECT_THAT(desk.ask(zoneSet("Europe/Berlin")),
                ElementsAre("replyResult 0", "notifyDeviationChange 1: 2026-01-01 11:30:00 +3600 "
                                             "= 2026-01-01 12:30:00, 1 0"));
}

TEST(TimeService, ReportsEachTransitionOfAYearWhenItComes)
{
    Desk desk;
    const Utc end = desk.clock.utc() + hours(24 * 365);
    Texts told;
    while (desk.clock.utc() + (desk.due - desk.clock.steady()) < end) {
        desk.advance(std::chrono::duration_cast<Span>(desk.due - desk.clock.steady()));
        const Texts notifications = desk.sentTo(2);
        told.insert(told.end(), notifications.begin(), notifications.end());
    }
    EXPECT_THAT(
        told,
        ElementsAre("notifyDeviationChange 1: 2026-03-29 01:00:00 +7200 = 2026-03-29 03:00:00, 1 0",
                    "notifyDSTChange 1",
                    "notifyDeviationChange 1: 2026-10-25 01:00:00 +3600 = 2026-10-25 02:00:00, 1 0",
                    "notifyDSTChange 0"));
}

TEST(TimeService, ReportsAnnouncedChangesOfTheRtcWhenTheyCome)
{
    Desk desk;
    // The RTC goes an hour ahead of the clock, so what it waits for comes an hour sooner.
    desk.ask(about(cmdRefTimeSet, 1, at("2026-01-01 12:30:00")));
    desk.ask(about(cmdSendDaylightsavingInfo, 1, at("2026-01-01 13:00:00"),
                   at("2026-01-01 14:00:00"), span(3600), span(7200)));
    EXPECT_EQ(desk.due - desk.clock.steady(), std::chrono::minutes(30));
    desk.advance(std::chrono::minutes(30) - Span(1));
    EXPECT_THAT(desk.sentTo(2), IsEmpty());
    desk.advance(Span(1));
    EXPECT_THAT(
        desk.sentTo(2),
        ElementsAre("notifyDeviationChange 1: 2026-01-01 13:00:00 +7200 = 2026-01-01 15:00:00, 1 0",
                    "notifyDSTChange 1"));
    EXPECT_EQ(desk.due - desk.clock.steady(), hours(1));
    desk.advance(hours(1));
    EXPECT_THAT(
        desk.sentTo(1),
        ElementsAre("notifyDeviationChange 1: 2026-01-01 14:00:00 +3600 = 2026-01-01 15:00:00, 1 0",
                    "notifyDSTChange 0"));
    // No zone transition comes after that: an announced deviation holds.
    EXPECT_THAT(
        desk.ask(about(cmdNextTimeDeviationChangeFetch, 1)),
        ElementsAre(
            "replyUtcDeviationInfo 1: 1970-01-01 00:00:00 -360000 = 1970-01-01 00:00:00, 0 0"));
}

TEST(TimeService, CarriesTimesOverToAnUnlockedRtcWithAutomaticTimeOn)
{
    Desk desk;
    const auto rtc = [&] { return desk.ask(about(cmdRefTimeFetch, 1)).at(0).substr(20, 19); };
    desk.ask(about(cmdRefTimeSet, 3, at("2026-02-01 00:00:00")));
    EXPECT_EQ(rtc(), clockStart);
    desk.ask(autoTimeSet(1));
    desk.ask(about(cmdRefTimeSet, 4, at("2026-02-02 00:00:00")));
    EXPECT_EQ(rtc(), "2026-02-02 00:00:00");
    desk.ask(about(cmdRefTimeLock, 1));
    EXPECT_THAT(desk.ask(about(cmdRefTimeSet, 4, at("2026-02-03 00:00:00"))),
                ElementsAre("replyResult 0"));
    EXPECT_EQ(rtc(), "2026-02-02 00:00:00");
    desk.ask(about(cmdRefTimeUnlock, 1));
    desk.ask(ntpSet("time", 1));
    desk.ask(plain(cmdDateTimeNtpStart));
    EXPECT_EQ(rtc(), clockStart);
}

TEST(TimeService, LockedSourcesStayLockedWhenTheClientIsGone)
{
    Desk desk;
    desk.ask(about(cmdRefTimeLock, 2), 2);
    desk.service.clientDisconnected(2);
    desk.ask(ntpSet("time", 1));
    EXPECT_THAT(desk.ask(plain(cmdDateTimeNtpStart)), ElementsAre(refusedBusy));
    desk.ask(about(cmdRefTimeUnlock, 2));
    EXPECT_THAT(desk.ask(plain(cmdDateTimeNtpStart)), ElementsAre("replyResult 0"));
}

TEST(TimeService, NotifiesASubscriberEachPeriodAndSkipsThoseMissed)
{
    Desk desk;
    const auto half = std::chrono::milliseconds(500);
    const auto current = [](const std::string& time) {
        return "notifyCurrentTime 2: 2026-01-01 11:" + time + " +3600 = 2026-01-01 12:" + time +
               ", 1 0";
    };
    desk.ask(about(cmdRefTimeSubscribe, 2));
    desk.advance(half);
    desk.ask(about(cmdRefTimeSubscribe, 2));
    EXPECT_EQ(desk.due - desk.clock.steady(), half) << "subscribing again leaves it alone";
    desk.advance(half);
    EXPECT_THAT(desk.sentTo(1), ElementsAre(current("30:01")));
    EXPECT_THAT(desk.sentTo(2), IsEmpty());
    EXPECT_EQ(desk.due - desk.clock.steady(), seconds(1));

    desk.advance(seconds(60) + half);
    EXPECT_THAT(desk.sentTo(1), ElementsAre(current("31:01.500000")));
    EXPECT_EQ(desk.due - desk.clock.steady(), half) << "no drift";

    desk.ask(about(cmdRefTimeUnsubscribe, 2));
    EXPECT_THAT(desk.ask(about(cmdRefTimeUnsubscribe, 2)), ElementsAre("replyResult 0"));
    desk.advance(seconds(5));
    EXPECT_THAT(desk.sent, IsEmpty());
}

TEST(TimeService, ForgetsTheSubscriptionsOfAClientThatDisconnects)
{
    Desk desk;
    for (const std::int32_t id : {1, 3}) {
        desk.ask(about(cmdRefTimeSubscribe, id), 1);
        desk.ask(about(cmdRefTimeSubscribe, id), 2);
    }
    desk.ask(plain(cmdTimeInit));
    desk.service.clientDisconnected(1);
    desk.advance(seconds(1));
    EXPECT_THAT(desk.sentTo(1), IsEmpty());
    EXPECT_THAT(
        desk.sentTo(2),
        ElementsAre("notifyCurrentTime 1: 2026-01-01 11:30:01 +3600 = 2026-01-01 12:30:01, 1 0",
                    "notifyCurrentTime 3: 1970-01-01 00:00:00 -360001 = 1970-01-01 00:00:00, 0 0"));
    desk.service.clientDisconnected(2);
    desk.ask(zoneSet("UTC"), 3);
    EXPECT_THAT(desk.sentTo(2), IsEmpty());
}

// Words at and around the bounds, and any others.
class Garbage
{
public:
    std::uint32_t word()
    {
        static constexpr std::uint32_t chosen[] = {
            0,          1,     2,          5,    0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFA81BF,
            0xFFFFAE80, 86400, 0x6955B900, 0x3A, 0x00003FFF, 999999,     1000000,    0x6953F500};
        const std::uint32_t draw = any();
        return draw % 3 == 0 ? any() : chosen[draw % std::size(chosen)];
    }

    // Fills what the table names; strings get garbage of a length that fits.
    void fill(const nubEndianTable_t& table, char* record)
    {
        for (const nubEndianEntry_t* entry = table.entries; !isEnd(*entry); ++entry)
            fill(*entry, record + (entry->code & 0xFFFF));
    }

private:
    std::uint32_t any() { return static_cast<std::uint32_t>(random()); }

    static bool isEnd(const nubEndianEntry_t& entry)
    {
        return entry.code == 0 && entry.argument.word == 0xFFFFFFFF;
    }

    void fill(const nubEndianEntry_t& entry, char* field)
    {
        const std::uint32_t kind = entry.code >> 16;
        const std::array<std::uint32_t, 2> words = {word(), word()};
        if (kind != nubEndianRecord)
            std::memcpy(field, words.data(), kind);
        else if (entry.argument.table == &__nub_EndianTable_nubDeserString_t)
            fillText(*reinterpret_cast<nubDeserString_t*>(field),
                     std::string(words[0] % 300, '\1'));
        else
            fill(*entry.argument.table, field);
    }

    std::mt19937 random{2026};
};

TEST(TimeService, AnswersAnyWordsInAnyCommandAndLivesOn)
{
    Desk desk;
    Garbage garbage;
    for (int round = 0; round < 2000; ++round)
        for (std::size_t i = 0; i < catalogue().count; ++i) {
            const fabric::host::MessageType& type = catalogue().types[i];
            const Content command = {
                {catalogue().serviceId, type.resourceId, type.operationId, type.kind},
                fabric::SerializableMessageData::create(type.table->size, *type.table)};
            garbage.fill(*type.table, static_cast<char*>(command.data->payload));
            const bool answered = !desk.ask(command).empty();
            ASSERT_EQ(answered, type.kind == detail::kindCommand) << type.name;
            ASSERT_GT(desk.due, desk.clock.steady());
            if (round % 100 == 0)
                desk.advance(Span(garbage.word()));
        }
}

} // namespace
} // namespace chronal::sim
