#include "Hosted.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace sample;

/// A service that answers every command with its number, reached in memory or over a socket.
class BackPressureTest : public testing::TestWithParam<const char*>
{
protected:
    BackPressureTest()
    {
        script.onCommand = [](ClientSender& outlet, ClientId client, const Message& command) {
            outlet.send(client, message(answer, recordOf(command).number, "", command.ids));
        };
        if (overSocket)
            host->listen(path);
        host->start();
    }

    std::unique_ptr<Link> newLink() const
    {
        return overSocket ? newSocketLink(path) : newMemoryLink(host);
    }

    const bool overSocket = GetParam() == std::string("Socket");
    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    Gate goOn;
    Journal journal;
    ScriptedService script{journal};
    const std::shared_ptr<ServiceHost> host = std::make_shared<ServiceHost>(script);
};

INSTANTIATE_TEST_SUITE_P(, BackPressureTest, testing::Values("Memory", "Socket"),
                         [](const auto& given) { return given.param; });

void work(std::chrono::microseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end)
        continue;
}

/// More than all queues of a connection hold.
constexpr std::uint32_t many = 20000;

TEST_P(BackPressureTest, EachCommandToASlowServiceOrCallbackIsRefusedOrAnsweredOnce)
{
    const auto answerAtOnce = script.onCommand;
    for (const bool isServiceSlow : {true, false})
        for (const std::size_t length : {0U, 60000U}) {
            Gate gate;
            script.onCommand = [&](auto& outlet, ClientId client, const Message& command) {
                if (isServiceSlow)
                    gate.pass();
                answerAtOnce(outlet, client, command);
            };
            Journal answers;
            Callback answered([&](const Message& event) {
                if (!isServiceSlow)
                    gate.pass();
                answers.note(std::to_string(recordOf(event).number));
            });
            Application application(newLink());
            application.session->component().addEventHandler(answer, 0, answered.handler());
            std::vector<std::string> accepted;
            for (std::uint32_t i = 0; i < many; ++i) {
                const int result = application.send(i, std::string(length, 'x'));
                EXPECT_TRUE(result == 0 || result == -EAGAIN) << result;
                if (result == 0)
                    accepted.push_back(std::to_string(i));
            }
            EXPECT_LT(accepted.size(), many);
            gate.open();
            EXPECT_EQ(accepted, answers.await(accepted.size()));
            EXPECT_EQ(0, application.send(many));
            accepted.push_back(std::to_string(many));
            EXPECT_EQ(accepted, answers.await(accepted.size()));
        }
}

TEST_P(BackPressureTest, AClientWithManyCommandsLeavesTurnsToTheOthers)
{
    script.onCommand = [this](auto&&...) {
        goOn.pass();
        work(std::chrono::milliseconds(1)); // longer than a turn
    };
    Application first(newLink()), second(newLink());
    EXPECT_EQ(0, first.send(1));
    journal.await(1); // the service is busy with it
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(0, first.send(1));
    EXPECT_EQ(0, second.send(2));
    goOn.open();
    const std::vector<std::string> order = journal.await(11);
    EXPECT_LT(std::find(order.begin(), order.end(), "2") - order.begin(), 4);
}

/// A reader, and a client whose commands each cause an answer and four notifications of the reader,
/// together more than the reader's queue holds.
class NotifiedTest : public BackPressureTest
{
protected:
    NotifiedTest()
    {
        const auto answerAtOnce = script.onCommand;
        script.onCommand = [=](auto& outlet, ClientId client, const Message& command) {
            answerAtOnce(outlet, client, command);
            for (int i = 0; i < 4; ++i)
                outlet.send(readersId, message(change, recordOf(command).number));
        };
        reader.session->application().addEventHandler(change, 0, read.handler());
        notifier.session->component().addEventHandler(answer, 0, answered.handler());
    }

    void sendAll()
    {
        for (std::uint32_t i = 0; i < commands; ++i)
            EXPECT_EQ(0, notifier.send(i));
        answers.await(commands);
    }

    static constexpr ClientId readersId = 1; // connected first
    static constexpr std::uint32_t commands = 1000;
    std::function<void()> onRead;
    Journal answers;
    Callback read{[this](auto&&) { onRead(); }};
    Callback answered{[this](auto&&) { answers.note("answer"); }};
    Application reader{newLink()};
    Application notifier{newLink()};
};

INSTANTIATE_TEST_SUITE_P(, NotifiedTest, testing::Values("Memory", "Socket"),
                         [](const auto& given) { return given.param; });

TEST_P(NotifiedTest, AClientThatReadsIsKeptHoweverFastItIsNotified)
{
    Journal changes;
    onRead = [&] {
        work(std::chrono::microseconds(20)); // longer than the service takes to notify it
        changes.note("change");
    };
    sendAll();
    changes.await(4 * commands);
}

TEST_P(NotifiedTest, AClientThatNeverReadsIsDroppedInTheEnd)
{
    onRead = [this] { goOn.pass(); };
    sendAll();
    goOn.open();
    // A socket does not carry the reason.
    const int reason = overSocket ? ECONNRESET : ENOBUFS;
    EXPECT_EQ("disconnected " + std::to_string(reason), reader.journal.await(2).back());
    EXPECT_EQ(1U, host->counters().clientsDropped);
}

} // namespace
