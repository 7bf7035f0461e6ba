// How long one command and its reply take, and how many of them a second has room for: in memory,
// and over the socket to a service in another process. Beside each, as its floor, the same with
// nothing of ours: two threads that hand each other events, two processes that send each other
// bytes.

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <queue>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <chronal-sim/Start.h>

#include "Client.h"

namespace {

using bench::Application;
using bench::Asker;
using bench::Child;
using bench::Event;
using bench::median;
using bench::quantile;
using bench::Turn;

constexpr std::size_t manyUnderWay = 64;

template <class Record>
std::unique_ptr<Event> newEvent(const chronal::sim::Message<Record>& message)
{
    return bench::newEvent(chronal::sim::compose(message, [](Record&) {}));
}

const std::size_t commandSize = bench::encoded(*newEvent(chronal::sim::cmdRefTimeFetch)).size();
const std::size_t replySize = bench::encoded(*newEvent(chronal::sim::replyTimeRefInfo)).size();

/// Two threads that hand each other events as they are.
class BareThreads
{
public:
    BareThreads()
        : service([this] {
              while (commands.take())
                  replies.put(newEvent(chronal::sim::replyTimeRefInfo));
              replies.put(nullptr);
          }),
          dispatcher([this] {
              while (replies.take())
                  if (turn->returned())
                      send();
          })
    {
    }

    ~BareThreads()
    {
        commands.put(nullptr);
        service.join();
        dispatcher.join();
    }

    BareThreads(const BareThreads&) = delete;
    BareThreads& operator=(const BareThreads&) = delete;

    void make(Turn& newTurn)
    {
        turn = &newTurn;
        for (std::size_t i = 0; i < turn->underWay; ++i)
            send();
        newTurn.awaitLast();
    }

private:
    class Queue
    {
    public:
        void put(std::unique_ptr<Event> event)
        {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                events.push(std::move(event));
            }
            filled.notify_one();
        }

        std::unique_ptr<Event> take()
        {
            std::unique_lock<std::mutex> lock(mutex);
            filled.wait(lock, [this] { return !events.empty(); });
            std::unique_ptr<Event> event = std::move(events.front());
            events.pop();
            return event;
        }

    private:
        std::mutex mutex;
        std::condition_variable filled;
        std::queue<std::unique_ptr<Event>> events;
    };

    void send() { commands.put(newEvent(chronal::sim::cmdRefTimeFetch)); }

    Queue commands;
    Queue replies;
    Turn* turn = nullptr;
    std::thread service;
    std::thread dispatcher;
};

bool receiveBytes(int socket, std::size_t size)
{
    std::array<char, 256> bytes;
    return ::recv(socket, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool sendBytes(int socket, std::size_t size)
{
    const std::array<char, 256> bytes = {};
    return ::send(socket, bytes.data(), size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

/// Two processes that send each other bytes, as many as there are in frames.
class BareBytes
{
public:
    BareBytes()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()) != 0)
            throw std::runtime_error("no socket");
        child = std::make_unique<Child>([this] {
            while (receiveBytes(sockets[1], commandSize) && sendBytes(sockets[1], replySize))
                continue;
        });
    }

    ~BareBytes()
    {
        child.reset();
        ::close(sockets[0]);
        ::close(sockets[1]);
    }

    BareBytes(const BareBytes&) = delete;
    BareBytes& operator=(const BareBytes&) = delete;

    void make(Turn& turn) const
    {
        for (std::size_t i = 0; i < turn.underWay; ++i)
            sendCommand();
        while (!turn.over()) {
            if (!receiveBytes(sockets[0], replySize))
                throw std::runtime_error("the other end is gone");
            if (turn.returned())
                sendCommand();
        }
    }

private:
    void sendCommand() const
    {
        if (!sendBytes(sockets[0], commandSize))
            throw std::runtime_error("the other end is gone");
    }

    std::array<int, 2> sockets;
    std::unique_ptr<Child> child;
};

/// The turns of one of the kinds.
struct Series
{
    const char* name;
    std::size_t floor; ///< which of the series is the floor of this one; its own for a floor
    std::deque<Turn> single;
    std::deque<Turn> many;
};

int cpuCount()
{
    cpu_set_t cpus;
    return sched_getaffinity(0, sizeof(cpus), &cpus) == 0 ? CPU_COUNT(&cpus) : 0;
}

/// Medians of all, best medians of a turn; the part of the floor is a turn's in the same round.
void print(const Series& series, const Series& floor)
{
    std::vector<double> all, medians, ratios, rates;
    for (std::size_t round = 0; round < series.single.size(); ++round) {
        const std::vector<double> each = series.single[round].nanoseconds();
        all.insert(all.end(), each.begin(), each.end());
        medians.push_back(median(each));
        ratios.push_back(medians.back() / median(floor.single[round].nanoseconds()));
        rates.push_back(series.many[round].perSecond());
    }
    std::printf(",\n \"%s\": {\"median_ns\": %.0f, \"best_median_ns\": %.0f, \"p99_ns\": %.0f, "
                "\"of_floor\": %.3f, \"per_second\": %.0f, \"best_per_second\": %.0f}",
                series.name, median(all), quantile(medians, 0), quantile(all, 0.99), median(ratios),
                median(rates), quantile(rates, 1));
}

/// In turns, so that whatever else the machine does hits all alike. The series outlive those who
/// make them, since what comes too late must not come to a turn that is gone.
void measure(const std::string& directory, int rounds)
{
    const std::string socket = directory + "/socket";
    std::deque<Series> all;
    all.push_back({"threads", 0, {}, {}});
    all.push_back({"memory", 0, {}, {}});
    all.push_back({"bytes", 2, {}, {}});
    all.push_back({"socket", 2, {}, {}});
    // Both before there is a second thread in this process.
    BareBytes bytes;
    const Child service([&] { bench::serve(socket); });
    BareThreads threads;
    Application<Asker> near(chronal::sim::start());
    Application<Asker> far(chronal::sim::start({socket}));
    const auto make = [](Application<Asker>& application, Turn& turn) {
        application.adapter.start(turn);
        turn.awaitLast();
    };

    const std::function<void(Turn&)> makers[] = {
        [&](Turn& turn) { threads.make(turn); },
        [&](Turn& turn) { make(near, turn); },
        [&](Turn& turn) { bytes.make(turn); },
        [&](Turn& turn) { make(far, turn); },
    };
    for (int round = 0; round < rounds; ++round)
        for (std::size_t i = 0; i < all.size(); ++i) {
            makers[i](all[i].single.emplace_back(1));
            makers[i](all[i].many.emplace_back(manyUnderWay));
        }

    std::printf("{\"cpus\": %d, \"command_bytes\": %zu, \"reply_bytes\": %zu, \"under_way\": %zu",
                cpuCount(), commandSize, replySize, manyUnderWay);
    for (const Series& series : all)
        print(series, all[series.floor]);
    std::puts("}");
}

} // namespace

int main(int argc, char** argv)
{
    unsetenv("CHRONAL_SOCKET"); // it would take the place of the service in memory
    return bench::run(argc, argv, measure);
}
