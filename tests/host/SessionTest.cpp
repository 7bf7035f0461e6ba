#include "Sample.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/weak_ptr.hpp>
#include <fabric/EventHandlerIdSet.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <sstream>
#include <system_error>
#include <thread>

namespace {

using namespace sample;
using testing::AllOf;

/// A link that the test controls.
struct WireLink : Link
{
    void open(boost::asio::io_context& opened, LinkListener& opener) override
    {
        journal.note("open");
        if (failure)
            throw std::system_error(failure, std::generic_category());
        if (std::exchange(listener, &opener))
            return; // post() reads the loop without a lock
        loop = &opened;
        ready.open();
    }
    void close() override { journal.note("close"); }
    int send(FrameView frame) override { return onSend(frame); }

    /// Lets the session's thread make a report.
    void post(std::function<void(LinkListener&)> call)
    {
        ready.pass();
        boost::asio::post(*loop, [=] { call(*listener); });
    }
    void receive(const FrameBytes& frame)
    {
        post([=](auto& to) { refusals += !to.frameReceived(frame); });
    }

    boost::asio::io_context* loop = nullptr;
    LinkListener* listener = nullptr;
    Gate ready;
    Journal journal;
    std::atomic<int> refusals{0}, failure{0};
    std::function<int(FrameView)> onSend = [](FrameView) { return 0; };
};

/// An application whose session owns the test's link.
struct WiredApplication : Application
{
    explicit WiredApplication(WireLink* link = new WireLink)
        : Application(std::unique_ptr<Link>(link)), wire(link)
    {
    }

    /// Takes steps, which are words, and waits for the effects of each.
    void play(const std::string& steps)
    {
        const auto post = [&](auto call) { wire->post(call); };
        const auto receive = [&](const MsgMeta& meta) {
            wire->receive(encoded(*message(meta, ++number)));
        };
        const std::map<std::string, std::function<void()>> actions = {
            {"connect", [&] { session->connect(); }},
            {"disconnect", [&] { session->disconnect(); }},
            {"reopen", [&] { session->disconnect(), session->connect(); }},
            {"full", [&] { wire->failure = EMFILE; }},
            {"freed", [&] { wire->failure = 0; }},
            {"send", [&] { journal.note("sent " + nameOf(-send(1))); }},
            {"attach", [&] { session->attach(client); }},
            {"detach", [&] { session->detach(client); }},
            {"late", [&] { session->attach(late); }},
            {"unlate", [&] { session->detach(late); }},
            {"up", [&] { post([](auto& to) { to.linkUp(); }); }},
            {"down", [&] { post([](auto& to) { to.linkDown(EPIPE); }); }},
            {"failed", [&] { post([](auto& to) { to.linkFailed(ECONNREFUSED); }); }},
            {"overtaken", [&] { post([=](auto& to) { session->disconnect(), to.linkUp(); }); }},
            {"one", [&] { one = note(answer, "one "); }},
            {"two", [&] { note(answer, "two "); }},
            {"told", [&] { told = note(change, "told "); }},
            {"remove",
             [&] {
                 for (const int id : {told, one, one, 12345, 0, -1})
                     session->component().removeEventHandler(id);
             }},
            {"answer", [&] { receive(answer); }},
            {"change", [&] { receive(change); }},
            {"ask", [&] { receive(ask); }},
            {"garbage",
             [&] {
                 wire->receive(FrameBytes{1, 2, 3});
             }},
        };
        std::istringstream words(steps);
        for (std::string word; words >> word;) {
            actions.at(word)();
            for (int turn = 0; turn < 2; ++turn) { // what a report requests takes another
                Gate settled;
                post([&](auto&) { settled.open(); });
                settled.pass();
            }
        }
    }

