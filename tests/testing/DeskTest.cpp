#include <chronal-testing/Desk.h>
#include <chronal-testing/Matchers.h>

#include <gtest/gtest.h>

#include "Recorder.h"

using namespace chronal::testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using Strings = std::vector<std::string>;

struct DeskTest : ::testing::Test
{
    DeskTest() { application.setServiceInterface(&desk.service()); }

    Strings delivered()
    {
        desk.runUntilIdle();
        return application.notes();
    }

    Desk desk{"Europe/Berlin", utc("2026-10-25T00:59:58Z")};
    Recorder application{desk.application(), desk.component()};
    Scope attached = desk.attach(application);
    fabric::MsgIds ids = {};
};

struct ConnectedDeskTest : DeskTest
{
    ConnectedDeskTest() { delivered(); }

    /// Sends a command and returns what the application gets.
    Strings setZone(const char* zone = "Asia/Tokyo")
    {
        application.cmdTimezoneSet(ids, zone);
        return delivered();
    }
};

TEST_F(DeskTest, DeliversOneThingAtATime)
{
    EXPECT_TRUE(desk.runOne()); // the session begins to connect
    EXPECT_THAT(application.notes(), IsEmpty());
    EXPECT_TRUE(desk.runOne());
    EXPECT_THAT(application.notes(), ElementsAre("up"));
    EXPECT_FALSE(desk.runOne());
}

TEST_F(ConnectedDeskTest, DeliversWhatWaitsButNotWhatThatCauses)
{
    application.cmdTimezoneSet(ids, "Asia/Tokyo");
    EXPECT_EQ(desk.run(), 1U); // the command
    EXPECT_THAT(application.notes(), IsEmpty());
    EXPECT_EQ(desk.run(), 4U);
    EXPECT_THAT(application.notes(),
                ElementsAre("result 0", "new zone Asia/Tokyo", "deviation +9h", "dst 0"));
    EXPECT_EQ(desk.run(), 0U);
}

TEST_F(ConnectedDeskTest, DeliversWhatFallsDueAtItsMoment)
{
    application.cmdRefTimeSubscribe(ids, chronal::referenceTimeRtc);
    delivered();
    std::vector<Time> moments;
    application.onNote = [&] { moments.push_back(desk.now()); };
    desk.advance(std::chrono::milliseconds(2500));
    application.onNote = nullptr;
    EXPECT_THAT(application.notes(), ElementsAre(HasSubstr("00:59:59"), "deviation +1h", "dst 0",
                                                 HasSubstr("01:00:00")));
    const Time end = utc("2026-10-25T01:00:00Z");
    EXPECT_THAT(moments, ElementsAre(utc("2026-10-25T00:59:59Z"), end, end, end));
    EXPECT_EQ(desk.now(), utc("2026-10-25T01:00:00.5Z"));
}

TEST_F(ConnectedDeskTest, DoesNotPassThroughTheTimeBeforeASetOne)
{
    application.cmdRefTimeSubscribe(ids, chronal::referenceTimeRtc);
    delivered();
    desk.setTime(utc("2027-01-01T00:00:00Z"));
    EXPECT_THAT(delivered(), ElementsAre("deviation +1h", "dst 0"));
}

TEST_F(ConnectedDeskTest, RefusesDeliveryInsideACallback)
{
    application.onNote = [&] { desk.run(); };
    application.cmdTimezoneSet(ids, "Asia/Tokyo");
    EXPECT_THROW(desk.runUntilIdle(), std::logic_error);
    EXPECT_EQ(desk.session().counters().exceptionsCaught, 1U);
}

TEST_F(DeskTest, RefusesDeliveryInsideAReport)
{
    application.onNote = [&] { desk.run(); };
    EXPECT_EQ(desk.run(), 1U); // the session begins to connect
    EXPECT_THROW(desk.run(), std::logic_error);
    desk.session().disconnect(); // is reported by the session itself
    EXPECT_THROW(desk.run(), std::logic_error);
    EXPECT_EQ(desk.run(), 0U);
}

TEST_F(ConnectedDeskTest, DeliversAnyNumberOfMessagesThatWait)
{
    for (int i = 0; i < 10001; ++i)
        desk.notify(chronal::sim::notifyDSTChange, {1});
    EXPECT_EQ(desk.run(), 10001U);
    for (int i = 0; i < 10001; ++i)
        desk.notify(chronal::sim::notifyDSTChange, {1});
    EXPECT_EQ(desk.runUntilIdle(), 10001U);
}

TEST_F(ConnectedDeskTest, GivesUpOnAnApplicationThatNeverRests)
{
    application.onNote = [&] { application.cmdTimezoneFetch(ids); };
    application.cmdTimezoneFetch(ids);
    EXPECT_THROW(desk.runUntilIdle(), std::runtime_error);
}

