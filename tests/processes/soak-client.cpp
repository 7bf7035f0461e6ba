// Sends commands as fast as they are answered, with or without a service, and checks that each
// answer belongs to a command of this session, is correct and comes at most once.
// Usage: soak-client SESSIONS   After the end of standard input, ends once every session is served.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <chronal-sim/Start.h>
#include <chronal/UserAdapter.h>

namespace {

using fabric::MsgIds;
typedef nubOsalTime_struct Time;

class Sender : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    void sendUntil(const std::atomic<bool>& ending)
    {
        // Held while sending, so that no answer is handled before its command is on the list.
        std::unique_lock<std::mutex> lock(mutex);
        for (std::size_t before = 0; !ending || answers == before;) {
            if (!ending)
                before = answers;
            const Time time = {++sent, 0};
            MsgIds ids = {};
            cmdUTCTimeAt(ids, time);
            if (ids != MsgIds()) {
                origin = ids.originId;
                seconds[ids.messageId] = time.seconds;
                ++waiting;
            }
            answered.wait_for(lock, std::chrono::milliseconds(10),
                              [&] { return ids != MsgIds() && waiting < 32; });
            while (seconds.size() > 1000) // most were lost with a connection
                seconds.erase(seconds.begin());
        }
        std::printf("%zu answers, %zu connections\n", answers, connections);
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
        const auto command = seconds.find(ids.messageId);
        if (ids.originId != origin || command == seconds.end() || command->second != utc.seconds) {
            std::fprintf(stderr, "a wrong answer, or a second one: #%u:%u\n", ids.originId,
                         ids.messageId);
            std::abort();
        }
        seconds.erase(command);
        ++answers;
        waiting -= waiting != 0;
        answered.notify_one();
    }

private:
    std::mutex mutex;
    std::condition_variable answered;
    std::map<std::uint32_t, std::int64_t> seconds; // of commands, which the answers repeat
    std::uint32_t origin = 0;
    std::int64_t sent = 0;
    std::size_t waiting = 0; // commands of this connection
    std::size_t answers = 0;
    std::size_t connections = 0;
};

void soak(const std::atomic<bool>& ending)
{
    const auto session = chronal::sim::start();
    Sender sender(session->application(), session->component());
    sender.setServiceInterface(&session->service());
    const fabric::host::Attachment attachment(*session, sender);
    session->connect();
    sender.sendUntil(ending);
}

} // namespace

int main(int, char** argv)
{
    std::atomic<bool> ending{false};
    std::vector<std::thread> sessions;
    for (int i = std::atoi(argv[1]); i > 0; --i)
        sessions.emplace_back(soak, std::cref(ending));
    std::cin.get();
    ending = true;
    for (std::thread& session : sessions)
        session.join();
}