    WireLink* const wire;
    Client late{journal, "late "};
    std::uint32_t number = 0;
    int one = 0, told = 0;
};

struct SessionTest : testing::Test, WiredApplication
{
};

TEST(SessionScenario, EachStepHasItsEffectOnTheReportsAndTheLink)
{
    const struct
    {
        const char *steps, *reports, *calls = "open";
    } rows[] = {
        {"failed connect", "failed ECONNREFUSED", "open, close, open"},
        {"up connect down", "up, down EPIPE"},
        {"up down connect up down up connect", "up, down EPIPE, up, down EPIPE, up, down 0",
         "open, close, open"},
        {"up disconnect disconnect connect", "up, down 0", "open, close, open"},
        {"up reopen up", "up, down 0, up, down 0", "open, close, open"},
        {"down full connect connect freed connect", "failed EMFILE, failed EMFILE",
         "open, close, open, open, open"},
        {"up disconnect full connect freed connect up", "up, down 0, failed EMFILE, up, down 0",
         "open, close, open, open"},
        {"up send disconnect send connect send up send",
         "up, sent 0, down 0, sent ENOTCONN, sent ENOTCONN, up, sent 0, down 0",
         "open, close, open"},
        {"overtaken send", "up, down 0, sent ENOTCONN", "open, close"},
        {"attach up attach late late detach down detach unlate attach",
         "up, late up, down 0, late down EPIPE"},
        {"late up detach attach failed", "up, late up, down 0, up, late down 0, down 0"},
        {"detach late failed up", "late failed ECONNREFUSED, late up, late down 0"},
        {"one told two answer change remove change answer", "one 1, two 1, told 2, two 4"},
        {"one garbage answer ask answer", "one 1, one 3"},
    };
    for (const auto& [steps, reports, calls] : rows) {
        WiredApplication app;
        app.play(steps);
        EXPECT_EQ(calls, app.wire->journal.take(0)) << steps;
        app.session.reset();
        EXPECT_EQ(reports, app.journal.take(0)) << steps;
    }
}

TEST_F(SessionTest, ARefusedFrameIsReportedAndCounted)
{
    DebugLines lines;
    play("up garbage ask answer");
    EXPECT_EQ(2, wire->refusals);
    const std::string refused = "fabric-host: frame from the service refused: ";
    EXPECT_EQ(refused + "frame of 3 bytes is shorter than a header\n, " + refused +
                  "it is a command\n",
              lines.take(0));
    const SessionCounters counters = session->counters();
    EXPECT_EQ(3U, counters.framesReceived);
    EXPECT_EQ(2U, counters.framesRefused);
    EXPECT_EQ(1U, counters.messagesUnhandled);
}

TEST_F(SessionTest, AReportMayEndItsThread)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer takes the end of a thread for an exception at a null pointer";
#endif
    client.also = [](const std::string&) { pthread_exit(nullptr); };
    wire->post([](auto& to) { to.linkUp(); });
    journal.await(1);
    Client other(journal);
    session->detach(other);
    session->detach(client);
}

TEST_F(SessionTest, AMessageGoesToNoHandlerOfAnotherMessage)
{
    const auto wrong = [&](auto&&) { journal.note("wrong"); };
    for (const MsgMeta& key : {MsgMeta{8, 100, 1, 2}, MsgMeta{7, 101, 1, 2}, MsgMeta{7, 100, 2, 2}})
        on(key, wrong);
    callbacks.emplace_back(wrong);
    const fabric::EventHandler handler(&callbacks.back(), &Callback::call);
    session->component().addEventHandler(change, 0, handler);
    session->application().addEventHandler(answer, 0, handler);
    EXPECT_THROW(session->component().addEventHandler(answer, 1, handler), std::invalid_argument);
    play("answer change");
    EXPECT_EQ("", journal.take(0));
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
        {message({8, 100, 1, 0}, 1), -EINVAL, "unknown service: service 8, resource 100"},
        {message({7, 100, 9, 0}, 1), -EINVAL, "unknown identity: service 7, resource 100"},
        {std::move(noPayload), -EINVAL, "ask has no payload"},
        {std::move(other), -EINVAL, "ask has a payload of another record"},
        {message(ask, 1, std::string(70000, 'x')), -EMSGSIZE, "longer than a frame"},
        {nullptr, -EINVAL, "no event"},
    };
    for (auto& row : rows) {
        DebugLines lines;
        MsgIds ids = {1, 1};
        wire->onSend = [&](FrameView frame) {
            std::string reason;
            EXPECT_EQ(ids, decodeFrame(frame, catalogue, reason)->ids) << "set too late";
            return row.result;
        };
        boost::weak_ptr<SerializableMessageData> data;
        if (row.event)
            data = row.event->data;
        EXPECT_EQ(row.result,
                  session->application().sendEvent(ids, row.flags, row.event.release()));
        EXPECT_TRUE(data.expired());
        EXPECT_EQ(row.result == 0, ids != (MsgIds{0, 0})) << row.result;
        if (row.reason) {
            EXPECT_THAT(lines.take(1), HasSubstr(std::string("message not sent: ") + row.reason));
        }
    }
    EXPECT_EQ(1U, session->counters().framesSent);
}

