#include "Sample.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include <boost/asio/buffer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <fabric/EventHandlerIdSet.h>

namespace {

using namespace sample;
using namespace std::chrono_literals;
using testing::StartsWith;
namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;
using Protocol = asio::local::stream_protocol;

/// A session that is connected.
struct Connected : Application
{
    explicit Connected(std::unique_ptr<Link> link) : Application(std::move(link), "up") {}
};

/// A link without a session. Its loop runs while the test waits.
struct Linked final : LinkListener
{
    explicit Linked(std::unique_ptr<Link> used) : link(std::move(used)) { link->open(loop, *this); }
    ~Linked() { link->close(); }

    void linkUp() override { note("up"); }
    void linkFailed(int error) override { note("failed " + nameOf(error)); }
    void linkDown(int reason) override { note("down " + nameOf(reason)); }
    bool frameReceived(FrameView frame) override { return note("frame"), frame.size == 62; }
    void note(const std::string& what) { notes += (count++ ? ", " : "") + what; }

    /// Waits for a number of reports.
    std::string next(int expected = 1)
    {
        while (count < expected && loop.run_one_for(bound) != 0)
            continue;
        count = 0;
        return std::exchange(notes, "");
    }

    std::string notes;
    int count = 0;
    asio::io_context loop;
    asio::executor_work_guard<asio::io_context::executor_type> work{loop.get_executor()};
    const std::unique_ptr<Link> link;
};

INSTANTIATE_TEST_SUITE_P(, ConnectionTest, transports);

TEST_P(ConnectionTest, OnlyMessagesOfTheCatalogueReachTheirClient)
{
    Connected first(newLink()), second(newLink());
    first.on(answer, [&](const Message& event) {
        first.journal.note(std::to_string(event.ids.messageId) + textOf(event));
    });
    second.note(change, "told ");
    service.onCommand = [this](ClientSender& out, ClientId client, const Message& command) {
        out.send(client, nullptr);
        out.send(client, message(ask, 0));
        out.send(client, message(answer, 0, std::string(70000, 'x')));
        ScriptedService::echo(out, client, command);
        out.send(3, message(change, 4)); // there is no such client
        service.onDue = [&out, due = Clock::now() + 5ms] {
            if (Clock::now() < due)
                return due;
            out.send(2, message(change, 5));
            return Clock::time_point::max();
        };
    };
    DebugLines lines;
    EXPECT_EQ(0, first.send(7, " longer text"));
    EXPECT_EQ("17 longer text", first.journal.take(1));
    EXPECT_EQ("told 5", second.journal.take(1));
    EXPECT_EQ("fabric-host: message from the service not sent: it is a command\n, "
              "fabric-host: message from the service not sent: longer than a frame\n",
              lines.take(0));
    EXPECT_EQ(0, first.send(7, " text"));
    EXPECT_EQ("27 text", first.journal.take(1));
}

TEST_P(ConnectionTest, ARefusedFrameCostsItsSenderTheConnection)
{
    DebugLines lines;
    Linked linked(newLink());
    EXPECT_EQ("up", linked.next());
    EXPECT_EQ(-EBADMSG, linked.link->send(FrameBytes{0, 0, 0, 36}));
    FrameBytes longer = encoded(*message(ask, 0));
    longer.push_back(0);
    EXPECT_EQ(-EBADMSG, linked.link->send(longer));
    Gate gone;
    service.onEnd = [&](ClientId) { gone.open(); };
    EXPECT_EQ(0, linked.link->send(encoded(*message(answer, 0))));
    gone.pass();
    EXPECT_EQ(overSocket ? -EPIPE : -ENOTCONN, linked.link->send(encoded(*message(ask, 0))));
    EXPECT_EQ(overSocket ? "down EPIPE" : "down EBADMSG", linked.next());
    EXPECT_EQ(-ENOTCONN, linked.link->send(encoded(*message(ask, 0))));
    EXPECT_EQ("fabric-host: frame of client 1 refused: not a command\n, "
              "fabric-host: client 1 dropped: its frame was refused\n",
              lines.take(2));
    EXPECT_EQ(1U, host->counters().framesRefused);
    EXPECT_EQ(1U, host->counters().clientsDropped);
}

TEST_P(ConnectionTest, AnExceptionFromTheServiceIsReportedAndCostsAClientThatWaitsItsConnection)
{
    DebugLines lines;
    service.onStart = [](ClientId id) {
        if (id == 1)
            throw std::runtime_error("no place");
    };
    service.onCommand = [](ClientSender&, ClientId, const Message& command) {
        if (recordOf(command).number == 3)
            throw std::bad_alloc();
        throw std::runtime_error("no answer");
    };
    EXPECT_EQ("up, " + lost("ECANCELED"), Linked(newLink()).next(2));
    Connected app(newLink());
    for (const std::uint32_t number : {1U, 2U, 3U})
        EXPECT_EQ(0, app.send(number));
    EXPECT_THAT(app.journal.take(1), StartsWith(lost("ENOMEM")));
    const std::string start = "fabric-host: exception from the service's ";
    EXPECT_EQ(
        start +
            "clientConnected: no place\n, "
            "fabric-host: client 1 dropped: by the service\n, " +
            start + "commandReceived: no answer\n, " + start + "commandReceived: no answer\n, " +
            start +
            "commandReceived: std::bad_alloc\n, fabric-host: client 2 dropped: out of memory\n",
        lines.take(6));
}

TEST_P(ConnectionTest, WhatWaitsWhenTheServiceStopsIsAnsweredOrDisconnectedInGoodOrder)
{
    Gate entered;
    service.onCommand = [&](auto& out, ClientId client, const Message& command) {
        entered.open();
        goOn.pass();
        ScriptedService::echo(out, client, command);
    };
    Connected asking(newLink());
    asking.note(answer, "answer ");
    EXPECT_EQ(0, asking.send(1));
    entered.pass();
    Connected waiting(newLink()), another(newLink());
    host->stop();
    goOn.open();
    EXPECT_THAT(asking.journal.take(2), StartsWith("answer 1, down 0"));
    EXPECT_THAT(waiting.journal.take(1), StartsWith("down 0"));
    EXPECT_THAT(another.journal.take(1), StartsWith("down 0"));
}

TEST_P(ConnectionTest, CommandsReachTheServiceAfterTheSessionEnds)
{
    Gate left;
    service.onCommand = [&](auto&&...) {
        goOn.pass();
        journal.note("command");
    };
    service.onEnd = [&](ClientId) { left.open(); };
    Connected app(newLink());
    for (std::uint32_t i = 0; i < 1000; ++i)
        EXPECT_EQ(0, app.send(i));
    goOn.open();
    app.session.reset();
    left.pass();
    journal.await(1000);
}

TEST_P(ConnectionTest, EachCommandToASlowServiceOrCallbackIsRefusedOrAnsweredOnce)
{
    const std::size_t longest = maxFrameSize - encoded(*message(ask, 0)).size();
    const struct
    {
        bool isServiceSlow;
        std::size_t length;
        std::uint32_t inMemory; ///< messages that wait for a service, where that is known
    } rows[] = {{true, 0, 1024}, {true, longest, 4}, {false, 0, 0}, {false, longest, 0}};
    for (const auto& [isServiceSlow, length, inMemory] : rows) {
        Gate entered, gate;
        service.onCommand = [&, slow = isServiceSlow](auto& out, ClientId client, auto& command) {
            entered.open();
            if (slow)
                gate.pass();
            ScriptedService::echo(out, client, command);
        };
        Connected app(newLink());
        Journal answers;
        app.on(answer, [&, slow = !isServiceSlow](const Message& event) {
            if (slow)
                gate.pass();
            answers.note(std::to_string(recordOf(event).number));
        });
        EXPECT_EQ(0, app.send(0));
        entered.pass();
        const std::uint32_t many = length ? 100 : 8000; // more than all queues hold
        std::string accepted = "0";
        std::uint32_t count = 1;
        for (std::uint32_t i = 1; i < many; ++i) {
            const int result = app.send(i, std::string(length, 'x'));
            EXPECT_TRUE(result == 0 || result == -EAGAIN) << result;
            if (result == 0)
                ++count, accepted += ", " + std::to_string(i);
        }
        EXPECT_LT(count, many);
        EXPECT_TRUE(overSocket || !isServiceSlow || count == 1 + inMemory) << count;
        gate.open();
        EXPECT_EQ(accepted, answers.take(count));
        EXPECT_EQ(0, app.send(many));
        EXPECT_EQ(std::to_string(many), answers.take(1));
    }
}

void work(std::chrono::microseconds time)
{
    const auto end = Clock::now() + time;
    while (Clock::now() < end)
        continue;
}

TEST_P(ConnectionTest, AClientWithManyCommandsLeavesTurnsToTheOthers)
{
    service.onCommand = [this](auto&&, auto&&, const Message& command) {
        journal.note(textOf(command));
        goOn.pass();
        work(1ms); // longer than a turn
    };
    Connected first(newLink()), second(newLink());
    EXPECT_EQ(0, first.send(1));
    journal.await(1); // the service is busy with it
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(0, first.send(1));
    EXPECT_EQ(0, second.send(2));
    goOn.open();
    const std::string order = journal.take(11);
    EXPECT_LT(order.find("2"), std::string("1, 1, 1, 2").size()) << order;
}

/// A reader, and a client whose commands each cause an answer and four notifications of the reader,
/// together more than the reader's queue holds.
struct NotifiedTest : ConnectionTest
{
    NotifiedTest()
    {
        service.onCommand = [](auto& out, ClientId client, const Message& command) {
            ScriptedService::echo(out, client, command);
            for (int i = 0; i < 4; ++i)
                out.send(1, message(change, 0)); // the reader, which connected first
        };
        notifier.on(answer, [this](auto&&) { journal.note("answer"); });
    }

