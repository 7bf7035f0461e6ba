#include "Sample.h"

#include <fabric-host/ServiceHost.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

// Tests sockets inside one process, so that they run on every target; tests/processes uses separate
// processes.

namespace {

using namespace sample;
using namespace fabric::host;

/// Answers each command with its own number and text.
class EchoService : public Service
{
public:
    const MessageCatalogue& catalogue() const override { return sample::catalogue; }
    void start(ClientSender& out) override { outlet = &out; }
    void clientConnected(ClientId) override {}
    void clientDisconnected(ClientId) override {}
    void commandReceived(ClientId client, const Message& command) override
    {
        auto reply = message(answer, recordOf(command).number, recordOf(command).text.chars);
        reply->ids = command.ids;
        outlet->send(client, std::move(reply));
    }
    TimePoint runDue() override { return TimePoint::max(); }

private:
    ClientSender* outlet = nullptr;
};

/// Runs a service at a socket during its lifetime.
class Served
{
public:
    explicit Served(const std::string& path)
    {
        host.listen(path);
        host.start();
    }

private:
    EchoService service;
    ServiceHost host{service};
};

TEST(SocketLinkTest, AnApplicationConnectsWheneverItsServiceListens)
{
    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    Journal journal;
    journal.ignored = "failed " + std::to_string(ECONNREFUSED); // bound, but not listening yet
    Client client(journal);
    Callback answered([&](const Message& event) {
        journal.note(std::to_string(recordOf(event).number) + recordOf(event).text.chars);
    });
    Session session(newSocketLink(path), sample::catalogue);
    session.component().addEventHandler(answer, 0, answered.handler());
    session.attach(client);
    session.connect();
    const std::string failed = "failed " + std::to_string(ENOENT);
    std::vector<std::string> expected = {failed};
    EXPECT_EQ(journal.await(1), expected);

    for (const std::uint32_t number : {1U, 0x01020304U}) {
        {
            const Served served(path);
            expected.emplace_back("connected");
            EXPECT_EQ(journal.await(expected.size()), expected);
            MsgIds ids;
            EXPECT_EQ(
                0, session.application().sendEvent(ids, 0, message(ask, number, "text").release()));
            expected.push_back(std::to_string(number) + "text");
            EXPECT_EQ(journal.await(expected.size()), expected);
        }
        expected.insert(expected.end(), {"disconnected 0", failed});
        EXPECT_EQ(journal.await(expected.size()), expected);
    }
    session.detach(client);
}

/// Leaves this process without free descriptors during its lifetime.
class FullDescriptorTable
{
public:
    FullDescriptorTable()
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int next = dup(0);
        close(next);
        const rlimit none = {static_cast<rlim_t>(next), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~FullDescriptorTable() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_ = {};
};

TEST(SocketLinkTest, AFullDescriptorTableFailsConnectingOnlyWhileItLasts)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs a descriptor to look at an object's type";
#endif
    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    Journal journal;
    journal.ignored = "failed " + std::to_string(ECONNREFUSED);
    Client client(journal);
    Session session(newSocketLink(path), sample::catalogue);
    session.attach(client);
    const std::string full = "failed " + std::to_string(EMFILE);
    const std::string absent = "failed " + std::to_string(ENOENT);
    std::vector<std::string> expected = {full};
    {
        const FullDescriptorTable before;
        session.connect();
        EXPECT_EQ(journal.await(1), expected);
    }
    {
        expected.push_back(absent);
        EXPECT_EQ(journal.await(2), expected);
        const FullDescriptorTable meanwhile;
        expected.push_back(full);
        EXPECT_EQ(journal.await(3), expected);
    }
    const Served served(path);
    expected.push_back("connected");
    EXPECT_EQ(journal.await(expected.size()).back(), "connected");
    session.detach(client);
}

/// A link that is connected to its service.
struct Found
{
    Found() { linked.journal.await(1); }

    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    const Served served{path};
    Linked linked{newSocketLink(path)};
};

TEST(SocketLinkTest, ARefusedFrameMakesTheLinkReconnect)
{
    Found found;
    Linked& linked = found.linked;
    linked.refuses = true;
    const FrameBytes command = encoded(*message(ask, 1));
    EXPECT_EQ(0, linked.link->send(command));
    linked.journal.await(4);
    linked.refuses = false;
    EXPECT_EQ(0, linked.link->send(command));
    EXPECT_THAT(linked.journal.await(5),
                ElementsAre("up", "frame", "down " + std::to_string(EBADMSG), "up", "frame"));
}

/// Returns how many sockets a program has that this one starts.
int inheritedSockets()
{
    int count = -1;
    FILE* const program = popen("ls -l /proc/self/fd | grep -c socket:", "r");
    EXPECT_EQ(1, std::fscanf(program, "%d", &count));
    pclose(program);
    return count;
}

TEST(SocketLinkTest, StartedProgramsInheritNoConnection)
{
    const int before = inheritedSockets();
    Found found;
    EXPECT_EQ(0, found.linked.link->send(encoded(*message(ask, 1))));
    found.linked.journal.await(2); // so that the service has accepted it
    EXPECT_EQ(before, inheritedSockets());
}

TEST(SocketLinkTest, ClientsBeyondTheLimitAreDisconnected)
{
    const SocketDirectory directory;
    const std::string path = directory.name + std::string("/socket");
    const Served served(path);
    boost::asio::io_context io;
    std::vector<boost::asio::local::stream_protocol::socket> sockets;
    for (int i = 0; i < 257; ++i)
        sockets.emplace_back(io).connect(path);
    char byte = 0;
    EXPECT_EQ(0, recv(sockets.back().native_handle(), &byte, 1, 0));
    for (auto each = sockets.begin(); each + 1 != sockets.end(); ++each)
        EXPECT_EQ(-1, recv(each->native_handle(), &byte, 1, MSG_DONTWAIT));
}

} // namespace
