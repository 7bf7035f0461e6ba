#include "Frame.h"
#include "Sample.h"

#include <fabric/EventHandlerIdSet.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using namespace sample;
using fabric::EventHandlerIdSet;
using fabric::host::decodeFrame;
using fabric::host::encodeFrame;
using fabric::host::Session;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// The far end of a session's link, in the hands of the test.
struct Wire
{
    fabric::host::LinkListener* listener = nullptr;
    int opened = 0;
    int sendResult = 0;
    std::vector<FrameBytes> sent;
    std::function<void()> onSend;
};

class WireLink : public fabric::host::Link
{
public:
    explicit WireLink(Wire& farEnd) : wire(farEnd) {}

    void open(fabric::host::LinkListener& listener) override
    {
        wire.listener = &listener;
        ++wire.opened;
    }
    void close() override {}
    int send(FrameBytes frame) override
    {
        wire.sent.push_back(std::move(frame));
        if (wire.onSend)
            wire.onSend();
        return wire.sendResult;
    }

private:
    Wire& wire;
};

class SessionTest : public testing::Test
{
protected:
    SessionTest() { session->connect(); }

    void receive(const MsgMeta& meta, std::uint32_t value, const MsgIds& ids = {0, 0}) const
    {
        FrameBytes frame;
        ASSERT_EQ(0, encodeFrame(*numberEvent(meta, value, ids), frame));
        ASSERT_TRUE(wire.listener->frameReceived(frame));
    }

    /// Waits until everything that has been received is carried out.
    void settle()
    {
        Client last(journal);
        session->detach(last);
    }

    Callback noting(const std::string& name)
    {
        return Callback([this, name](const Event& event) {
            journal.note(name + " " + std::to_string(numberOf(event)));
        });
    }

    Wire wire;
    Journal journal;
    std::unique_ptr<Session> session =
        std::make_unique<Session>(std::make_unique<WireLink>(wire), catalogue);
    fabric::AbstractApplication& application = session->application();
    fabric::AbstractComponent& component = session->component();
};

TEST_F(SessionTest, ReportsAndMessagesArriveInOrder)
{
    Client client(journal);
    session->attach(client);
    Callback handler = noting("answer");
    component.addEventHandler(answer, 0, handler.handler());

    wire.listener->linkFailed(ECONNREFUSED);
    wire.listener->linkUp();
    receive(answer, 1);
    wire.listener->linkDown(EPIPE);
    session->connect();
    wire.listener->linkUp();
    receive(answer, 2);
    wire.listener->linkDown(ECONNRESET);
    wire.listener->linkUp(); // on its own
    session->connect();
    session->disconnect();
    session->disconnect();
    EXPECT_THAT(journal.await(9),
                ElementsAre("failed 111", "connected", "answer 1", "disconnected 32", "connected",
                            "answer 2", "disconnected 104", "connected", "disconnected 0"));
    EXPECT_EQ(2, wire.opened);
    session->detach(client);
    EXPECT_EQ(9U, journal.await(9).size());
}

TEST_F(SessionTest, AMessageGoesToItsHandlersInOrderOfRegistration)
{
    Callback first = noting("first");
    Callback second = noting("second");
    Callback notified = noting("notified");
    Callback wrong = noting("wrong");
    for (const MsgMeta& key : {MsgMeta{8, 101, 2, 2}, MsgMeta{7, 100, 2, 2}, MsgMeta{7, 101, 1, 2},
                               MsgMeta{7, 101, 2, 1}, change})
        component.addEventHandler(key, 0, wrong.handler());
    application.addEventHandler(answer, 0, wrong.handler());
    const int firstId = component.addEventHandler(answer, 0, first.handler());
    const int notifiedId = application.addEventHandler(change, 0, notified.handler());
    component.addEventHandler(answer, 0, second.handler());
    EXPECT_NE(firstId, notifiedId);

    receive(answer, 1);
    receive(change, 2);
    settle();
    component.removeEventHandler(notifiedId);
    component.removeEventHandler(firstId);
    component.removeEventHandler(12345);
    receive(change, 3);
    receive(answer, 4);
    settle();
    EXPECT_THAT(journal.await(4), ElementsAre("first 1", "second 1", "notified 2", "second 4"));
    EXPECT_EQ(1U, session->counters().messagesUnhandled);
    EXPECT_THROW(component.addEventHandler(answer, 1, first.handler()), std::invalid_argument);
}

