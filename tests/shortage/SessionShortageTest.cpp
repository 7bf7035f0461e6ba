#include "../host/Sample.h"
#include "Shortage.h"

#include <cerrno>
#include <filesystem>
#include <iterator>

#include <fabric-host/ServiceHost.h>

// Each allocation of a session and of its service fails in turn, from the session's construction to
// its end.

namespace {

using namespace sample;
using namespace fabric::host;

/// Answers each command with its own data, and drops a client if memory for the answer runs out.
struct EchoService final : Service
{
    const MessageCatalogue& catalogue() const override { return sample::catalogue; }
    void start(ClientSender& out) override { outlet = &out; }
    void clientConnected(ClientId) override {}
    void clientDisconnected(ClientId) override {}
    void commandReceived(ClientId client, const Message& command) override
    {
        try {
            auto reply = std::make_unique<Message>(answer, command.sender, command.data);
            outlet->send(client, std::move(reply));
        } catch (const std::bad_alloc&) {
            outlet->drop(client, ENOMEM);
        }
    }
    TimePoint runDue() override { return TimePoint::max(); }

    ClientSender* outlet = nullptr;
};

/// Counts its callbacks without allocating.
struct CountingClient final : fabric::ClientInterface
{
    void onServiceConnected() override { count(connected); }
    void onServiceConnectionFailed(int why) override { error = why, count(failed); }
    void onServiceDisconnected(int why) override { reason = why, count(disconnected); }
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
    int connected = 0, failed = 0, disconnected = 0, answers = 0, error = 0, reason = 0;
};

struct Fixture
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
    void open(NewLink newLink)
    {
        insist([&] { session = std::make_unique<Session>(newLink(), catalogue); });
        insist([&] { session->attach(client); });
        insist([&] {
            session->component().addEventHandler(
                answer, 0, fabric::EventHandler(&client, &CountingClient::onAnswer));
        });
        session->connect();
        client.await([&] { return client.connected + client.failed > 0; });
    }

    /// Returns true if the command is answered.
    bool ask(std::unique_ptr<Message> command)
    {
        const int before = client.answers;
        MsgIds ids;
        const int result = session->application().sendEvent(ids, 0, command.release());
        if (result != 0 && result != -ENOMEM) // the connection has been lost
            client.await([&] { return client.disconnected == client.connected; });
        if (result != 0)
            return false;
        client.await(
            [&] { return client.answers > before || client.disconnected == client.connected; });
        return client.answers > before;
    }

    void close()
    {
        session->disconnect();
        session->detach(client);
        session.reset();
    }

    CountingClient client;
    std::unique_ptr<Session> session;
};

template <class NewLink>
void failEachInTurn(NewLink newLink, bool reconnects)
{
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
        SCOPED_TRACE(allocation);
        auto first = message(ask, 1, "text");
        auto second = message(ask, 2, "text");
        Fixture fixture;
        CountingClient& client = fixture.client;
        {
            const Starved starved(allocation);
            fixture.open(newLink);
            fixture.ask(std::move(first));
            failed = shortage().failed != 0;
        }
        if (!reconnects && client.connected == client.disconnected)
            fixture.session->connect();
        client.await([&] { return client.connected > client.disconnected; });
        EXPECT_TRUE(client.failed == 0 || client.error == ENOMEM) << client.error;
        EXPECT_TRUE(fixture.ask(std::move(second)));
        {
            const Starved starved(allocation);
            fixture.close();
            failed |= shortage().failed != 0;
        }
        EXPECT_EQ(client.connected, client.disconnected);
        EXPECT_NE(EBADMSG, client.reason);
        ASSERT_LT(allocation, 10000);
    }
}

TEST(SessionShortage, SurvivesAFailedAllocationInMemory)
{
    EchoService service;
    const auto host = std::make_shared<ServiceHost>(service);
    host->start();
    failEachInTurn([&] { return newMemoryLink(host); }, false);
}

TEST(SessionShortage, SurvivesAFailedAllocationOverASocket)
{
    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    EchoService service;
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    {
        ServiceHost host(service);
        host.listen(path);
        host.start();
        failEachInTurn([&] { return newSocketLink(path); }, true);
    }
    EXPECT_EQ(before, descriptors());
}

TEST(SessionShortage, ReportsThatAllMemoryIsUsedUp)
{
    EchoService service;
    const auto host = std::make_shared<ServiceHost>(service);
    host->start();
    Fixture fixture;
    fixture.open([&] { return newMemoryLink(host); });
    {
        auto command = message(ask, 1);
        const Starved starved(-1);
        EXPECT_FALSE(fixture.ask(std::move(command)));
        EXPECT_THROW(
            fixture.session->component().addEventHandler(
                answer, 0, fabric::EventHandler(&fixture.client, &CountingClient::onAnswer)),
            std::bad_alloc);
        fixture.session->disconnect();
        fixture.session->connect();
        fixture.client.await([&] { return fixture.client.failed == 1; });
        EXPECT_EQ(ENOMEM, fixture.client.error);
    }
    fixture.close();
}

} // namespace
