// How long one command and its reply take: in memory, over the socket to a service in another
// process, and, as the floor of that, bare bytes of the same number over such a socket.

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <chronal/UserAdapter.h>
#include <fabric-host/Session.h>

#include "Frame.h"
#include "Protocol.h"
#include "SocketServer.h"
#include "TimeService.h"

namespace {

using chronal::sim::Content;
using fabric::MsgIds;
typedef std::chrono::steady_clock Stopwatch;
typedef std::function<void()> RoundTrip;

/// The other end of something, in a process of its own.
class Child
{
public:
    explicit Child(const std::function<void()>& run) : pid(::fork())
    {
        if (pid < 0)
            throw std::runtime_error("cannot start a process");
        if (pid == 0) {
            run();
            std::_Exit(0);
        }
    }
    ~Child()
    {
        ::kill(pid, SIGTERM);
        ::waitpid(pid, nullptr, 0);
    }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

private:
    const pid_t pid;
};

template <class Record>
std::size_t frameSize(const chronal::sim::Message<Record>& message)
{
    const Content content = chronal::sim::compose(message, [](Record&) {});
    fabric::host::FrameBytes frame;
    fabric::host::encodeFrame({content.meta, {-1, 0}, content.data}, frame);
    return frame.size();
}

const std::size_t commandSize = frameSize(chronal::sim::cmdRefTimeFetch);
const std::size_t replySize = frameSize(chronal::sim::replyTimeRefInfo);

bool receive(int socket, std::size_t size)
{
    std::array<char, 256> bytes;
    return ::recv(socket, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool send(int socket, std::size_t size)
{
    const std::array<char, 256> bytes = {};
    return ::send(socket, bytes.data(), size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

/// Bare bytes.
class PingPong
{
public:
    PingPong()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()) != 0)
            throw std::runtime_error("no socket");
        child = std::make_unique<Child>([this] {
            while (receive(sockets[1], commandSize) && send(sockets[1], replySize))
                continue;
        });
    }
    ~PingPong()
    {
        child.reset();
        ::close(sockets[0]);
        ::close(sockets[1]);
    }

    PingPong(const PingPong&) = delete;
    PingPong& operator=(const PingPong&) = delete;

    void roundTrip() const
    {
        if (!send(sockets[0], commandSize) || !receive(sockets[0], replySize))
            throw std::runtime_error("the other end is gone");
    }

private:
    std::array<int, 2> sockets;
    std::unique_ptr<Child> child;
};

/// The library over either transport.
class Asker : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    void awaitConnection()
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return connected; });
    }

    void roundTrip()
    {
        MsgIds ids;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            answered = false;
        }
        cmdRefTimeFetch(ids, chronal::referenceTimeRtc);
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return answered; });
    }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        note(connected);
    }

protected:
    void onReplyTimeRefInfo(const MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                            const nubOsalTime_struct&, const chronal::ReferenceTimeId&, bool,
                            int) override
    {
        note(answered);
    }

private:
    void note(bool& what)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        what = true;
        changed.notify_one();
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool connected = false;
    bool answered = false;
};

class Application
{
public:
    explicit Application(const std::string& socket)
        : session(fabric::host::start({socket})),
          asker(session->application(), session->component()),
          attachment((asker.setServiceInterface(&session->service()), *session), asker)
    {
        session->connect();
        asker.awaitConnection();
    }

    void roundTrip() { asker.roundTrip(); }

private:
    const std::unique_ptr<fabric::host::Session> session;
    Asker asker;
    const fabric::host::Attachment attachment;
};

void serve(const std::string& socket)
{
    chronal::sim::TimeService service;
    fabric::host::SocketServer(service, socket, {SIGTERM}).run();
}

struct Candidate
{
    const char* name;
    RoundTrip roundTrip;
    std::vector<double> microseconds;
};

/// In turns, so that whatever else the machine does hits all alike.
void measure(std::vector<Candidate>& candidates, int rounds)
{
    constexpr int tripsPerTurn = 1000;
    constexpr int unmeasured = 50; // at the start of each turn
    for (int round = 0; round < rounds; ++round)
        for (Candidate& candidate : candidates)
            for (int trip = -unmeasured; trip < tripsPerTurn; ++trip) {
                const Stopwatch::time_point start = Stopwatch::now();
                candidate.roundTrip();
                const std::chrono::duration<double, std::micro> taken = Stopwatch::now() - start;
                if (trip >= 0)
                    candidate.microseconds.push_back(taken.count());
            }
}

double quantile(const std::vector<double>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

void print(std::vector<Candidate>& candidates)
{
    std::printf("One command of %zu bytes and its reply of %zu bytes, %zu times:\n", commandSize,
                replySize, candidates.front().microseconds.size());
    std::printf("%-28s %12s %12s\n", "", "median", "99 %");
    for (Candidate& candidate : candidates) {
        std::sort(candidate.microseconds.begin(), candidate.microseconds.end());
        std::printf("%-28s %9.1f us %9.1f us\n", candidate.name,
                    quantile(candidate.microseconds, 0.5), quantile(candidate.microseconds, 0.99));
    }
}

void run(const std::string& folder, int rounds)
{
    const std::string socket = folder + "/socket";
    // Both before there is a second thread in this process.
    PingPong bare;
    const Child service([&] { serve(socket); });
    Application near("");
    Application far(socket);

    std::vector<Candidate> candidates = {
        {"bare bytes over a socket", [&] { bare.roundTrip(); }, {}},
        {"library, in memory", [&] { near.roundTrip(); }, {}},
        {"library, over a socket", [&] { far.roundTrip(); }, {}},
    };
    measure(candidates, rounds);
    print(candidates);
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc == 3 ? std::atoi(argv[2]) : 0;
    if (rounds <= 0) {
        std::fputs("usage: round-trip FOLDER ROUNDS   (1000 round trips each, of every kind)\n",
                   stderr);
        return 2;
    }
    try {
        run(argv[1], rounds);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "round-trip: %s\n", error.what());
        return 1;
    }
}
