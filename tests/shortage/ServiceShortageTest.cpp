#include "../simulator/Desk.h"
#include "Shortage.h"

#include <filesystem>

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

    void askStarved(const std::string& command, int allocation)
    {
        const fabric::SerializableMessageEvent event = message(command);
        sent.clear();
        const Starved starved(allocation);
        try {
            service.commandReceived(1, event);
        } catch (const std::bad_alloc&) {
        }
    }

    std::string sentTo(char client) const
    {
        std::string all;
        for (const auto& [clients, text] : sent)
            all += clients.find(client) == std::string::npos ? "" : text + '\n';
        return all;
    }

    /// Returns all state that the commands below may change.
    std::string state()
    {
        sent.clear();
        for (const char* const question :
             {"cmdTimezoneFetch", "cmdDateTimeSettingsFetch", "cmdRefTimeFetch 1",
              "cmdRefTimeFetch 3", "cmdNextTimeDeviationChangeFetch 3"})
            ask(question);
        advance(std::chrono::seconds(2));
        return sentTo('1') + sentTo('2');
    }

    bool dropped[2] = {};
};

TEST(ServiceShortage, LeavesACommandUndoneOrAnswersIt)
{
    for (const std::string command :
         {"cmdTimezoneSet Asia/Tokyo", "cmdDateTimeNtpSet *40 1", "cmdRefTimeSubscribe 1",
          "cmdDateTimeSettingsSet 0 1 2 3 4 -5 *40 1 1 1", "cmdRefTimeSet 3 2026-05-01 7200",
          "cmdNextTimeDeviationChangeSet 3 2026-05-01 1", "cmdTimeInit",
          "cmdSendDaylightsavingInfo 1 2025-05-01 2026-05-02 0 1 2"}) {
        StarvedDesk served;
        served.askStarved(command, 0);
        served.advance(Span(0));
        const std::string answer = served.sentTo('1'), notified = served.sentTo('2');
        const std::string done = served.state(), undone = StarvedDesk().state();
        bool failed = true;
        for (int allocation = 1; failed; ++allocation) {
            SCOPED_TRACE(command + " " + std::to_string(allocation));
            StarvedDesk desk;
            desk.askStarved(command, allocation);
            failed = shortage().failed != 0;
            desk.advance(Span(0)); // may send notifications that failed before
            const bool answered = !desk.sentTo('1').empty();
            EXPECT_TRUE(!answered || desk.dropped[0] || desk.sentTo('1') == answer);
            EXPECT_TRUE(desk.dropped[1] || desk.sentTo('2') == (answered ? notified : ""));
            EXPECT_EQ(answered ? done : undone, desk.state());
        }
    }
}

TEST(ServiceShortage, DoesNotSpoilAZoneThatIsReadAgain)
{
    // Abseil keeps each zone that it has read, so every attempt needs another one.
    int allocation = 0;
    bool failed = true;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/share/zoneinfo/Asia")) {
        const std::string name = "Asia/" + entry.path().filename().string();
        try {
            const Starved starved(++allocation);
            EXPECT_NE(findZone(name), nullptr) << allocation;
            failed = shortage().failed != 0;
        } catch (const std::bad_alloc&) {
        }
        const auto zone = findZone(name);
        ASSERT_NE(zone, nullptr) << allocation;
        EXPECT_GT(zone->periodAt(utc("2026-01-01")).deviation, Span(0)) << allocation;
    }
    EXPECT_FALSE(failed) << "more allocations than zones";
}

} // namespace

} // namespace chronal::sim
