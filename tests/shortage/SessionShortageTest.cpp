#include "../host/Sample.h"
#include "Shortage.h"

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <thread>

namespace {

using namespace sample;

/// Counts its callbacks without allocating.
struct CountingClient final : fabric::ClientInterface
{
    void onServiceConnected() override { count(ups); }
    void onServiceConnectionFailed(int why) override { error = why, count(failures); }
    void onServiceDisconnected(int why) override { reason = why, count(downs); }
    int onAnswer(const Message&) { return count(answers), 0; }

    void count(int& counter)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ++counter;
        counted.notify_all();
    }

    template <class Condition>
    void await(Condition condition)
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(counted.wait_for(lock, bound, condition));
    }

    std::mutex mutex;
    std::condition_variable counted;
    int ups = 0, failures = 0, downs = 0, answers = 0, error = 0, reason = 0;
};

/// An application in which any allocation may fail, at any time.
struct StarvedApplication
{
    /// Calls again if the call throws, since that must have changed nothing.
    template <class Call>
    static void insist(Call call)
    {
        try {
            call();
        } catch (const std::bad_alloc&) {
            call();
        }
    }

    template <class NewLink>
    explicit StarvedApplication(NewLink newLink)
    {
        insist([&] { session.emplace(newLink(), catalogue); });
        insist([&] { session->attach(client); });
        insist([&] { addHandler(); });
        session->connect();
        client.await([&] { return client.ups + client.failures > 0; });
    }

    void addHandler()
    {
        const fabric::EventHandler handler(&client, &CountingClient::onAnswer);
        session->component().addEventHandler(answer, 0, handler);
    }

    /// Returns true if the command is answered.
    bool ask(std::unique_ptr<Message> command)
    {
        const int before = client.answers;
        MsgIds ids;
        const int result = session->application().sendEvent(ids, 0, command.release());
        if (result != -ENOMEM)
            client.await([&] { return client.answers > before || client.ups == client.downs; });
        return client.answers > before;
    }

    CountingClient client;
    std::optional<Session> session;
};

INSTANTIATE_TEST_SUITE_P(, ConnectionTest, transports);

TEST_P(ConnectionTest, AFailedAllocationCostsAtMostAMessageOrTheConnection)
{
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
        SCOPED_TRACE(allocation);
        auto first = message(ask, 1, "text"), second = message(ask, 2, "text");
        std::optional<Starved> starved(std::in_place, allocation);
        StarvedApplication app([this] { return newLink(); });
        app.ask(std::move(first));
        failed = shortage().failed != 0;
        starved.reset();

        CountingClient& client = app.client;
        if (client.ups == client.downs && !(overSocket && allocation % 8 == 0)) {
            app.session->disconnect(); // not to wait until the link tries again, as it mostly would
            app.session->connect();
        }
        client.await([&] { return client.ups > client.downs; });
        EXPECT_TRUE(client.failures == 0 || client.error == ENOMEM) << client.error;
        EXPECT_TRUE(app.ask(std::move(second)));

        starved.emplace(allocation);
        app.session->disconnect();
        app.session->detach(client);
        app.session.reset();
        failed |= shortage().failed != 0;
        starved.reset();
        EXPECT_EQ(client.ups, client.downs);
        EXPECT_NE(EBADMSG, client.reason);
        ASSERT_LT(allocation, 10000);
    }
    // The service may still be closing its end of the last connection.
    const auto giveUp = std::chrono::steady_clock::now() + bound;
    while (descriptors() != before && std::chrono::steady_clock::now() < giveUp)
        std::this_thread::yield();
    EXPECT_EQ(before, descriptors());
}

TEST_P(ConnectionTest, ALackOfAllMemoryIsReported)
{
    StarvedApplication app([this] { return newLink(); });
    auto command = message(ask, 1);
    const Starved starved(-1);
    EXPECT_FALSE(app.ask(std::move(command)));
    EXPECT_THROW(app.addHandler(), std::bad_alloc);
    app.session->disconnect();
    app.session->connect();
    app.client.await([&] { return app.client.failures == 1; });
    EXPECT_EQ(ENOMEM, app.client.error);
}

} // namespace
