#include "../simulator/Desk.h"
#include "Shortage.h"

namespace chronal::sim {

namespace {

/// Records sent messages; no allocation fails meanwhile.
struct StarvedDesk final : Desk
{
    void send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event) override
    {
        const int left = shortage().left.exchange(0);
        Desk::send(client, std::move(event));
        shortage().left = left;
    }
    void drop(ClientId client, int) override { dropped[client - 1] = true; }

    /// Returns false if there was no memory for the command.
    bool askStarved(const Content& command, int allocation)
    {
        fabric::SerializableMessageEvent event(command.meta, {-1, 7}, command.data);
        sent.clear();
        const Starved starved(allocation);
        try {
            service.commandReceived(1, event);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    /// Returns all state that the commands below may change.
    Texts state()
    {
        Texts all;
        for (const Content& question :
             {command(cmdTimezoneFetch), command(cmdDateTimeSettingsFetch),
              about(cmdRefTimeFetch, referenceTimeRtc), about(cmdRefTimeFetch, referenceTimeDvb),
              about(cmdNextTimeDeviationChangeFetch, referenceTimeDvb)})
            for (const std::string& line : ask(question))
                all.push_back(line);
        const Texts current = advance(std::chrono::seconds(2));
        all.insert(all.end(), current.begin(), current.end());
        return all;
    }

    bool dropped[2] = {};
};

TEST(ServiceShortage, LeavesACommandUndoneOrAnswersIt)
{
    const Content commands[] = {
        zoneSet("Asia/Tokyo"),
        settingsSet("a.name.longer.than.what.a.string.holds", 1, 1),
        ntpSet("a.name.longer.than.what.a.string.holds", 1),
        about(cmdRefTimeSet, referenceTimeDvb, at("2026-05-01 00:00:00"), span(7200)),
        about(cmdNextTimeDeviationChangeSet, referenceTimeDvb, at("2026-05-01 00:00:00"), span(1)),
        about(cmdSendDaylightsavingInfo, referenceTimeRtc, at("2025-05-01 00:00:00"),
              at("2026-05-02 00:00:00"), span(1), span(2)),
        about(cmdRefTimeSubscribe, referenceTimeRtc),
        command(cmdTimeInit),
    };
    for (const Content& command : commands) {
        StarvedDesk served;
        served.askStarved(command, 0);
        served.runDue();
        const Texts answer = served.sentTo(1), notified = served.sentTo(2), done = served.state();
        bool failed = true;
        for (int allocation = 1; failed; ++allocation) {
            SCOPED_TRACE(answer.front() + " " + std::to_string(allocation));
            StarvedDesk desk;
            const Texts undone = StarvedDesk().state();
            desk.askStarved(command, allocation);
            failed = shortage().failed != 0;
            desk.runDue(); // may send notifications that failed before
            const bool answered = !desk.sentTo(1).empty();
            EXPECT_TRUE(!answered || desk.dropped[0] || desk.sentTo(1) == answer);
            EXPECT_TRUE(desk.dropped[1] || desk.sentTo(2) == (answered ? notified : Texts()));
            EXPECT_EQ(answered ? done : undone, desk.state());
        }
    }
}

} // namespace

} // namespace chronal::sim
