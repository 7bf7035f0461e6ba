#include "Hosted.h"

#include <fabric/EventHandlerIdSet.h>

#include <atomic>
#include <cerrno>
#include <future>

namespace {

using namespace sample;

class MemoryLinkTest : public testing::Test
{
protected:
    Gate goOn;
    Journal journal;
    ScriptedService script{journal};
    std::shared_ptr<ServiceHost> host = [this] {
        const auto started = std::make_shared<ServiceHost>(script);
        started->start();
        return started;
    }();
};

TEST_F(MemoryLinkTest, OnlyMessagesOfTheCatalogueReachTheirClient)
{
    Journal answers;
    Callback answered([&](const Message& event) {
        answers.note(std::to_string(event.ids.messageId) + recordOf(event).text.chars);
    });
    Callback told = noteNumber(answers, "told");
    Application first(newMemoryLink(host)), second(newMemoryLink(host));
    first.session->component().addEventHandler(answer, 0, answered.handler());
    second.session->application().addEventHandler(change, 0, told.handler());
    script.onCommand = [](ClientSender& outlet, ClientId client, const Message& command) {
        outlet.send(client, nullptr);
        outlet.send(client, message(ask, 0));
        outlet.send(client, message(answer, 0, std::string(70000, 'x')));
        outlet.send(client, message(answer, 0, recordOf(command).text.chars, command.ids));
        for (const ClientId each : {3U, 2U}) // no client and the other one
            outlet.send(each, message(change, 5));
    };
    EXPECT_EQ(0, first.send(7, " longer text"));
    EXPECT_EQ(0, first.send(7, " text"));
    EXPECT_THAT(answers.await(4),
                testing::UnorderedElementsAre("1 longer text", "told 5", "2 text", "told 5"));
    EXPECT_EQ(0U, first.session->counters().framesRefused);
}

TEST_F(MemoryLinkTest, TheServiceIsCalledAgainAtTheTimeItReturned)
{
    Application application(newMemoryLink(host));
    script.onCommand = [&](ClientSender&, ClientId, const Message&) {
        script.due = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
    };
    application.send(1);
    EXPECT_THAT(journal.await(2), ElementsAre("1", "due"));
}

TEST_F(MemoryLinkTest, ARefusedFrameCostsItsSenderTheConnection)
{
    DebugLines lines;
    Linked linked(newMemoryLink(host));
    linked.journal.await(1);
    EXPECT_EQ(-EBADMSG, linked.link->send(FrameBytes{0, 0, 0, 36}));
    EXPECT_EQ(0, linked.link->send(encoded(*message(answer, 0))));
    EXPECT_THAT(linked.journal.await(2), ElementsAre("up", "down " + std::to_string(EBADMSG)));
    EXPECT_EQ(-ENOTCONN, linked.link->send(encoded(*message(ask, 0))));
    EXPECT_THAT(lines.await(2), ElementsAre(HasSubstr("not a command"), HasSubstr("dropped")));
    EXPECT_EQ(1U, host->counters().framesRefused);
    EXPECT_EQ(1U, host->counters().clientsDropped);
}

TEST_F(MemoryLinkTest, AnExceptionFromTheServiceCostsNoClientItsConnection)
{
    script.onCommand = [](auto&&...) { throw std::runtime_error("service failed"); };
    DebugLines lines;
    Application application(newMemoryLink(host));
    EXPECT_EQ(0, application.send(1));
    EXPECT_EQ(0, application.send(2));
    EXPECT_THAT(journal.await(2), ElementsAre("1", "2"));
    EXPECT_THAT(lines.await(2), testing::Each(HasSubstr("commandReceived: service failed")));
}

TEST_F(MemoryLinkTest, CommandsAreQueuedUpToALimitAndReachTheServiceAfterTheSessionEnds)
{
    script.onCommand = [this](auto&&...) { goOn.pass(); };
    Application application(newMemoryLink(host));
    ASSERT_EQ(0, application.send(1));
    journal.await(1);
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(0, application.send(2));
    EXPECT_EQ(-EAGAIN, application.send(3));
    application.session.reset();
    goOn.open();
    host.reset();
    EXPECT_EQ("gone 1", journal.await(1026).back());
}

TEST_F(MemoryLinkTest, AClientThatDoesNotKeepUpIsDisconnectedAndMayConnectAgain)
{
    Gate entered;
    DebugLines lines;
    Callback slow([&](const Message&) { entered.open(), goOn.pass(); });
    Application application(newMemoryLink(host));
    application.session->application().addEventHandler(change, 0, slow.handler());
    script.onCommand = [](ClientSender& outlet, ClientId client, const Message& command) {
        for (std::uint32_t i = 0; i < recordOf(command).number; ++i)
            outlet.send(client, message(change, 0));
    };
    EXPECT_EQ(0, application.send(1));
    entered.pass();
    EXPECT_EQ(0, application.send(2000));
    EXPECT_THAT(journal.await(3), ElementsAre("1", "2000", "gone 1"));
    EXPECT_THAT(lines.await(1), ElementsAre(HasSubstr("client 1 dropped: it does not read")));
    EXPECT_EQ(-ENOTCONN, application.send(1));
    goOn.open();
    EXPECT_THAT(application.journal.await(2),
                ElementsAre("connected", "disconnected " + std::to_string(ENOBUFS)));
    EXPECT_EQ(1 + 1024U, application.session->counters().framesReceived);
    application.session->connect();
    EXPECT_EQ("connected", application.journal.await(3).back());
    EXPECT_EQ(0, application.send(1));
}

TEST_F(MemoryLinkTest, ReceivedMessagesAreDeliveredBeforeTheSessionDisconnects)
{
    Gate entered, sent;
    Application application(newMemoryLink(host));
    Callback slow([&](const Message& event) {
        application.journal.note(std::to_string(recordOf(event).number));
        entered.open();
        goOn.pass();
    });
    application.session->application().addEventHandler(change, 0, slow.handler());
    script.onCommand = [&](ClientSender& outlet, ClientId client, const Message&) {
        for (std::uint32_t i = 0; i < 3; ++i)
            outlet.send(client, message(change, i));
        sent.open();
    };
    EXPECT_EQ(0, application.send(1));
    entered.pass();
    sent.pass();
    application.session->disconnect();
    goOn.open();
    EXPECT_THAT(application.journal.await(5),
                ElementsAre("connected", "0", "1", "2", "disconnected 0"));
}

TEST_F(MemoryLinkTest, ConnectingToAServiceThatHasEndedFails)
{
    ScriptedService other(journal);
    ServiceHost ended(other);
    ended.stop();
    ended.run();
    Client client(journal);
    Session session(newMemoryLink({&ended, [](ServiceHost*) {}}), catalogue);
    const Attachment attachment(session, client);
    session.connect();
    EXPECT_THAT(journal.await(1), ElementsAre("failed " + std::to_string(ECONNREFUSED)));
}

TEST_F(MemoryLinkTest, DetachingOnAnotherThreadWaitsForAReportThatDetachesItself)
{
    Application application(newMemoryLink(host));
    for (int round = 0; round < 100; ++round) {
        Gate entered;
        std::atomic<bool> running{false};
        Client inner(journal);
        inner.also = [&](const std::string& what) {
            if (what != "connected")
                return;
            running = true;
            application.session->detach(inner);
            entered.open();
            for (int turn = 0; turn < 20; ++turn)
                std::this_thread::yield();
            running = false;
        };
        application.session->attach(inner);
        entered.pass();
        application.session->detach(inner);
        ASSERT_FALSE(running);
    }
}

TEST_F(MemoryLinkTest, ThreadsMaySendRegisterAttachAndReconnectConcurrently)
{
    script.onCommand = [](ClientSender& outlet, ClientId client, const Message&) {
        outlet.send(client, message(answer, 0));
    };
    std::atomic<int> answers{0};
    Application application(newMemoryLink(host));
    Session& session = *application.session;

    std::atomic<bool> done{false};
    const auto repeat = [&](const std::function<void()>& action) {
        return std::async(std::launch::async, [&done, action] {
            while (!done)
                action();
        });
    };
    const std::future<void> threads[] = {
        repeat([&] { application.send(1); }),
        repeat([&] {
            Callback local([&](const Message&) { ++answers, application.send(2); });
            fabric::EventHandlerIdSet ids(session.component());
            ids.addHandler(session.component().addEventHandler(answer, 0, local.handler()));
            std::this_thread::yield();
        }),
        repeat([&] {
            Client client(application.journal);
            client.also = [&](const std::string&) { application.send(3); };
            Attachment attachment(session, client);
        }),
    };
    for (int round = 0; round < 300; ++round) {
        session.disconnect();
        session.connect();
    }
    // Commands must still be answered afterwards.
    const auto giveUp = std::chrono::steady_clock::now() + bound;
    const int enough = answers + 100;
    while (answers < enough && std::chrono::steady_clock::now() < giveUp)
        session.connect();
    done = true;
    EXPECT_GE(answers, enough);
}

} // namespace