    void sendAll()
    {
        for (std::uint32_t i = 0; i < commands; ++i)
            EXPECT_EQ(0, notifier.send(i));
        journal.await(commands);
    }

    static constexpr std::uint32_t commands = 1000;
    Connected reader{newLink()}, notifier{newLink()};
};

INSTANTIATE_TEST_SUITE_P(, NotifiedTest, transports);

TEST_P(NotifiedTest, AClientThatReadsIsKeptHoweverFastItIsNotified)
{
    reader.on(change, [this](auto&&) {
        work(20us); // longer than the service takes to notify it
        reader.journal.note("change");
    });
    sendAll();
    reader.journal.await(4 * commands);
    EXPECT_EQ(0U, host->counters().clientsDropped);
}

TEST_P(NotifiedTest, AClientThatNeverReadsIsDroppedInTheEndAndMayConnectAgain)
{
    DebugLines lines;
    reader.on(change, [this](auto&&) { goOn.pass(); });
    sendAll();
    EXPECT_EQ("fabric-host: client 1 dropped: it does not read\n", lines.take(1));
    EXPECT_EQ(1U, host->counters().clientsDropped);
    goOn.open();
    reader.journal.await(1);
    reader.session->connect(); // without effect on a socket, where the link does
    EXPECT_EQ(lost("ENOBUFS") + ", up", reader.journal.take(2));
    EXPECT_EQ(0, reader.send(0));
}

TEST_P(ConnectionTest, ThreadsMaySendRegisterAttachAndReconnectConcurrently)
{
    std::atomic<int> answers{0};
    std::atomic<bool> done{false};
    Application app(newLink());
    const auto repeat = [&](const std::function<void()>& action) {
        return std::async(std::launch::async, [&done, action] {
            while (!done)
                action();
        });
    };
    const std::future<void> threads[] = {
        repeat([&] { app.send(1); }),
        repeat([&] {
            Callback local([&](const Message&) { ++answers, app.send(2); });
            fabric::EventHandlerIdSet ids(app.session->component());
            ids.addHandler(app.session->component().addEventHandler(
                answer, 0, fabric::EventHandler(&local, &Callback::call)));
            std::this_thread::yield();
        }),
        repeat([&] {
            Client client(app.journal);
            client.also = [&](const std::string&) { app.send(3); };
            Attachment attachment(*app.session, client);
        }),
    };
    for (int round = 0; round < 200; ++round) {
        app.session->disconnect();
        app.session->connect();
    }
    const int enough = answers + 100; // commands must still be answered
    for (const auto start = Clock::now(); answers < enough && Clock::now() < start + bound;)
        app.session->connect();
    done = true;
    EXPECT_GE(answers, enough);
}

struct MemoryTest : testing::Test, Hosted
{
};

TEST_F(MemoryTest, ReceivedMessagesAreDeliveredBeforeTheSessionDisconnects)
{
    host->start();
    Gate entered, sent;
    Connected app(newMemoryLink(host));
    app.on(change, [&](const Message& event) {
        app.journal.note(textOf(event));
        entered.open();
        goOn.pass();
    });
    service.onCommand = [&](ClientSender& out, ClientId client, const Message&) {
        for (std::uint32_t i = 0; i < 3; ++i)
            out.send(client, message(change, i));
        sent.open();
    };
    EXPECT_EQ(0, app.send(1));
    for (Gate* const each : {&entered, &sent})
        each->pass();
    app.session->disconnect();
    goOn.open();
    EXPECT_EQ("0, 1, 2, down 0", app.journal.take(4));
}

TEST_F(MemoryTest, ConnectingToAServiceThatHasEndedFails)
{
    host->stop();
    host->run();
    const Application app(newMemoryLink(host), "failed ECONNREFUSED");
}

/// A service at the longest path that a socket can have.
struct SocketTest : testing::Test, Hosted
{
    void serve()
    {
        host->listen(path);
        host->start();
    }
    Protocol::socket connected()
    {
        Protocol::socket client(io);
        client.connect(path);
        return client;
    }

