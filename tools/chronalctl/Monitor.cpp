#include "Actions.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>

#include <poll.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chronal/Helpers.h>

#include "Client.h"
#include "Clock.h"
#include "Failure.h"
#include "Output.h"
#include "WireTime.h"

namespace chronal::ctl {

namespace {

/// How long the reader of the output may take for the last line, in the end.
constexpr auto lingerTimeout = std::chrono::milliseconds(100);

/// The output and the end, shared by the dispatch threads. One thread at a time writes a line, and
/// holds no lock while it waits for the reader.
class Printer
{
public:
    /// Ends after as many notifications as are given, if they are. `onEnd` is called with a lock
    /// held.
    Printer(const Arguments& given, std::function<void()> onEnd)
        : given_(given), onEnd_(std::move(onEnd))
    {
    }

    void print(Report report)
    {
        const std::string now = Helpers::getTimeStr(sim::wireTime(sim::systemClock().utc()));
        const std::string arrived = now.substr(1, 10) + 'T' + now.substr(12, 12) + 'Z';
        if (given_.json)
            report.fields.push_back({"arrived", arrived});
        const std::string line = given_.json         ? asJson(report)
                                 : given_.timestamps ? arrived + "  " + asLine(report)
                                                     : asLine(report);
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return !writing_ || ended_; });
        if (ended_)
            return;
        writing_ = true;
        lock.unlock();
        std::optional<Failure> failure;
        try {
            ctl::print(line);
        } catch (const Failure& error) {
            failure = error;
        }
        lock.lock();
        writing_ = false;
        changed_.notify_all();
        const bool isNotification = std::strcmp(report.kind, "notification") == 0;
        if (failure || (isNotification && ++notifications_ == given_.count))
            endLocked(failure);
    }

    /// Nothing is printed after the first call, whose failure counts.
    void end(const std::optional<Failure>& failure = std::nullopt)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        endLocked(failure);
    }

    /// Waits until no thread is writing; false if that takes too long.
    bool waitForWriter()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, lingerTimeout, [&] { return !writing_; });
    }

    /// To be called after the end.
    const std::optional<Failure>& failure() const { return failure_; }

private:
    void endLocked(const std::optional<Failure>& failure)
    {
        if (ended_)
            return;
        failure_ = failure;
        ended_ = true;
        changed_.notify_all();
        onEnd_();
    }

    const Arguments& given_;
    const std::function<void()> onEnd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool writing_ = false;
    bool ended_ = false;
    std::uint64_t notifications_ = 0;
    std::optional<Failure> failure_;
};

/// Ends the process although a thread is blocked writing to a reader that has stopped. Destroying
/// that thread's session would wait for the reader.
[[noreturn]] void exitWithBlockedWriter(const std::optional<Failure>& failure)
{
    pollfd room = {STDERR_FILENO, POLLOUT, 0}; // may have the same reader
    if (failure && poll(&room, 1, 0) > 0)
        complain(*failure);
    std::_Exit(static_cast<int>(failure ? failure->status : ExitStatus::done));
}

Report lossReport(int reason)
{
    return {"connection",
            "not-connected",
            {{"number", std::int64_t{-reason}}, {"reason", reasonText(reason)}}};
}

/// `report` with the name of its source.
Report named(Report report, const ReferenceTimeId& source)
{
    report.fields.insert(report.fields.begin(), {"source", Helpers::getRefTimeStr(source)});
    return report;
}

/// Prints the state of the connection, and what the service notifies all its clients of.
class Listener : public Client
{
public:
    Listener(fabric::AbstractApplication& app, fabric::AbstractComponent& comp, Printer& printer,
             bool broadcasts)
        : Client(app, comp), printer_(printer), broadcasts_(broadcasts)
    {
    }

    /// The failure of a monitor that has not reached the service in that time, or none.
    std::optional<Failure> failure(const std::string& socket, std::chrono::microseconds waited)
    {
        const int reason = lastReason_;
        if (reached_)
            return std::nullopt;
        return noService(socket, waited, reason < 0 ? std::nullopt : std::optional<int>(reason));
    }

private:
    void connected() override
    {
        reached_ = true;
        printer_.print({"connection", "connected", {}});
    }

    void notConnected(int reason) override
    {
        lastReason_ = reason;
        printer_.print(lossReport(reason));
    }

    void notified(const Report& notification) override
    {
        if (broadcasts_)
            printer_.print(notification);
    }

    Printer& printer_;
    const bool broadcasts_;
    std::atomic<bool> reached_{false};
    std::atomic<int> lastReason_{-1}; ///< negative: none yet
};

/// Prints the current time of one source. The notification does not name its source, so each source
/// has a session of its own.
class Subscriber : public Client
{
public:
    Subscriber(fabric::AbstractApplication& app, fabric::AbstractComponent& comp, Printer& printer,
               const ReferenceTimeId& source)
        : Client(app, comp), printer_(printer), source_(source)
    {
    }

private:
    void connected() override
    {
        wasConnected_ = true;
        // Needs no lock: the answer is delivered on this same thread.
        cmdRefTimeSubscribe(subscription_, source_);
    }

    void notConnected(int reason) override
    {
        // The listener reports a service that cannot be reached.
        if (wasConnected_)
            printer_.print(named(lossReport(reason), source_));
        wasConnected_ = false;
    }

    void answered(const fabric::MsgIds& ids, const Report& answer) override
    {
        if (ids == subscription_ && answer.result < 0)
            printer_.end(
                refusal("ref-time subscribe " + Helpers::getRefTimeStr(source_), answer.result));
    }

    void notified(const Report& notification) override
    {
        if (std::strcmp(notification.name, "current-time") == 0)
            printer_.print(named(notification, source_));
    }

    Printer& printer_;
    const ReferenceTimeId source_;
    fabric::MsgIds subscription_ = {};
    bool wasConnected_ = false;
};

} // namespace

void monitor(const Arguments& given, const std::vector<ReferenceTimeId>& sources, bool broadcasts)
{
    noteSimulation(given);
    boost::asio::io_context loop;
    Printer printer(given, [&] { loop.stop(); });

    boost::asio::signal_set signals(loop, SIGINT, SIGTERM);
    signals.async_wait([&](const auto&, int) { printer.end(); });

    Connection<Listener> listener(given.socket, printer, broadcasts);
    std::list<Connection<Subscriber>> subscribers;
    for (const ReferenceTimeId source : sources)
        subscribers.emplace_back(given.socket, printer, source);

    boost::asio::steady_timer firstConnection(loop, given.timeout);
    firstConnection.async_wait([&](const auto&) {
        if (const auto failure = listener->failure(given.socket, given.timeout))
            printer.end(failure);
    });

    boost::asio::steady_timer duration(loop);
    if (given.duration) {
        duration.expires_after(*given.duration);
        duration.async_wait(
            [&](const auto&) { printer.end(listener->failure(given.socket, *given.duration)); });
    }

    loop.run();
    if (!printer.waitForWriter())
        exitWithBlockedWriter(printer.failure());
    if (printer.failure())
        throw Failure(*printer.failure());
}

} // namespace chronal::ctl
