#ifndef BENCH_CLIENT_H
#define BENCH_CLIENT_H

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <chronal/UserAdapter.h>
#include <fabric-host/Frame.h>
#include <fabric-host/ServiceHost.h>
#include <fabric-host/Session.h>

#include "TimeService.h"
#include <chronal-sim/Messages.h>

/// Clients of a time service, as the measurements of whole round trips need them.
namespace bench {

typedef fabric::SerializableMessageEvent Event;
typedef std::chrono::steady_clock Stopwatch;

constexpr std::size_t tripsPerTurn = 1000;
constexpr std::size_t unmeasured = 50; // at the start of each turn

inline double quantile(std::vector<double> values, double part)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

inline double median(const std::vector<double>& values) { return quantile(values, 0.5); }

inline void await(std::promise<void>& event, const char* missing)
{
    if (event.get_future().wait_for(std::chrono::seconds(60)) != std::future_status::ready)
        throw std::runtime_error(missing);
}

/// The main function of a measurement, which gets a directory for its socket and how often to
/// measure.
inline int run(int argc, char** argv, void (*measure)(const std::string& directory, int count))
{
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count <= 0) {
        std::fprintf(stderr, "usage: %s DIRECTORY COUNT\n", argv[0]);
        return 2;
    }
    try {
        measure(argv[1], count);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}

/// A row of round trips, of which several may be under way at a time: who makes them sends so many,
/// and another for each that has returned, as long as more are wanted.
class Turn
{
public:
    explicit Turn(std::size_t atATime) : underWay(atATime) { stamps_.reserve(wanted); }

    /// One has returned: whether another is to be sent. On one thread at a time.
    bool returned()
    {
        stamps_.push_back(Stopwatch::now());
        const bool another = stamps_.size() + underWay <= wanted;
        if (over())
            last_.set_value();
        return another;
    }

    bool over() const { return stamps_.size() == wanted; }

    void awaitLast() { await(last_, "a reply is missing"); }

    /// Between one return and the next.
    std::vector<double> nanoseconds() const
    {
        typedef std::chrono::duration<double, std::nano> Nanoseconds;
        std::vector<double> result;
        for (std::size_t i = unmeasured; i < wanted; ++i)
            result.push_back(Nanoseconds(stamps_[i] - stamps_[i - 1]).count());
        return result;
    }

    double perSecond() const
    {
        const std::chrono::duration<double> whole = stamps_.back() - stamps_[unmeasured - 1];
        return static_cast<double>(tripsPerTurn) / whole.count();
    }

    const std::size_t underWay;

private:
    static constexpr std::size_t wanted = unmeasured + tripsPerTurn;

    std::vector<Stopwatch::time_point> stamps_;
    std::promise<void> last_;
};

/// The other end of something, in a process of its own.
class Child
{
public:
    explicit Child(const std::function<void()>& run) : pid_(::fork())
    {
        if (pid_ < 0)
            throw std::runtime_error("cannot start a process");
        if (pid_ == 0) {
            run();
            std::_Exit(0);
        }
    }
    ~Child()
    {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

private:
    const pid_t pid_;
};

inline std::unique_ptr<Event> newEvent(const chronal::sim::Content& content)
{
    return chronal::sim::newEvent(content, {0, 0});
}

inline fabric::host::FrameBytes encoded(const Event& event)
{
    fabric::host::FrameBytes frame;
    std::string reason;
    fabric::host::encodeFrame(event, chronal::sim::catalogue(), frame, reason);
    return frame;
}

/// Until SIGTERM.
inline void serve(const std::string& socket)
{
    chronal::sim::TimeService service;
    fabric::host::ServiceHost host(service);
    host.listen(socket);
    host.run();
}

class Client : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    void awaitConnection() { await(connected_, "no connection"); }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        connected_.set_value();
    }

private:
    std::promise<void> connected_;
};

/// The next command is sent from within the callback of a reply.
class Asker : public Client
{
public:
    using Client::Client;

    void start(Turn& turn)
    {
        turn_ = &turn;
        for (std::size_t i = 0; i < turn.underWay; ++i)
            ask();
    }

protected:
    void onReplyTimeRefInfo(const fabric::MsgIds&, const nubOsalTime_struct&,
                            const nubOsalTime_struct&, const nubOsalTime_struct&,
                            const chronal::ReferenceTimeId&, bool, int) override
    {
        if (turn_->returned())
            ask();
    }

private:
    void ask()
    {
        fabric::MsgIds ids;
        cmdRefTimeFetch(ids, chronal::referenceTimeRtc);
    }

    Turn* turn_ = nullptr;
};

/// A connected adapter, of which a session may have several.
template <class Adapter>
class Application
{
public:
    explicit Application(std::shared_ptr<fabric::host::Session> session)
        : session_(std::move(session)),
          adapter(session_->application(), session_->component()),
          attachment_((adapter.setServiceInterface(&session_->service()), *session_), adapter)
    {
        session_->connect();
        adapter.awaitConnection();
    }

private:
    const std::shared_ptr<fabric::host::Session> session_;

public:
    Adapter adapter;

private:
    const fabric::host::Attachment attachment_;
};

} // namespace bench

#endif
