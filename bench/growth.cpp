// The cost of one message while the number of something grows. Prints what grows, how many there
// are, how many messages were measured (with texts: bytes), and the nanoseconds that all processors
// worked for them. Under callgrind, a dump that is named by the first three of these counts the
// instructions.

#include <atomic>
#include <cstdio>
#include <ctime>
#include <deque>
#include <thread>

#include <fabric-host/Link.h>
#include <valgrind/callgrind.h>

#include "Client.h"

namespace {

using fabric::MsgIds;
using fabric::host::Session;

std::atomic<std::size_t> heard{0};

/// Counts whatever it hears, and does something about it.
class Counter : public bench::Client
{
public:
    using Client::Client;

    std::function<void()> next = [] {};

protected:
    void onReplyResult(const MsgIds&, int) override { count(); }
    void onReplyTimeRefInfo(const MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                            const nubOsalTime_struct&, const chronal::ReferenceTimeId&, bool,
                            int) override
    {
        count();
    }
    void onNotifyCurrentTime(const MsgIds&, const nubOsalTime_struct&, const nubOsalTime_struct&,
                             const nubOsalTime_struct&, int, int) override
    {
        count();
    }

private:
    void count()
    {
        ++heard;
        next();
    }
};

void awaitHeard(std::size_t count)
{
    const auto end = bench::Stopwatch::now() + std::chrono::minutes(5);
    while (heard < count) {
        if (bench::Stopwatch::now() > end)
            throw std::runtime_error("messages are missing");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::size_t frameSize(const std::string& text)
{
    using namespace chronal::sim;
    const auto fill = [&](auto& record) { copyText(record.text, text); };
    return bench::encoded(*bench::newEvent(compose(cmdDateTimeNtpSet, fill))).size();
}

double processorTime()
{
    timespec time = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

/// So much of what is named by `kind`: `count`, and where texts grow, bytes of the messages.
void measure(const std::string& kind, std::size_t count, const std::string& socket,
             std::size_t messages)
{
    const bool isText = kind == "text";
    const bool isSession = kind != "adapters"; // each a client of the service
    const bool overSocket = kind == "clients" || isText;
    const std::string text(isText ? count : 0, 'x');
    const std::size_t clients = isText ? 1 : count;
    chronal::sim::Options options;
    // As many notifications a second, however many subscribers share them.
    options.notificationPeriod = std::chrono::milliseconds(1 + clients / 8);
    chronal::sim::TimeService service(options);
    const auto host = std::make_shared<fabric::host::ServiceHost>(service);
    if (overSocket)
        host->listen(socket);
    host->start();

    std::shared_ptr<Session> session;
    std::deque<bench::Application<Counter>> applications;
    while (applications.size() < clients) {
        const bool first = applications.empty();
        if (first || isSession)
            session = std::make_shared<Session>(overSocket ? fabric::host::newSocketLink(socket)
                                                           : newMemoryLink(host),
                                                chronal::sim::catalogue());
        Counter& counter = applications.emplace_back(session).adapter;
        MsgIds ids;
        if (kind == "subscribers")
            counter.cmdRefTimeSubscribe(ids, chronal::referenceTimeRtc);
        else if (isText)
            counter.next = [&] {
                MsgIds sent;
                counter.cmdDateTimeNtpSet(sent, text, true);
            };
        else if (first || isSession)
            counter.next = [&] {
                MsgIds sent;
                counter.cmdRefTimeFetch(sent, chronal::referenceTimeRtc);
            };
    }
    for (auto& application : applications)
        application.adapter.next();

    awaitHeard(heard + 4 * clients + messages / 10); // until all have what they need
    const std::size_t heardBefore = heard;
    const double before = processorTime();
    CALLGRIND_ZERO_STATS;
    awaitHeard(heardBefore + messages);
    const std::size_t units = (heard - heardBefore) * (isText ? frameSize(text) : 1);
    const std::string name = kind + ' ' + std::to_string(count) + ' ' + std::to_string(units);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    std::printf("%s %.0f\n", name.c_str(), processorTime() - before);
}

void measureAll(const std::string& directory, int messages)
{
    const std::pair<const char*, std::vector<std::size_t>> kinds[] = {
        {"clients", {1, 4, 16, 64, 256}},       {"subscribers", {1, 4, 16, 64, 256}},
        {"adapters", {1, 4, 16, 50, 100}},      {"sessions", {1, 4, 16, 32, 64}},
        {"text", {0, 100, 1000, 10000, 60000}},
    };
    for (const auto& [kind, counts] : kinds)
        for (const std::size_t count : counts)
            measure(kind, count, directory + "/socket", static_cast<std::size_t>(messages));
}

} // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, measureAll); }
