#include "MemoryLink.h"
#include "Sample.h"

#include <fabric-host/Service.h>
#include <fabric/EventHandlerIdSet.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using namespace sample;
using fabric::EventHandlerIdSet;
using fabric::host::ClientId;
using fabric::host::MemoryLink;
using fabric::host::ServiceOutlet;
using fabric::host::ServiceThread;
using fabric::host::Session;
using testing::ElementsAre;
using testing::HasSubstr;

/// Answers `ask` with its number and sends setRecord back; numbers from `special` on do more.
class SampleService : public fabric::host::Service
{
public:
    enum Special : std::uint32_t
    {
        special = 1000000,
        block = special,
        fail,
        flood,
        tellAll,
        answerLater
    };

    /// What the test and the service share.
    struct Shared
    {
        Journal journal;
        Gate blocked, goOn;
    };

    explicit SampleService(Shared& state) : shared(state) {}

    const fabric::host::MessageCatalogue& catalogue() const override { return sample::catalogue; }

    void start(ServiceOutlet& out) override { outlet = &out; }

    void clientConnected(ClientId client) override { clients.push_back(client); }

    void clientDisconnected(ClientId client) override
    {
        shared.journal.note("gone " + std::to_string(client));
    }

    void commandReceived(ClientId client, const SerializableMessageEvent& command) override
    {
        if (command.meta.resourceId == setRecord.resourceId) {
            echo(client, command);
            return;
        }
        const std::uint32_t value = numberOf(command);
        if (value == block) {
            shared.blocked.open();
            EXPECT_TRUE(shared.goOn.pass());
        } else if (value == fail) {
            throw std::runtime_error("service failed");
        } else if (value == flood) {
            for (int i = 0; i < 2000; ++i)
                outlet->send(client, numberEvent(change, 0));
        } else if (value == tellAll) {
            for (const ClientId each : clients)
                outlet->send(each, numberEvent(change, value));
        } else if (value == answerLater) {
            due = TimePoint::clock::now() + std::chrono::milliseconds(5);
            waiting = client;
        } else {
            outlet->send(client, numberEvent(answer, value, command.ids));
        }
    }

    TimePoint runDue() override
    {
        if (TimePoint::clock::now() < due)
            return due;
        due = TimePoint::max();
        outlet->send(waiting, numberEvent(answer, answerLater));
        return due;
    }

private:
    void echo(ClientId client, const SerializableMessageEvent& command)
    {
        const auto& text = static_cast<const Record*>(command.data->payload)->text;
        outlet->send(client, nullptr);
        outlet->send(client, numberEvent(ask, 0));
        outlet->send(client, recordEvent(recordReply, std::string(70000, 'x')));
        outlet->send(client, recordEvent(recordReply, std::string(text.chars, text.length)));
    }

    Shared& shared;
    ServiceOutlet* outlet = nullptr;
    std::vector<ClientId> clients;
    TimePoint due = TimePoint::max();
    ClientId waiting = 0;
};

class MemoryLinkTest : public testing::Test
{
protected:
    std::unique_ptr<Session> newSession()
    {
        return std::make_unique<Session>(std::make_unique<MemoryLink>(service), catalogue);
    }

    static int send(Session& session, std::uint32_t value, MsgIds* ids = nullptr)
    {
        MsgIds unused;
        return session.application().sendEvent(ids ? *ids : unused, 0,
                                               numberEvent(ask, value).release());
    }

    /// Connects and waits until it stands.
    void connect(Session& session, Client& client)
    {
        Gate up;
        client.also = [&](const std::string& what) {
            if (what == "connected")
                up.open();
        };
        session.attach(client);
        session.connect();
        ASSERT_TRUE(up.pass());
        Client barrier(journal);
        session.detach(barrier);
        client.also = nullptr;
    }

    Journal journal;
    SampleService::Shared shared;
    std::shared_ptr<ServiceThread> service =
        std::make_shared<ServiceThread>(std::make_unique<SampleService>(shared));
};

TEST_F(MemoryLinkTest, ACommandIsAnsweredWithItsIdsAndNotificationsReachEverybody)
{
    Journal answers;
    Callback answered([&](const SerializableMessageEvent& event) {
        answers.note(std::to_string(event.ids.messageId) + " " + std::to_string(numberOf(event)));
    });
    Callback echoed([&](const SerializableMessageEvent& event) {
        const auto& record = *static_cast<const Record*>(event.data->payload);
        answers.note(std::string(record.text.chars, record.text.length));
    });
    Callback notified([&](const SerializableMessageEvent&) { journal.note("change"); });
    Client client(journal), otherClient(journal);
    const auto session = newSession();
    const auto other = newSession();
    for (Session* each : {session.get(), other.get()})
        each->application().addEventHandler(change, 0, notified.handler());
    session->component().addEventHandler(answer, 0, answered.handler());
    session->component().addEventHandler(recordReply, 0, echoed.handler());

    EXPECT_EQ(-ENOTCONN, send(*session, 1));
    connect(*session, client);
    connect(*other, otherClient);
    MsgIds ids;
    EXPECT_EQ(0, send(*session, 41, &ids));
    EXPECT_THAT(answers.await(1), ElementsAre(std::to_string(ids.messageId) + " 41"));
    EXPECT_EQ(0, session->application().sendEvent(ids, 0, recordEvent(setRecord, "t").release()));
    EXPECT_EQ("t", answers.await(2)[1]);
    EXPECT_EQ(0, send(*session, SampleService::tellAll));
    EXPECT_THAT(journal.await(4), ElementsAre("connected", "connected", "change", "change"));
}

