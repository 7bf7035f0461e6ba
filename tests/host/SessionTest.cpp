#include "Sample.h"

#include <boost/weak_ptr.hpp>
#include <fabric/EventHandlerIdSet.h>

#include <atomic>
#include <cerrno>
#include <list>
#include <thread>

namespace {

using namespace sample;
using testing::AllOf;

/// A session's link, in the hands of the test.
struct WireLink : fabric::host::Link
{
    void open(fabric::host::LinkListener& opener) override
    {
        if (failing)
            throw std::runtime_error("no thread");
        listener = &opener, ++opened;
    }
    void close() override {}
    int send(const FrameBytes& frame) override { return onSend ? onSend(frame) : 0; }
    void frameRefused(std::uint32_t connection) noexcept override { refused.push_back(connection); }

    fabric::host::LinkListener* listener = nullptr;
    int opened = 0;
    std::vector<std::uint32_t> refused; // connections
    bool failing = false;
    std::function<int(const FrameBytes&)> onSend;
};

class SessionTest : public testing::Test
{
protected:
    SessionTest()
    {
        session->attach(client);
        session->connect();
    }

    template <class Function>
    int onAnswer(const Function& called)
    {
        callbacks.emplace_back(called);
        return component.addEventHandler(answer, 0, callbacks.back().handler());
    }

    void receive(const MsgMeta& meta, std::uint32_t number)
    {
        ASSERT_TRUE(wire->listener->frameReceived(encoded(*message(meta, number))));
    }

    /// Waits until everything that has been received is carried out.
    void settle()
    {
        Client last(journal);
        session->detach(last);
    }

