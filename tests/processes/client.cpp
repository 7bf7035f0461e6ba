// An application that tests control: reads one command per line from standard input, "fetch" or
// "burst COUNT LENGTH", and prints a line for each event.
// Usage: test-client [burst COUNT | leave COUNT | soak SESSIONS]
// The first two send a burst from inside the report of the connection; leave then disconnects. The
// sessions of soak send commands until the end of standard input, and then until one is answered.

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
#include <string>
#include <thread>
#include <vector>

#include <chronal-sim/Start.h>
#include <chronal/UserAdapter.h>

namespace {

using fabric::MsgIds;
typedef nubOsalTime_struct Time;

void say(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

class Client : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    std::function<void()> onceConnected = [] {};

    void obey(const std::string& line)
    {
        int count = 0;
        std::size_t length = 0;
        if (std::sscanf(line.c_str(), "burst %d %zu", &count, &length) != 0)
            return sendBurst(count, length);
        const std::lock_guard<std::mutex> lock(mutex);
        cmdRefTimeFetch(asked, chronal::referenceTimeRtc);
        if (asked == MsgIds())
            say("not sent");
    }

    /// Sends commands, each with a text of the given length unless that is 0.
    void sendBurst(int count, std::size_t length)
    {
        int refused = 0;
        for (int i = 0; i < count; ++i) {
            const std::lock_guard<std::mutex> lock(mutex);
            refused += !sendOne(length);
        }
        say("burst sent, " + std::to_string(refused) + " refused");
    }

    void soak(const std::atomic<bool>& ending)
    {
        std::unique_lock<std::mutex> lock(mutex);
        for (std::size_t before = 0; !ending || answers == before;) {
            if (!ending)
                before = answers;
            const bool accepted = sendOne(0);
            changed.wait_for(lock, std::chrono::milliseconds(10),
                             [&] { return accepted && waiting < 32; });
            while (unanswered.size() > 1000) // most were lost with a connection
                unanswered.erase(unanswered.begin());
        }
        say(std::to_string(answers) + " answers, " + std::to_string(connections) + " connections");
    }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++connections;
            waiting = 0;
        }
        say("up");
        onceConnected();
    }

protected:
    void onReplyResult(const MsgIds& ids, int result) override
    {
        answer(ids, "result " + std::to_string(result), 0);
    }
    void onReplyTimeRefInfo(const MsgIds& ids, const Time&, const Time&, const Time&,
                            const chronal::ReferenceTimeId&, bool, int) override
    {
        answer(ids, "answer", 0);
    }
    void onReplyTimeAt(const MsgIds& ids, const Time& utc, const Time&) override
    {
        answer(ids, "time", utc.seconds);
    }

private:
    // The lock is held, so that no answer is handled before the command is on the list.
    bool sendOne(std::size_t length)
    {
        MsgIds ids = {};
        const Time time = {++sent, 0};
        if (length == 0)
            cmdUTCTimeAt(ids, time);
        else
            cmdTimezoneSet(ids, std::string(length, 'x'));
        if (ids == MsgIds())
            return false;
        unanswered[{ids.originId, ids.messageId}] = length == 0 ? time.seconds : 0;
        ++waiting;
        return true;
    }

    void answer(const MsgIds& ids, const std::string& line, std::int64_t seconds)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto command = unanswered.find({ids.originId, ids.messageId});
        if (ids == asked) {
            say(unanswered.empty() ? line : std::to_string(unanswered.size()) + " not answered");
        } else if (command == unanswered.end() || command->second != seconds) {
            say("stray " + line);
        } else {
            unanswered.erase(command);
            ++answers;
            waiting -= waiting != 0;
            changed.notify_one();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    MsgIds asked = {};
    /// Commands of bursts, with the seconds that belong into their answers.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::int64_t> unanswered;
    std::int64_t sent = 0;
    std::size_t waiting = 0; // sent on this connection
    std::size_t answers = 0;
    std::size_t connections = 0;
};

} // namespace

int main(int argc, char** argv)
{
    const std::string way = argc > 1 ? argv[1] : "";
    const int number = argc > 2 ? std::atoi(argv[2]) : 0;
    std::atomic<bool> ending{false};
    const auto converse = [&] {
        const auto session = chronal::sim::start();
        Client client(session->application(), session->component());
        client.setServiceInterface(&session->service());
        client.onceConnected = [&] {
            if (way == "burst" || way == "leave")
                client.sendBurst(number, 0);
            if (way == "leave")
                session->disconnect();
        };
        const fabric::host::Attachment attachment(*session, client);
        session->connect();
        if (way == "soak")
            return client.soak(ending);
        for (std::string line; std::getline(std::cin, line) && line != "end";)
            client.obey(line);
    };
    if (way != "soak") {
        converse();
        return 0;
    }
    std::vector<std::thread> sessions;
    for (int i = 0; i < number; ++i)
        sessions.emplace_back(converse);
    std::cin.get();
    ending = true;
    for (std::thread& session : sessions)
        session.join();
}
