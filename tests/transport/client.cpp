// An application for the tests to steer: reads what to do from standard input, a line for each
// command, and writes a line for whatever happens.
// Usage: transport-client [burst|leave]   Either sends a burst once connected; leave disconnects
// then.

#include <cstdio>
#include <functional>
#include <iostream>
#include <mutex>
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

    /// More than a socket takes, less than the queue does.
    void sendBurst()
    {
        for (int i = 0; i < 1000; ++i)
            obey("fetch");
        say("burst sent");
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
        say(ids == asked ? line : "stray " + line);
    }

    std::mutex mutex;
    MsgIds asked = {};
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
            client.sendBurst();
        if (way == "leave")
            session->disconnect();
    };
    const fabric::host::Attachment attachment(*session, client);
    session->connect();
    for (std::string word; std::getline(std::cin, word) && word != "end";)
        client.obey(word);
}