TEST_F(SessionTest, IdsOfAllMessagesAndComponentsDiffer)
{
    WiredApplication other;
    MsgIds ids, next, foreign;
    session->application().sendEvent(ids, 0, message(ask, 1).release());
    session->application().sendEvent(next, 0, message(ask, 1).release());
    other.session->application().sendEvent(foreign, 0, message(ask, 1).release());
    EXPECT_NE(ids.originId, foreign.originId);
    EXPECT_EQ(next, (MsgIds{ids.originId, ids.messageId + 1}));
    EXPECT_NE(session->component().componentId, other.session->component().componentId);
}

/// Is in progress for a while on one thread, and shows whether it is to another.
struct Lengthy
{
    void run()
    {
        running = true;
        entered.open();
        for (int turn = 0; turn < 20; ++turn)
            std::this_thread::yield();
        running = false;
    }

    Gate entered;
    std::atomic<bool> running{false};
};

TEST_F(SessionTest, RemovingOnAnotherThreadWaitsForTheRunningCallback)
{
    play("up");
    Journal ignored;
    fabric::EventHandlerIdSet ids(session->component());
    for (int round = 0; round < 100; ++round) {
        Lengthy handler, report;
        ids.addHandler(on(answer, [&](auto&&) { handler.run(); }));
        for (int i = 0; i < 2; ++i) // the second must not reach the handler after reset()
            wire->receive(encoded(*message(answer, 1)));
        handler.entered.pass();
        ids.reset();
        ASSERT_FALSE(handler.running);

        Client inner(ignored);
        inner.also = [&](const std::string& what) {
            session->detach(inner);
            if (what == "up")
                report.run();
        };
        session->attach(inner);
        report.entered.pass();
        session->detach(inner);
        ASSERT_FALSE(report.running);
    }
}

TEST_F(SessionTest, ResetInsideAHandlerReturnsAndNothingFurtherIsDelivered)
{
    fabric::EventHandlerIdSet ids(session->component());
    ids.addHandler(on(answer, [&](auto&&) {
        journal.note("first");
        ids.reset();
        note(answer, "late ");
    }));
    ids.addHandler(note(answer, "second "));
    play("answer answer");
    EXPECT_EQ("first, late 2", journal.take(0));
}

TEST_F(SessionTest, ExceptionsFromCallbacksAreReportedByNameAndContained)
{
    DebugLines lines;
    client.also = [](const std::string&) { throw std::runtime_error("bad report"); };
    on(answer, [](auto&&) { throw std::runtime_error("bad message"); });
    const fabric::EventHandler handler(&callbacks.back(), &Callback::call);
    on(answer, [](auto&&) { throw 1; });
    int mortal = 0;
    mortal = on(answer, [&](auto&&) {
        session->component().removeEventHandler(mortal);
        callbacks.pop_back();
        throw std::runtime_error("last words");
    });
    play("up answer");
    const std::string method = "::" + handler.boundCaller().getMethodName() + ": ";
    const std::string start = "fabric-host: exception from ";
    const std::string named = start + typeid(Callback).name() + method;
    EXPECT_EQ(start + "a connection report to " + typeid(Client).name() + ": bad report\n, " +
                  named + "bad message\n, " + named + "an exception of unknown type\n, " + start +
                  "(removed)" + method + "last words\n",
              lines.take(0));
    EXPECT_EQ(4U, session->counters().exceptionsCaught);
}

TEST_F(SessionTest, CallbacksMayUseTheWholeSession)
{
    client.also = [&](const std::string& what) {
        if (what != "up")
            return;
        EXPECT_EQ(0, send(1));
        session->attach(late);
        session->detach(late); // has had no report yet
        session->attach(late);
        session->detach(client); // has had its report
        session->disconnect();
        session->connect();
    };
    play("up unlate");
    EXPECT_EQ("open, close, open", wire->journal.take(0));
    EXPECT_EQ("up, down 0, late up, late down 0", journal.take(0));
}

TEST_F(SessionTest, DestroyingASessionWaitsForTheRunningHandlerAndTellsItsClients)
{
    play("up");
    Lengthy handler;
    on(answer, [&, raw = &*session](auto&&) {
        handler.run();
        raw->connect(); // has no effect any more
        journal.note("handled");
    });
    wire->receive(encoded(*message(answer, 1)));
    handler.entered.pass();
    session.reset();
    EXPECT_EQ("up, handled, down 0", journal.take(0));
}

} // namespace