/// Tells of its end.
class MortalEvent : public SerializableMessageEvent
{
public:
    MortalEvent(const SerializableMessageEvent& event, int& counter)
        : SerializableMessageEvent(event.meta, event.sender, event.data), destroyed(counter)
    {
    }
    ~MortalEvent() override { ++destroyed; }

private:
    int& destroyed;
};

TEST_F(SessionTest, EveryOutcomeOfASendDestroysTheEventAndOnlySuccessLeavesIds)
{
    auto empty = numberEvent(ask, 0);
    empty->data.reset();
    auto nullPayload = numberEvent(ask, 0);
    std::free(std::exchange(nullPayload->data->payload, nullptr));
    auto otherRecord = numberEvent(ask, 0);
    otherRecord->meta = setRecord;
    const struct
    {
        std::unique_ptr<SerializableMessageEvent> event;
        int flags;
        int linkResult;
        int result;
        const char* reason;
    } rows[] = {
        {numberEvent(ask, 1), 0, 0, 0, nullptr},
        {numberEvent(ask, 1), 0, -ENOTCONN, -ENOTCONN, nullptr},
        {numberEvent(ask, 1), 0, -EAGAIN, -EAGAIN, nullptr},
        {numberEvent(ask, 1), 1, 0, -EINVAL, "flags 1, expected 0"},
        {numberEvent(answer, 1), 0, 0, -EINVAL, "not a command, kind 2"},
        {numberEvent({8, 101, 2, 0}, 1), 0, 0, -EINVAL, "unknown service: service 8"},
        {numberEvent({7, 101, 9, 0}, 1), 0, 0, -EINVAL, "unknown identity: service 7"},
        {std::move(empty), 0, 0, -EINVAL, "ask has no payload"},
        {std::move(nullPayload), 0, 0, -EINVAL, "no payload"},
        {std::move(otherRecord), 0, 0, -EINVAL, "another record"},
        {recordEvent(setRecord, std::string(70000, 'x')), 0, 0, -EMSGSIZE, "longer than a frame"},
    };
    for (const auto& row : rows) {
        DebugLines lines("204:3000");
        wire.sendResult = row.linkResult;
        int destroyed = 0;
        MsgIds ids = {1, 1};
        EXPECT_EQ(row.result,
                  application.sendEvent(ids, row.flags, new MortalEvent(*row.event, destroyed)));
        EXPECT_EQ(1, destroyed);
        EXPECT_EQ(row.result == 0, ids != (MsgIds{0, 0})) << row.result;
        if (row.reason) {
            EXPECT_THAT(lines.journal.await(1), ElementsAre(HasSubstr(row.reason)));
        }
    }
    MsgIds ids = {1, 1};
    EXPECT_EQ(-EINVAL, application.sendEvent(ids, 0, nullptr));
    EXPECT_EQ(1U, session->counters().framesSent);
}

TEST_F(SessionTest, IdsAreThereBeforeTheLinkGetsTheFrameAndTellSessionsApart)
{
    MsgIds ids = {0, 0};
    MsgIds travelling = {0, 0};
    wire.onSend = [&] {
        std::string reason;
        travelling = decodeFrame(wire.sent.back(), catalogue, reason)->ids;
        EXPECT_EQ(ids, travelling);
    };
    application.sendEvent(ids, 0, numberEvent(ask, 1).release());
    EXPECT_EQ(1U, travelling.messageId);
    application.sendEvent(ids, 0, numberEvent(ask, 1).release());
    EXPECT_EQ(2U, travelling.messageId);

    Wire otherWire;
    Session other(std::make_unique<WireLink>(otherWire), catalogue);
    MsgIds otherIds = {0, 0};
    other.application().sendEvent(otherIds, 0, numberEvent(ask, 1).release());
    EXPECT_NE(0U, ids.originId);
    EXPECT_NE(ids.originId, otherIds.originId);
    EXPECT_NE(0U, component.componentId);
    EXPECT_NE(component.componentId, other.component().componentId);
    EXPECT_EQ(catalogue.serviceId, other.service().getServiceId());
}

