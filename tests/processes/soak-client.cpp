// Sends commands as fast as they are answered, with or without a service, and checks that each
// answer belongs to a command of this session, is correct and comes at most once.
// Usage: soak-client SESSIONS   After the end of standard input, ends once every session is served.

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

#include <chronal-sim/Start.h>
#include <chronal/UserAdapter.h>

namespace {

using fabric::MsgIds;
typedef nubOsalTime_struct Time;

constexpr std::chrono::seconds bound(30);
constexpr std::uint32_t window = 32;       // commands without an answer
constexpr std::uint32_t remembered = 4096; // commands

[[noreturn]] void fail(const char* what, const MsgIds& ids)
{
    std::fprintf(stderr, "soak-client: %s: #%u:%u\n", what, ids.originId, ids.messageId);
    std::abort();
}

class Sender : public chronal::UserAdapter
{
public:
    Sender(fabric::AbstractApplication& theApplication, fabric::AbstractComponent& theComponent,
           fabric::ServiceInterface& service)
        : UserAdapter(theApplication, theComponent)
    {
        setServiceInterface(&service);
    }

    void sendUntil(const std::atomic<bool>& ending)
    {
        while (!ending) {
            send();
            std::unique_lock<std::mutex> lock(mutex);
            answered.wait_for(lock, std::chrono::milliseconds(10),
                              [this] { return waiting < window; });
        }
        awaitService();
    }

    void print()
    {
        const std::lock_guard<std::mutex> lock(mutex); // answers may still come
        std::printf("#%u: %zu sent, %zu answered, %zu not sent, %zu connections\n", origin, sent,
                    answers, notSent, connections);
    }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        const std::lock_guard<std::mutex> lock(mutex);
        ++connections;
        waiting = 0; // commands in flight are lost
    }

protected:
    void onReplyTimeAt(const MsgIds& ids, const Time& utc, const Time&) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (ids.originId != origin)
            fail("answer to another session", ids);
        Command& command = commands[ids.messageId % remembered];
        if (command.messageId != ids.messageId)
            fail("answer to no command, or a second one", ids);
        if (command.seconds != utc.seconds)
            fail("answer to another command", ids);
        command.messageId = 0;
        ++answers;
        waiting -= waiting != 0;
        answered.notify_one();
    }

private:
    struct Command
    {
        std::uint32_t messageId;
        std::int64_t seconds;
    };

    // Holds the lock so that no answer is handled before the command is on the list.
    void send()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const Time time = {static_cast<std::int64_t>(sent), 0};
        MsgIds ids = {};
        cmdUTCTimeAt(ids, time);
        if (ids == MsgIds()) {
            ++notSent;
            waiting = window;
            return;
        }
        origin = ids.originId;
        commands[ids.messageId % remembered] = {ids.messageId, time.seconds};
        ++sent;
        ++waiting;
    }

    void awaitService()
    {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        std::unique_lock<std::mutex> lock(mutex);
        const std::size_t before = answers;
        while (answers == before) {
            lock.unlock();
            send();
            lock.lock();
            answered.wait_for(lock, std::chrono::milliseconds(50));
            if (std::chrono::steady_clock::now() > deadline)
                fail("not served any more", {origin, 0});
        }
    }

    std::mutex mutex;
    std::condition_variable answered;
    std::array<Command, remembered> commands = {};
    std::uint32_t origin = 0;
    std::uint32_t waiting = 0;
    std::size_t sent = 0;
    std::size_t answers = 0;
    std::size_t notSent = 0;
    std::size_t connections = 0;
};

void soak(const std::atomic<bool>& ending)
{
    const auto session = chronal::sim::start();
    Sender sender(session->application(), session->component(), session->service());
    const fabric::host::Attachment attachment(*session, sender);
    session->connect();
    sender.sendUntil(ending);
    sender.print();
}

} // namespace

int main(int argc, char** argv)
{
    const int count = argc == 2 ? std::atoi(argv[1]) : 0;
    if (count <= 0) {
        std::fputs("usage: soak-client SESSIONS\n", stderr);
        return 2;
    }
    std::atomic<bool> ending{false};
    std::vector<std::thread> sessions;
    for (int i = 0; i < count; ++i)
        sessions.emplace_back(soak, std::cref(ending));
    std::cin.get();
    ending = true;
    for (std::thread& session : sessions)
        session.join();
}
