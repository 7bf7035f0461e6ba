// An application that tests control: reads one command per line from standard input, and prints a
// line for each event.
// Usage: test-client [burst|leave [COUNT]]   Both send a burst from inside the report of
// the connection; leave then disconnects.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <mutex>
#include <set>
#include <string>

#include <chronal-sim/Start.h>
#include <chronal/Helpers.h>
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

    void obey(const std::string& word)
    {
        int count = 0;
        std::size_t length = 0;
        if (std::sscanf(word.c_str(), "burst %d %zu", &count, &length) != 0)
            return sendBurst(count, length);
        const std::lock_guard<std::mutex> lock(mutex);
        asked = {};
        if (word == "fetch")
            cmdRefTimeFetch(asked, chronal::referenceTimeRtc);
        else if (word == "subscribe")
            cmdRefTimeSubscribe(asked, chronal::referenceTimeRtc);
        else if (word.rfind("zone ", 0) == 0)
            cmdTimezoneSet(asked, word.substr(5));
        else if (word.rfind("set ", 0) == 0)
            cmdRefTimeSet(asked, {std::stoll(word.substr(4)), 0}, {}, chronal::referenceTimeRtc, 0,
                          false);
        else if (word.rfind("announce ", 0) == 0)
            cmdNextTimeDeviationChangeSet(asked, {std::stoll(word.substr(9)), 0}, {3600, 0},
                                          chronal::referenceTimeRtc);
        if (asked == MsgIds())
            say("not sent");
    }

    /// Sends commands, each with a text of the given length unless that is 0.
    void sendBurst(int count, std::size_t length)
    {
        const std::string text(length, 'x');
        for (int i = 0; i < count; ++i) {
            const std::lock_guard<std::mutex> lock(mutex);
            MsgIds ids;
            if (length == 0)
                cmdRefTimeFetch(ids, chronal::referenceTimeRtc);
            else
                cmdTimezoneSet(ids, text);
            if (ids != MsgIds())
                unanswered.insert(ids.messageId);
            else
                ++refused;
        }
        say("burst sent, " + std::to_string(refused) + " refused");
    }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        say("up");
        onceConnected();
    }
    void onServiceConnectionFailed(int reason) override
    {
        UserAdapter::onServiceConnectionFailed(reason);
        say("failed " + std::to_string(reason));
    }
    void onServiceDisconnected(int reason) override
    {
        UserAdapter::onServiceDisconnected(reason);
        say("down " + std::to_string(reason));
    }

protected:
    void onReplyResult(const MsgIds& ids, int result) override
    {
        answer(ids, "result " + std::to_string(result));
    }
    void onReplyTimeRefInfo(const MsgIds& ids, const Time&, const Time&, const Time&,
                            const chronal::ReferenceTimeId&, bool, int) override
    {
        answer(ids, "answer");
    }
    void onNotifyCurrentTime(const MsgIds&, const Time&, const Time&, const Time&, int,
                             int) override
    {
        say("time");
    }
    void onNotifyDeviationChange(const MsgIds&, const Time& deviation, const Time&,
                                 const Time&) override
    {
        say("deviation " + chronal::Helpers::getTimeSpanStr(deviation));
    }

private:
    void answer(const MsgIds& ids, const std::string& line)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (ids != asked) {
            if (unanswered.erase(ids.messageId) == 0)
                say("stray " + line);
        } else if (unanswered.empty()) {
            say(line);
        } else {
            say(std::to_string(unanswered.size()) + " of the burst not answered");
        }
    }

    std::mutex mutex;
    MsgIds asked = {};
    std::set<std::uint32_t> unanswered; // commands of bursts
    int refused = 0;                    // commands of bursts
};

} // namespace

int main(int argc, char** argv)
{
    const auto session = chronal::sim::start();
    Client client(session->application(), session->component());
    client.setServiceInterface(&session->service());
    const std::string way = argc > 1 ? argv[1] : "";
    client.onceConnected = [&] {
        if (!way.empty())
            client.sendBurst(argc > 2 ? std::stoi(argv[2]) : 1000, 0); // 1000 fit into the queue
        if (way == "leave")
            session->disconnect();
    };
    const fabric::host::Attachment attachment(*session, client);
    session->connect();
    for (std::string word; std::getline(std::cin, word) && word != "end";)
        client.obey(word);
}