TEST_F(SessionTest, BadFramesAreRefusedAndTheSessionLivesOn)
{
    Callback handler = noting("answer");
    component.addEventHandler(answer, 0, handler.handler());
    DebugLines lines("204:3000");
    wire.listener->frameReceived(FrameBytes{1, 2, 3});
    receive(ask, 1); // a command is not for an application
    receive(answer, 2, {3, 4});
    EXPECT_THAT(journal.await(1), ElementsAre("answer 2"));
    EXPECT_THAT(lines.journal.await(2),
                ElementsAre(HasSubstr("shorter than a header"), HasSubstr("refused: a command")));
    EXPECT_EQ(2U, session->counters().framesRefused);
    EXPECT_EQ(3U, session->counters().framesReceived);
}

TEST_F(SessionTest, TheQueueTakesALimitedNumberOfFramesButEveryReport)
{
    Gate entered, leave;
    Callback handler([&](const Event& event) {
        if (numberOf(event) == 0) {
            entered.open();
            EXPECT_TRUE(leave.pass());
        }
    });
    component.addEventHandler(answer, 0, handler.handler());
    Client client(journal);
    session->attach(client);
    wire.listener->linkUp();
    receive(answer, 0);
    ASSERT_TRUE(entered.pass());
    for (std::uint32_t value = 1; value <= 1024; ++value)
        receive(answer, value);
    EXPECT_FALSE(wire.listener->frameReceived(FrameBytes(36)));
    wire.listener->linkDown(ENOBUFS);
    leave.open();
    EXPECT_THAT(journal.await(2), ElementsAre("connected", "disconnected 105"));
    EXPECT_EQ(1025U, session->counters().framesReceived);
    session->detach(client);
}

TEST_F(SessionTest, ResetOnAnotherThreadWaitsForTheRunningHandler)
{
    EventHandlerIdSet ids(component);
    for (int round = 0; round < 100; ++round) {
        Gate entered;
        std::atomic<bool> running{false};
        Callback handler([&](const Event&) {
            running = true;
            entered.open();
            for (int turn = 0; turn < 20; ++turn)
                std::this_thread::yield();
            running = false;
        });
        ids.addHandler(component.addEventHandler(answer, 0, handler.handler()));
        receive(answer, 1);
        receive(answer, 2); // must not find the handler once it is gone
        ASSERT_TRUE(entered.pass());
        ids.reset();
        ASSERT_FALSE(running);
    }
}

TEST_F(SessionTest, ResetInsideAHandlerReturnsAndNothingFurtherIsDelivered)
{
    EventHandlerIdSet ids(component);
    Callback late = noting("late");
    Callback first([&](const Event& event) {
        journal.note("first " + std::to_string(numberOf(event)));
        ids.reset();
        component.addEventHandler(answer, 0, late.handler());
    });
    Callback second = noting("second");
    ids.addHandler(component.addEventHandler(answer, 0, first.handler()));
    ids.addHandler(component.addEventHandler(answer, 0, second.handler()));
    receive(answer, 1);
    receive(answer, 2);
    EXPECT_THAT(journal.await(2), ElementsAre("first 1", "late 2"));
}