    Journal journal;
    Client client{journal};
    std::list<Callback> callbacks;
    WireLink* const wire = new WireLink; // the session's
    std::unique_ptr<Session> session =
        std::make_unique<Session>(std::unique_ptr<WireLink>(wire), catalogue);
    fabric::AbstractApplication& application = session->application();
    fabric::AbstractComponent& component = session->component();
};

TEST_F(SessionTest, ReportsAndMessagesArriveInOrderAndBadFramesAreRefused)
{
    onAnswer(noteNumber(journal, "answer"));
    DebugLines lines;
    wire->listener->linkFailed(ECONNREFUSED);
    const std::uint32_t first = wire->listener->linkUp();
    wire->listener->frameReceived(FrameBytes{1, 2, 3});
    receive(answer, 1);
    wire->listener->linkDown(EPIPE);
    session->connect();
    const std::uint32_t second = wire->listener->linkUp();
    EXPECT_NE(first, second);
    receive(ask, 1); // a command is not for an application
    receive(answer, 2);
    wire->listener->linkDown(ECONNRESET);
    wire->listener->linkUp(); // on its own
    session->connect();
    session->disconnect();
    session->disconnect();
    session->detach(client);
    EXPECT_THAT(journal.await(9),
                ElementsAre("failed " + std::to_string(ECONNREFUSED), "connected", "answer 1",
                            "disconnected " + std::to_string(EPIPE), "connected", "answer 2",
                            "disconnected " + std::to_string(ECONNRESET), "connected",
                            "disconnected 0"));
    EXPECT_EQ(2, wire->opened);
    EXPECT_THAT(lines.await(3),
                ElementsAre(HasSubstr("not connected"), HasSubstr("shorter than a header"),
                            HasSubstr("refused: a command")));
    EXPECT_EQ(2U, session->counters().framesRefused);
    EXPECT_THAT(wire->refused, ElementsAre(first, second));
}

TEST_F(SessionTest, AConnectionThatCouldNotBeOpenedCanBeOpenedLater)
{
    wire->listener->linkDown(EPIPE);
    wire->failing = true;
    EXPECT_THROW(session->connect(), std::runtime_error);
    wire->failing = false;
    session->connect();
    EXPECT_EQ(2, wire->opened);
}

TEST_F(SessionTest, AMessageGoesToItsHandlersInOrderOfRegistration)
{
    Callback notified = noteNumber(journal, "notified");
    Callback wrong = noteNumber(journal, "wrong");
    for (const MsgMeta& key : {MsgMeta{8, 100, 1, 2}, MsgMeta{7, 101, 1, 2}, MsgMeta{7, 100, 2, 2},
                               MsgMeta{7, 100, 1, 1}, change})
        component.addEventHandler(key, 0, wrong.handler());
    application.addEventHandler(answer, 0, wrong.handler());
    const int firstId = onAnswer(noteNumber(journal, "first"));
    const int notifiedId = application.addEventHandler(change, 0, notified.handler());
    onAnswer(noteNumber(journal, "second"));
    receive(answer, 1);
    receive(change, 2);
    settle();
    for (const int id : {notifiedId, firstId, firstId, 12345, 0, -1})
        component.removeEventHandler(id);
    receive(change, 3);
    receive(answer, 4);
    settle();
    EXPECT_THAT(journal.await(4), ElementsAre("first 1", "second 1", "notified 2", "second 4"));
    EXPECT_EQ(1U, session->counters().messagesUnhandled);
    EXPECT_THROW(component.addEventHandler(answer, 1, wrong.handler()), std::invalid_argument);
}

TEST_F(SessionTest, EveryOutcomeOfASendReleasesTheMessageAndOnlySuccessLeavesIds)
{
    auto noPayload = message(ask, 0), other = message(ask, 0);
    noPayload->data.reset(new SerializableMessageData(nullptr, 0, &recordTable));
    other->data = SerializableMessageData::create(sizeof(Inner), innerTable);
    struct
    {
        std::unique_ptr<Message> event;
        int result;
        const char* reason = nullptr;
        int flags = 0;
    } rows[] = {
        {message(ask, 1), 0},
        {message(ask, 1), -ENOTCONN},
        {message(ask, 1), -EINVAL, "flags 1, expected 0", 1},
        {message(answer, 1), -EINVAL, "not a command, kind 2"},
        {message({8, 100, 1, 0}, 1), -EINVAL, "unknown service: service 8"},
        {message({7, 100, 9, 0}, 1), -EINVAL, "unknown identity: service 7"},
        {std::move(noPayload), -EINVAL, "ask has no payload"},
        {std::move(other), -EINVAL, "another record"},
        {message(ask, 1, std::string(70000, 'x')), -EMSGSIZE, "longer than a frame"},
    };
    for (auto& row : rows) {
        DebugLines lines;
        MsgIds ids = {1, 1};
        wire->onSend = [&](const FrameBytes& frame) {
            std::string reason;
            EXPECT_EQ(ids, decodeFrame(frame, catalogue, reason)->ids) << "not there in time";
            return row.result;
        };
        const boost::weak_ptr<SerializableMessageData> data = row.event->data;
        EXPECT_EQ(row.result, application.sendEvent(ids, row.flags, row.event.release()));
        EXPECT_TRUE(data.expired());
        EXPECT_EQ(row.result == 0, ids != (MsgIds{0, 0})) << row.result;
        if (row.reason) {
            EXPECT_THAT(lines.await(1), ElementsAre(HasSubstr(row.reason)));
        }
    }
    MsgIds ids;
    EXPECT_EQ(-EINVAL, application.sendEvent(ids, 0, nullptr));
    EXPECT_EQ(1U, session->counters().framesSent);
}

TEST_F(SessionTest, SessionsAndTheirMessagesAreToldApart)
{
    Session other(std::make_unique<WireLink>(), catalogue);
    MsgIds ids, otherIds;
    application.sendEvent(ids, 0, message(ask, 1).release());
    other.application().sendEvent(otherIds, 0, message(ask, 1).release());
    EXPECT_NE(ids.originId, otherIds.originId);
    EXPECT_NE(component.componentId, other.component().componentId);
}

TEST_F(SessionTest, ResetOnAnotherThreadWaitsForTheRunningHandler)
{
    fabric::EventHandlerIdSet ids(component);
    for (int round = 0; round < 100; ++round) {
        Gate entered;
        std::atomic<bool> running{false};
        ids.addHandler(onAnswer([&](const Message&) {
            running = true;
            entered.open();
            for (int turn = 0; turn < 20; ++turn)
                std::this_thread::yield();
            running = false;
        }));
        receive(answer, 1);
        receive(answer, 2); // must not find the handler once it is gone
        entered.pass();
        ids.reset();
        ASSERT_FALSE(running);
    }
}

TEST_F(SessionTest, ResetInsideAHandlerReturnsAndNothingFurtherIsDelivered)
{
    fabric::EventHandlerIdSet ids(component);
    ids.addHandler(onAnswer([&](const Message&) {
        journal.note("first");
        ids.reset();
        onAnswer(noteNumber(journal, "late"));
    }));
    ids.addHandler(onAnswer(noteNumber(journal, "second")));
    receive(answer, 1);
    receive(answer, 2);
    settle();
    EXPECT_THAT(journal.await(2), ElementsAre("first", "late 2"));
}

TEST_F(SessionTest, ExceptionsOutOfCallbacksAreReportedByNameAndContained)
{
    DebugLines lines;
    client.also = [](const std::string&) { throw std::runtime_error("bad report"); };
    onAnswer([](const Message&) { throw std::runtime_error("bad message"); });
    const std::string method = callbacks.back().handler().boundCaller().getMethodName();
    onAnswer([](const Message&) { throw 1; });
    int mortal = 0;
    mortal = onAnswer([&](const Message&) {
        component.removeEventHandler(mortal);
        callbacks.pop_back();
        throw std::runtime_error("last words");
    });
    wire->listener->linkUp();
    receive(answer, 1);
    EXPECT_THAT(lines.await(4),
                ElementsAre(AllOf(HasSubstr(typeid(Client).name()), HasSubstr("bad report")),
                            AllOf(HasSubstr(typeid(Callback).name()), HasSubstr("bad message"),
                                  HasSubstr(method)),
                            HasSubstr("an exception of unknown type"),
                            AllOf(HasSubstr("(removed)"), HasSubstr("last words"))));
    settle();
    EXPECT_EQ(4U, session->counters().exceptionsCaught);
}

TEST_F(SessionTest, ClientsMayAttachAndDetachAtAnyTimeAndAreToldInStep)
{
    Client late(journal, "late ");
    session->attach(client);
    wire->listener->linkUp();
    session->attach(late);
    settle();
    session->detach(client);
    wire->listener->linkDown(1);
    session->detach(late);
    session->attach(client);
    session->detach(client);
    EXPECT_THAT(journal.await(4), ElementsAre("connected", "late connected", "disconnected 0",
                                              "late disconnected 1"));
}

TEST_F(SessionTest, CallbacksMayUseTheWholeSession)
{
    Client inner(journal, "inner ");
    client.also = [&](const std::string& what) {
        if (what != "connected")
            return;
        MsgIds ids;
        EXPECT_EQ(0, application.sendEvent(ids, 0, message(ask, 1).release()));
        session->attach(inner);
        session->detach(inner); // was not told yet
        session->attach(inner);
        session->detach(client); // was told
        session->disconnect();
        session->connect();
    };
    wire->listener->linkUp();
    EXPECT_THAT(journal.await(4), ElementsAre("connected", "disconnected 0", "inner connected",
                                              "inner disconnected 0"));
    session->detach(inner);
    EXPECT_EQ(2, wire->opened);
}

TEST_F(SessionTest, DestroyingASessionWaitsForTheRunningHandlerAndTellsItsClients)
{
    wire->listener->linkUp();
    Gate entered;
    onAnswer([&, raw = session.get()](const Message&) {
        entered.open();
        for (int turn = 0; turn < 20; ++turn)
            std::this_thread::yield();
        raw->connect(); // no longer of any use
        journal.note("handled");
    });
    receive(answer, 1);
    entered.pass();
    session.reset();
    EXPECT_THAT(journal.await(3), ElementsAre("connected", "handled", "disconnected 0"));
}

} // namespace