    asio::io_context io;
};

/// Returns how many descriptors a program would inherit that this one starts.
int inherited()
{
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        count += fcntl(descriptor, F_GETFD) == 0;
    return count;
}

TEST_F(SocketTest, AnApplicationConnectsWheneverItsServiceListens)
{
    const int before = inherited();
    Protocol::acceptor(io, path).close(); // leaves its file behind, which the service replaces
    Application app(newSocketLink(path), "failed ECONNREFUSED");
    app.note(answer, "answer ");
    app.journal.ignored = "failed ECONNREFUSED"; // bound, but not listening yet
    for (const std::uint32_t number : {1U, 0x01020304U}) {
        serve();
        EXPECT_EQ("up", app.journal.take(1));
        EXPECT_EQ(0, app.send(number, " text"));
        EXPECT_EQ("answer " + std::to_string(number) + " text", app.journal.take(1));
        EXPECT_EQ(before, inherited());
        struct stat status = {};
        EXPECT_EQ(0, stat(path.c_str(), &status));
        EXPECT_EQ(S_IFSOCK | 0600U, status.st_mode);
        host = std::make_shared<ServiceHost>(service);
        EXPECT_EQ("down 0, failed ENOENT", app.journal.take(2));
    }
    app.session->disconnect();
    app.session->connect();
    EXPECT_EQ("failed ENOENT", app.journal.take(1));
}

TEST_F(SocketTest, APlaceWhereNoSocketCanBeIsRefused)
{
    const std::pair<std::string, std::string> rows[] = {
        {path + "s", "the path of a socket has at most 107 characters"},
        {"", "the path of the socket is empty"},
        {directory.name, "is there already and is not a socket"},
        {"/none/socket", "cannot create a file in its directory: No such file or directory"},
    };
    for (const auto& [place, fault] : rows)
        EXPECT_THAT(([host = host, place = place] { host->listen(place); }),
                    testing::ThrowsMessage<std::runtime_error>(place + ": " + fault));
    EXPECT_EQ("failed ENAMETOOLONG", Linked(newSocketLink(path + "s")).next());
    Linked absent(newSocketLink(path));
    absent.loop.run_for(60ms); // it tries again after 50 ms
    EXPECT_EQ("failed ENOENT", absent.next());
}

TEST_F(SocketTest, AFileInPlaceOfTheLockIsNeitherUsedNorChanged)
{
    const std::string lock = path + ".lock";
    for (const bool isLink : {true, false}) {
        EXPECT_EQ(0, isLink ? symlink("nowhere", lock.c_str()) : mkdir(lock.c_str(), 0700));
        host->listen(path);
        host = std::make_shared<ServiceHost>(service);
        EXPECT_EQ(0, remove(lock.c_str()));
    }
}

TEST_F(SocketTest, OnlyAServiceOfATrustedUserIsUsed)
{
    constexpr uid_t stranger = 65534;
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    chmod(directory.name, 0777);
    EXPECT_EQ(0, seteuid(stranger));
    host->listen(path);
    EXPECT_EQ(0, seteuid(0));
    host->start();
    EXPECT_EQ("failed EPERM", Linked(newSocketLink(path)).next());
    EXPECT_EQ("up", Linked(newSocketLink(path, stranger)).next());
}

void fillDescriptorTable(bool full)
{
    static rlimit limit = {};
    if (full) {
        getrlimit(RLIMIT_NOFILE, &limit);
        const int next = dup(0);
        close(next);
        const rlimit none = {static_cast<rlim_t>(next), limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    } else {
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

TEST_F(SocketTest, AFullDescriptorTablePreventsConnectionsOnlyWhileItLasts)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to look at an object's type";
#endif
    fillDescriptorTable(true);
    Application app(newSocketLink(path), "failed EMFILE");
    app.journal.ignored = "failed ECONNREFUSED"; // bound, but not listening yet
    for (const bool full : {false, true, false}) {
        fillDescriptorTable(full);
        EXPECT_EQ(full ? "failed EMFILE" : "failed ENOENT", app.journal.take(1));
    }
    serve();
    EXPECT_EQ("up", app.journal.take(1));

    Protocol::socket client(io, Protocol());
    DebugLines lines;
    fillDescriptorTable(true);
    client.connect(path);
    EXPECT_EQ(
        "fabric-host: cannot accept a client: Too many open files (lines left out before: 0)\n",
        lines.take(1));
    fillDescriptorTable(false);
    const FrameBytes command = encoded(*message(ask, 1));
    FrameBytes reply(command.size());
    asio::write(client, asio::buffer(command));
    asio::read(client, asio::buffer(reply));
    EXPECT_EQ(kindReply, reply[16]);
}

TEST_F(SocketTest, TheEndOfAConnectionIsReportedWithItsReason)
{
    Protocol::acceptor acceptor(io, path);
    const FrameBytes frame = encoded(*message(answer, 1, "xy")), garbage(5000, 0xff);
    const auto part = [&](int size) { return FrameBytes(frame.begin(), frame.begin() + size); };
    ASSERT_EQ(62U, frame.size());
    const struct
    {
        FrameBytes sent;
        bool reads; ///< the service ends its sending only
        const char* reports;
    } rows[] = {
        {frame, true, "up, frame, down 0"},      {part(0), true, "up, down 0"},
        {part(0), false, "up, down ECONNRESET"}, {part(3), true, "up, down ECONNRESET"},
        {part(40), true, "up, down ECONNRESET"}, {garbage, true, "up, frame, down EBADMSG"},
    };
    for (const auto& [sent, reads, reports] : rows) {
        Linked linked(newSocketLink(path));
        Protocol::socket peer = acceptor.accept();
        asio::write(peer, asio::buffer(sent));
        peer.shutdown(reads ? Protocol::socket::shutdown_send : Protocol::socket::shutdown_both);
        const bool hasFrame = reports[4] == 'f';
        EXPECT_EQ(reports, linked.next(hasFrame ? 3 : 2));
    }
}

TEST_F(SocketTest, AServiceThatFailsIsTriedLessAndLessOftenUntilItSendsAFrame)
{
    Protocol::acceptor acceptor(io, path);
    const FrameBytes frame = encoded(*message(answer, 1, "xy")), garbage(5000, 0xff);
    Linked linked(newSocketLink(path));
    EXPECT_EQ("up", linked.next());
    const auto delayAfter = [&](const FrameBytes& sent) {
        Protocol::socket peer = acceptor.accept();
        asio::write(peer, asio::buffer(sent));
        const auto start = Clock::now();
        peer.close();
        EXPECT_THAT(linked.next(sent.empty() ? 1 : 2), HasSubstr("down "));
        EXPECT_EQ("up", linked.next());
        return Clock::now() - start;
    };
    EXPECT_GE(delayAfter({}), 50ms);
    EXPECT_GE(delayAfter(garbage), 100ms);
    const auto reopen = [&] {
        linked.link->close();
        linked.link->open(linked.loop, linked);
        EXPECT_EQ("up", linked.next());
        acceptor.accept();
        return delayAfter({});
    };
    EXPECT_LT(std::min(reopen(), reopen()), 200ms);
    EXPECT_GE(delayAfter({}), 100ms);
    EXPECT_LT(std::min(delayAfter(frame), delayAfter(frame)), 200ms);
}

TEST_F(SocketTest, ClientsBeyondTheLimitAreDisconnected)
{
    DebugLines lines;
    serve();
    std::list<Protocol::socket> clients;
    while (clients.size() < 259)
        clients.push_back(connected());
    char byte = 0;
    int served = 256;
    for (Protocol::socket& each : clients) {
        const bool isServed = served-- > 0;
        EXPECT_EQ(isServed ? -1 : 0,
                  recv(each.native_handle(), &byte, 1, isServed ? MSG_DONTWAIT : 0));
    }
    EXPECT_EQ("fabric-host: client refused: there are 256 already (lines left out before: 0)\n",
              lines.take(1));
}

/// Returns how many bytes arrive before the other end closes.
std::size_t readToEnd(Protocol::socket& socket)
{
    FrameBytes bytes;
    boost::system::error_code error;
    asio::read(socket, asio::dynamic_buffer(bytes), error);
    EXPECT_EQ(asio::error::eof, error);
    return bytes.size();
}

TEST(FarewellTest, WhatIsQueuedIsSentForUpToASecond)
{
    const std::size_t size = encoded(*message(change, 0)).size();
    const auto endService = [&](bool reads) {
        Hosted hosted;
        hosted.host->listen(hosted.path);
        hosted.host->start();
        hosted.service.onCommand = [&](ClientSender& out, ClientId client, const Message&) {
            for (int i = 0; i < 1000; ++i)
                out.send(client, message(change, 0));
            hosted.goOn.open();
        };
        asio::io_context io;
        Protocol::socket client(io);
        client.connect(hosted.path);
        asio::write(client, asio::buffer(encoded(*message(ask, 0))));
        hosted.goOn.pass();
        const auto start = Clock::now();
        hosted.host->stop();
        while (access(hosted.path.c_str(), F_OK) == 0 && Clock::now() < start + bound)
            std::this_thread::yield();
        if (reads) {
            EXPECT_EQ(1000 * size, readToEnd(client));
            client.close();
        }
        hosted.host.reset();
        EXPECT_TRUE(reads || Clock::now() - start >= 1s);
    };
    const auto endSession = [&](bool reads) {
        const SocketDirectory directory;
        DebugLines lines;
        asio::io_context io;
        Protocol::acceptor acceptor(io, directory.socket);
        Connected app(newSocketLink(directory.socket));
        Protocol::socket service = acceptor.accept();
        std::size_t accepted = 0;
        while (app.send(0) == 0)
            ++accepted;
        const auto start = Clock::now();
        auto ended = std::async(std::launch::async, [&] { app.session.reset(); });
        if (reads) {
            EXPECT_EQ(accepted * size, readToEnd(service));
            ended.get();
            EXPECT_EQ("", lines.take(0));
        } else {
            ended.get();
            EXPECT_GE(Clock::now() - start, 1s);
            EXPECT_EQ("fabric-host: " + std::to_string(accepted - readToEnd(service) / size) +
                          " messages not sent before the connection was closed\n",
                      lines.take(1));
        }
    };
    for (const bool reads : {true, false}) {
        auto other = std::async(std::launch::async, endSession, reads);
        endService(reads);
        other.get();
    }
}

} // namespace