TEST_F(SessionTest, ExceptionsOutOfCallbacksAreReportedByNameAndContained)
{
    DebugLines lines("204:3000");
    Client client(journal);
    session->attach(client);
    client.also = [](const std::string&) { throw std::runtime_error("bad report"); };
    Callback standard([](const Event&) { throw std::runtime_error("bad message"); });
    Callback other([](const Event&) { throw 1; });
    Callback good = noting("good");
    for (Callback* each : {&standard, &other, &good})
        component.addEventHandler(answer, 0, each->handler());

    wire.listener->linkUp();
    receive(answer, 1);
    EXPECT_THAT(journal.await(2), ElementsAre("connected", "good 1"));
    EXPECT_THAT(lines.journal.await(3),
                ElementsAre(AllOf(HasSubstr("204:3000"), HasSubstr(typeid(Client).name()),
                                  HasSubstr("bad report")),
                            AllOf(HasSubstr(typeid(Callback).name()), HasSubstr("bad message"),
                                  HasSubstr(standard.handler().boundCaller().getMethodName())),
                            HasSubstr("an exception of unknown type")));
    client.also = nullptr;
    settle();
    EXPECT_EQ(3U, session->counters().exceptionsCaught);
    session->detach(client);
}

TEST_F(SessionTest, AHandlerMayDestroyItsObjectAndThenThrow)
{
    DebugLines lines("204:3000");
    std::unique_ptr<Callback> mortal;
    int id = 0;
    mortal = std::make_unique<Callback>([&](const Event&) {
        component.removeEventHandler(id);
        mortal.reset();
        throw std::runtime_error("last words");
    });
    id = component.addEventHandler(answer, 0, mortal->handler());
    receive(answer, 1);
    EXPECT_THAT(lines.journal.await(1), ElementsAre(HasSubstr("last words")));
}

TEST_F(SessionTest, ClientsMayAttachAndDetachAtAnyTimeAndAreToldInStep)
{
    Client early(journal, "early "), late(journal, "late "), stranger(journal);
    session->attach(early);
    session->attach(early);
    session->detach(stranger);
    wire.listener->linkUp();
    session->attach(late);
    settle();
    session->detach(early);
    wire.listener->linkDown(1);
    session->detach(late);
    session->attach(early);
    session->detach(early);
    EXPECT_THAT(journal.await(4), ElementsAre("early connected", "late connected",
                                              "early disconnected 0", "late disconnected 1"));
}

TEST_F(SessionTest, CallbacksMayUseTheWholeSession)
{
    Client inner(journal, "inner "), outer(journal, "outer ");
    outer.also = [&](const std::string& what) {
        if (what != "connected")
            return;
        MsgIds ids;
        EXPECT_EQ(0, application.sendEvent(ids, 0, numberEvent(ask, 1).release()));
        session->attach(inner);
        session->detach(inner); // was not told yet
        session->attach(inner);
        session->detach(outer); // was told
        journal.note("outer detached");
    };
    inner.also = [&](const std::string& what) {
        if (what == "connected") {
            session->disconnect();
            session->connect();
        }
    };
    session->attach(outer);
    wire.listener->linkUp();
    EXPECT_THAT(journal.await(5),
                ElementsAre("outer connected", "outer disconnected 0", "outer detached",
                            "inner connected", "inner disconnected 0"));
    settle();
    EXPECT_EQ(2, wire.opened);
    session->detach(inner);
}

TEST_F(SessionTest, DestroyingASessionWaitsForTheRunningHandlerAndTellsItsClients)
{
    Client client(journal);
    session->attach(client);
    wire.listener->linkUp();
    Gate entered, leave;
    Callback handler([&](const Event&) {
        entered.open();
        EXPECT_TRUE(leave.pass());
        session->connect(); // no longer of any use
        journal.note("handled");
    });
    component.addEventHandler(answer, 0, handler.handler());
    receive(answer, 1);
    ASSERT_TRUE(entered.pass());
    Session* const raw = session.get();
    Gate destroying;
    std::thread destroyer([&] {
        destroying.open();
        delete raw;
        journal.note("destroyed");
    });
    ASSERT_TRUE(destroying.pass());
    leave.open();
    destroyer.join();
    session.release();
    EXPECT_THAT(journal.await(4),
                ElementsAre("connected", "handled", "disconnected 0", "destroyed"));
}

} // namespace
