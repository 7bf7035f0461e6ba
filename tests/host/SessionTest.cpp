#include "Sample.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/weak_ptr.hpp>
#include <fabric/EventHandlerIdSet.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <list>
#include <system_error>
#include <thread>

namespace {

using namespace sample;
using testing::AllOf;

/// A link that the test controls.
struct WireLink : fabric::host::Link
{
    void open(boost::asio::io_context& opened, fabric::host::LinkListener& opener) override
    {
        if (failure)
            throw std::system_error(failure, std::generic_category());
        loop = &opened;
        listener = &opener;
        journal.note("open");
    }
    void close() override { journal.note("close"); }
    int send(FrameView frame) override { return onSend ? onSend(frame) : 0; }

    template <class Call>
    void report(Call call)
    {
        journal.await(1);
        boost::asio::post(*loop, [this, call] { call(*listener); });
    }
    void up()
    {
        report([](auto& told) { told.linkUp(); });
    }
    void failed(int error)
    {
        report([=](auto& told) { told.linkFailed(error); });
    }
    void down(int reason)
    {
        report([=](auto& told) { told.linkDown(reason); });
    }
    void receive(const FrameBytes& frame)
    {
        report([=](auto& told) { refusals += !told.frameReceived(frame); });
    }

    std::atomic<boost::asio::io_context*> loop{nullptr};
    std::atomic<fabric::host::LinkListener*> listener{nullptr};
    Journal journal;
    std::atomic<int> refusals{0};
    std::atomic<int> failure{0};
    std::function<int(FrameView)> onSend;
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
        wire->receive(encoded(*message(meta, number)));
    }

    /// Waits until everything received so far has been handled.
    void settle()
    {
        Gate settled;
        wire->report([&](auto&) { settled.open(); });
        settled.pass();
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

TEST_F(SessionTest, ReportsAndMessagesArriveInOrderPastRefusedFrames)
{
    onAnswer(noteNumber(journal, "answer"));
    DebugLines lines;
    wire->failed(ECONNREFUSED);
    wire->up();
    wire->receive(FrameBytes{1, 2, 3});
    receive(answer, 1);
    wire->down(EPIPE);
    settle();
    session->connect();
    wire->up();
    receive(ask, 1); // a command is not for an application
    receive(answer, 2);
    wire->down(ECONNRESET);
    wire->up(); // without connect()
    settle();
    session->connect();
    session->disconnect();
    session->disconnect();
    session->detach(client);
    EXPECT_THAT(journal.await(9),
                ElementsAre("failed " + std::to_string(ECONNREFUSED), "connected", "answer 1",
                            "disconnected " + std::to_string(EPIPE), "connected", "answer 2",
                            "disconnected " + std::to_string(ECONNRESET), "connected",
                            "disconnected 0"));
    EXPECT_THAT(wire->journal.await(4), ElementsAre("open", "close", "open", "close"));
    EXPECT_THAT(lines.await(3),
                ElementsAre(HasSubstr("not connected"), HasSubstr("shorter than a header"),
                            HasSubstr("refused: it is a command")));
    EXPECT_EQ(2U, session->counters().framesRefused);
    EXPECT_EQ(2, wire->refusals);
}

TEST_F(SessionTest, AConnectionThatCannotBeOpenedIsReportedAsFailed)
{
    wire->down(EPIPE);
    settle();
    wire->failure = EMFILE;
    session->connect();
    EXPECT_THAT(journal.await(1), ElementsAre("failed " + std::to_string(EMFILE)));
    wire->failure = 0;
    session->connect();
    EXPECT_THAT(wire->journal.await(3), ElementsAre("open", "close", "open"));
}

TEST_F(SessionTest, ConnectOpensALinkAgainThatFailed)
{
    wire->failed(ECONNREFUSED);
    settle();
    session->connect();
    EXPECT_THAT(wire->journal.await(3), ElementsAre("open", "close", "open"));
}

TEST_F(SessionTest, AReportMayEndItsThread)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer takes the end of a thread for an exception at a null pointer";
#endif
    client.also = [](const std::string&) { pthread_exit(nullptr); };
    wire->up();
    journal.await(1);
    Client other(journal);
    session->detach(other);
    session->detach(client);
}

TEST_F(SessionTest, ADisconnectedSessionRefusesCommandsAtOnce)
{
    wire->up();
    settle();
    MsgIds ids;
    EXPECT_EQ(0, application.sendEvent(ids, 0, message(ask, 1).release()));
    session->disconnect();
    EXPECT_EQ(-ENOTCONN, application.sendEvent(ids, 0, message(ask, 1).release()));
    session->connect();
    wire->journal.await(3);
    wire->up();
    journal.await(3);
    EXPECT_EQ(0, application.sendEvent(ids, 0, message(ask, 1).release()));
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
        wire->onSend = [&](FrameView frame) {
            std::string reason;
            EXPECT_EQ(ids, decodeFrame(frame, catalogue, reason)->ids) << "set too late";
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

TEST_F(SessionTest, SessionsHaveDistinctIds)
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
        receive(answer, 2); // must not reach the handler after reset()
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

TEST_F(SessionTest, ExceptionsFromCallbacksAreReportedByNameAndContained)
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
    wire->up();
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

TEST_F(SessionTest, ClientsThatAttachOrDetachAtAnyTimeGetMatchingReports)
{
    Client late(journal, "late ");
    session->attach(client);
    wire->up();
    session->attach(late);
    settle();
    session->detach(client);
    wire->down(1);
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
        session->detach(inner); // has had no report yet
        session->attach(inner);
        session->detach(client); // has had its report
        session->disconnect();
        session->connect();
    };
    wire->up();
    EXPECT_THAT(wire->journal.await(3), ElementsAre("open", "close", "open"));
    EXPECT_THAT(journal.await(4), ElementsAre("connected", "disconnected 0", "inner connected",
                                              "inner disconnected 0"));
    session->detach(inner);
}

TEST_F(SessionTest, DestroyingASessionWaitsForTheRunningHandlerAndTellsItsClients)
{
    wire->up();
    Gate entered;
    onAnswer([&, raw = session.get()](const Message&) {
        entered.open();
        for (int turn = 0; turn < 20; ++turn)
            std::this_thread::yield();
        raw->connect(); // has no effect any more
        journal.note("handled");
    });
    receive(answer, 1);
    entered.pass();
    session.reset();
    EXPECT_THAT(journal.await(3), ElementsAre("connected", "handled", "disconnected 0"));
}

} // namespace