TEST_F(MemoryLinkTest, TheServiceIsCalledAgainWhenItAskedForIt)
{
    Callback answered([&](const SerializableMessageEvent& event) {
        journal.note(std::to_string(numberOf(event)));
    });
    Client client(journal);
    const auto session = newSession();
    session->component().addEventHandler(answer, 0, answered.handler());
    connect(*session, client);
    send(*session, SampleService::answerLater);
    EXPECT_THAT(journal.await(2),
                ElementsAre("connected", std::to_string(SampleService::answerLater)));
}

TEST_F(MemoryLinkTest, BadFramesAndAFailingServiceAreReportedAndTheConnectionLivesOn)
{
    struct Listener final : fabric::host::LinkListener
    {
        void linkUp() override { up.open(); }
        void linkFailed(int) override {}
        void linkDown(int) override {}
        bool frameReceived(FrameBytes) override { return received.open(), true; }
        Gate up, received;
    } listener;
    DebugLines lines("204:3000");
    MemoryLink link(service);
    link.open(listener);
    ASSERT_TRUE(listener.up.pass());
    const auto frame = [](const MsgMeta& meta, std::uint8_t value) {
        const auto byte = [](std::uint32_t word) { return static_cast<std::uint8_t>(word); };
        FrameBytes bytes(40);
        bytes[3] = 40, bytes[7] = 7, bytes[11] = byte(meta.resourceId);
        bytes[15] = byte(meta.operationId), bytes[16] = meta.kind, bytes[17] = 1;
        bytes[37] = 0x0f, bytes[38] = 0x42, bytes[39] = value;
        return bytes;
    };
    link.send({});
    link.send(frame(answer, 0));
    link.send(frame(ask, 0x41)); // 1000001: fail
    link.send(frame(ask, 0x3f)); // an ordinary number
    EXPECT_TRUE(listener.received.pass());
    EXPECT_THAT(lines.journal.await(3),
                ElementsAre(HasSubstr("shorter than a header"), HasSubstr("not a command"),
                            HasSubstr("commandReceived: service failed")));
    EXPECT_EQ(2U, service->framesRefused());
}

TEST_F(MemoryLinkTest, AFullQueueToTheServiceRefusesTheNextCommand)
{
    Client client(journal);
    const auto session = newSession();
    connect(*session, client);
    ASSERT_EQ(0, send(*session, SampleService::block));
    ASSERT_TRUE(shared.blocked.pass());
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(0, send(*session, 1));
    EXPECT_EQ(-EAGAIN, send(*session, 1));
    EXPECT_EQ(1025U, session->counters().framesSent);
    shared.goOn.open();
}

TEST_F(MemoryLinkTest, AClientThatDoesNotKeepUpIsDisconnectedAndMayConnectAgain)
{
    Client client(journal);
    Gate leave;
    Callback slow([&](const SerializableMessageEvent&) { EXPECT_TRUE(leave.pass()); });
    const auto session = newSession();
    session->application().addEventHandler(change, 0, slow.handler());
    connect(*session, client);
    ASSERT_EQ(0, send(*session, SampleService::flood));
    EXPECT_THAT(shared.journal.await(1), ElementsAre("gone 1"));
    EXPECT_EQ(-ENOTCONN, send(*session, 1));
    leave.open();
    EXPECT_THAT(journal.await(2), ElementsAre("connected", "disconnected 105"));
    session->connect();
    EXPECT_EQ("connected", journal.await(3).back());
    EXPECT_EQ(0, send(*session, 1));
}

TEST_F(MemoryLinkTest, WhatWasSentBeforeTheEndStillReachesTheService)
{
    Client client(journal);
    auto session = newSession();
    connect(*session, client);
    send(*session, SampleService::block);
    ASSERT_TRUE(shared.blocked.pass());
    send(*session, SampleService::flood);
    shared.goOn.open();
    session.reset();
    service.reset();
    EXPECT_THAT(shared.journal.await(1), ElementsAre("gone 1"));
}

TEST_F(MemoryLinkTest, ThreadsMaySendRegisterAttachAndReconnectAllAtOnce)
{
    std::atomic<unsigned> answers{0};
    Callback counting([&](const SerializableMessageEvent&) { ++answers; });
    Client first(journal);
    const auto session = newSession();
    session->component().addEventHandler(answer, 0, counting.handler());
    connect(*session, first);

    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    const auto repeat = [&](const std::function<void()>& action) {
        threads.emplace_back([&done, action] {
            while (!done)
                action();
        });
    };
    repeat([&] { send(*session, 1); });
    repeat([&] { send(*session, SampleService::tellAll); });
    repeat([&] {
        Callback local([&](const SerializableMessageEvent&) { send(*session, 2); });
        EventHandlerIdSet ids(session->component());
        ids.addHandler(session->component().addEventHandler(answer, 0, local.handler()));
        ids.addHandler(session->application().addEventHandler(change, 0, local.handler()));
        std::this_thread::yield();
    });
    repeat([&] {
        Journal unread;
        Client client(unread);
        client.also = [&](const std::string& what) {
            if (what == "connected")
                send(*session, 3);
        };
        fabric::host::Attachment attachment(*session, client);
    });
    for (int round = 0; round < 300; ++round) {
        session->disconnect();
        session->connect();
    }
    // Until the traffic has survived all that.
    const auto end = std::chrono::steady_clock::now() + bound;
    const unsigned enough = answers + 100;
    while (answers < enough && std::chrono::steady_clock::now() < end) {
        session->connect();
        std::this_thread::yield();
    }
    EXPECT_GE(answers, enough);
    done = true;
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