TEST_F(ConnectedDeskTest, EndsAFaultWithItsScope)
{
    {
        const Scope refused = desk.refuse("cmdTimezoneSet", -13);
        {
            const Scope ignored = desk.ignore("cmdTimezoneSet");
            EXPECT_THAT(setZone(), IsEmpty());
        }
        EXPECT_THAT(setZone(), ElementsAre("result -13"));
    }
    EXPECT_THAT(setZone(), Contains("result 0"));
}

TEST_F(ConnectedDeskTest, DelaysAnAnswerAndNotTheCommand)
{
    const Scope late = desk.delay("cmdTimezoneSet", std::chrono::milliseconds(700));
    EXPECT_THAT(setZone(), ElementsAre("new zone Asia/Tokyo", "deviation +9h", "dst 0"));
    desk.advance(std::chrono::microseconds(699999));
    EXPECT_THAT(application.notes(), IsEmpty());
    desk.advance(std::chrono::microseconds(1));
    EXPECT_THAT(application.notes(), ElementsAre("result 0"));
}

TEST_F(ConnectedDeskTest, AnswersWithAnyMessage)
{
    const std::string zone = "Mars";
    const Scope wrong =
        desk.answer("cmdTimezoneSet", chronal::sim::replyTimezoneInfo, {text(zone), span({})});
    EXPECT_THAT(setZone(), ElementsAre("zone Mars +0us"));
}

TEST_F(ConnectedDeskTest, LosesWhatIsInFlightWithTheConnection)
{
    application.cmdTimezoneSet(ids, "Asia/Tokyo");
    desk.runOne();
    application.cmdTimezoneFetch(ids);
    desk.drop(EPIPE);
    application.cmdTimezoneFetch(ids);
    EXPECT_EQ(desk.commands().size(), 2U); // the last was not accepted
    EXPECT_THAT(delivered(), ElementsAre("down " + std::to_string(EPIPE), "up"));
}

TEST_F(ConnectedDeskTest, ReportsEachFailureToConnectOnce)
{
    {
        const Scope none = desk.unreachable(ENOENT);
        desk.drop();
        EXPECT_THAT(delivered(), ElementsAre("down " + std::to_string(ECONNRESET),
                                             "failed " + std::to_string(ENOENT)));
        {
            const Scope refused = desk.unreachable(ECONNREFUSED);
            EXPECT_THAT(delivered(), ElementsAre("failed " + std::to_string(ECONNREFUSED)));
        }
        EXPECT_THAT(delivered(), ElementsAre("failed " + std::to_string(ENOENT)));
    }
    EXPECT_THAT(delivered(), ElementsAre("up"));
}

TEST_F(ConnectedDeskTest, DisconnectsWithTheSession)
{
    desk.session().disconnect();
    EXPECT_THAT(delivered(), ElementsAre("down 0"));
    desk.session().connect();
    EXPECT_THAT(delivered(), ElementsAre("up"));
}

TEST_F(ConnectedDeskTest, RefusesToSendWithinAScope)
{
    {
        const Scope full = desk.refuseToSend(-EAGAIN);
        EXPECT_THAT(setZone(), IsEmpty());
        EXPECT_THAT(desk.commands(), IsEmpty());
    }
    EXPECT_THAT(setZone(), Contains("result 0"));
}

TEST_F(DeskTest, SaysWhatIsWrong)
{
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { Desk("Nowhere/City"); }, "unknown time zone \"Nowhere/City\""},
        {[] { Desk("UTC", Time(-1)); }, "not within the years"},
        {[] { Desk("UTC", utc("2026-01-01T00:00:00Z"), std::chrono::hours(25)); }, "a day"},
        {[] { utc("2026-01-01"); }, "'2026-01-01' is not a time"},
        {[] { utc("infinite-future"); }, "is not a time"},
        {[&] { (void)desk.refuse("timezone", -1); }, "'timezone' is not a command"},
        {[&] { desk.advance(std::chrono::seconds(-1)); }, "-1000000 us is negative"},
        {[&] { desk.advanceTo(utc("2026-10-25T00:59:57Z")); }, "-1000000 us is negative"},
        {[&] { desk.advanceTo(utc("9999-12-31T23:59:59Z")); }, "beyond a century"},
        {[&] { desk.advance(std::chrono::microseconds::max()); }, "beyond a century"},
        {[&] { (void)desk.delay("cmdTimeInit", std::chrono::microseconds::max()); },
         "beyond a century"},
        {[&] { (void)desk.delay("cmdTimeInit", std::chrono::seconds(-1)); },
         "-1000000 us is negative"},
        {[&] { desk.notify(chronal::sim::notifyDSTChange, {1}); }, "without a connection"},
        {[&] { desk.notify(chronal::sim::replyResult, {1}); }, "replyResult is not a notification"},
        {[&] { (void)desk.refuse("cmdTimeInit", 13); }, "error number 13 has the wrong sign"},
    };
    for (const auto& [call, expected] : cases)
        EXPECT_THAT(call, ::testing::Throws<std::exception>(
                              ::testing::Property(&std::exception::what, HasSubstr(expected))));
}

TEST_F(ConnectedDeskTest, MatchesEveryCommand)
{
    const Time one(1, 1), two(2, 2), three(3, 3), four(4, 4);
    const chronal::ReferenceTimeId dvb = chronal::referenceTimeDvb;
    application.cmdRefTimeSet(ids, one, two, dvb, 5, false);
    application.cmdRefLocalTimeSet(ids, one, two, dvb, 5, true);
    application.cmdRefTimeFetch(ids, dvb);
    application.cmdNextTimeDeviationChangeSet(ids, one, two, dvb);
    application.cmdSendDaylightsavingInfo(ids, one, two, three, four, dvb);
    application.cmdNextTimeDeviationChangeFetch(ids, dvb);
    application.cmdRefTimeSubscribe(ids, dvb);
    application.cmdRefTimeUnsubscribe(ids, dvb);
    application.cmdRefTimeLock(ids, dvb);
    application.cmdRefTimeUnlock(ids, dvb);
    application.cmdRefTimeAt(ids, one, dvb);
    application.cmdLocaltimeAt(ids, one);
    application.cmdUTCTimeAt(ids, one);
    application.cmdDateTimeSettingsSet(ids, one, two, three, four, 5, "host");
    application.cmdTimezoneSyncEnableSet(ids, 6);
    application.cmdDateTimeNtpSet(ids, "host", true);
    application.cmdDateTimeNtpStart(ids);
    application.cmdDateTimeAutoTimeSet(ids, true);
    application.cmdDateTimeSettingsFetch(ids);
    application.cmdTimezoneSet(ids, "UTC");
    application.cmdTimezoneFetch(ids);
    application.cmdTimeInit(ids);
    const std::vector<::testing::Matcher<const Command&>> matchers = {
        RefTimeSet(one, two, dvb, 5),
        RefLocalTimeSet(Time(-1, -1), two, dvb, 5),
        RefTimeFetch(dvb),
        NextTimeDeviationChangeSet(one, two, dvb),
        SendDaylightsavingInfo(one, two, three, four, dvb),
        NextTimeDeviationChangeFetch(dvb),
        RefTimeSubscribe(dvb),
        RefTimeUnsubscribe(dvb),
        RefTimeLock(dvb),
        RefTimeUnlock(dvb),
        RefTimeAt(one, dvb),
        LocaltimeAt(one),
        UTCTimeAt(one),
        DateTimeSettingsSet(one, two, three, four, 5, "host"),
        TimezoneSyncEnableSet(6),
        DateTimeNtpSet("host", 1),
        DateTimeNtpStart(),
        DateTimeAutoTimeSet(true),
        DateTimeSettingsFetch(),
        TimezoneSet("UTC"),
        TimezoneFetch(),
        TimeInit(),
    };
    EXPECT_THAT(desk.commands(), ::testing::ElementsAreArray(matchers));
    for (std::size_t i = 0; i < matchers.size(); ++i)
        for (std::size_t j = 0; j < matchers.size(); ++j)
            EXPECT_EQ(::testing::Value(desk.commands()[i], matchers[j]), i == j);
}

TEST_F(ConnectedDeskTest, ExplainsAMismatchByFieldNames)
{
    application.cmdRefTimeSet(ids, utc("2026-01-01T00:00:00Z"), span(std::chrono::hours(1)),
                              chronal::referenceTimeDvb, 5, false);
    const ::testing::Matcher<const Command&> matcher =
        RefTimeSet(utc("2026-01-01T00:00:00Z"), span(std::chrono::hours(2)));
    ::testing::StringMatchResultListener listener;
    EXPECT_FALSE(matcher.MatchAndExplain(desk.commands()[0], &listener));
    EXPECT_EQ(listener.str(), "whose time2 is +1h (of type chronal::testing::Time)");
    EXPECT_THAT(::testing::PrintToString(desk.commands()[0]),
                HasSubstr("refTimeId=DVB(3) time1='2026-01-01 00:00:00.000' value=5 time2=+1h"));
}

TEST_F(ConnectedDeskTest, ComparesCommandsByTheirFields)
{
    for (const char* zone : {"UTC", "UTC", "Asia/Tokyo"})
        application.cmdTimezoneSet(ids, zone);
    const std::vector<Command>& sent = desk.commands();
    EXPECT_EQ(sent[0], sent[1]);
    EXPECT_NE(sent[0], sent[2]);
    EXPECT_EQ(sent[2].ids(), ids);
    EXPECT_EQ(text(sent[2].as(chronal::sim::cmdTimezoneSet).timezone), "Asia/Tokyo");
    EXPECT_THROW(sent[2].as(chronal::sim::cmdTimeInit), std::logic_error);
}

} // namespace
