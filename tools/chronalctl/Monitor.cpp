#include "Monitor.h"

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
#include "Failure.h"
#include "Output.h"

namespace chronal::ctl {

namespace {

/// What the dispatch threads share: the output, and the end. Only one who prints ever waits for who
/// reads the output, and with no lock held.
class Printer
{
public:
    /// Ends after `count` notifications, if that is set.
    Printer(bool printsJson, std::optional<std::uint64_t> count, std::function<void()> onEnd)
        : json(printsJson), wanted(count), atEnd(std::move(onEnd))
    {
    }

    void print(const Report& report);
    /// The first failure counts.
    void fail(const Failure& error);
    /// From now on nothing is printed.
    void end();
    /// Throws the failure, if there was one. Ends the process with its status instead when a line
    /// has been under way for longer than a reader needs.
    void check();

private:
    void failLocked(const Failure& error);
    void endLocked();

    const bool json;
    const std::optional<std::uint64_t> wanted;
    const std::function<void()> atEnd;
    std::mutex mutex;
    std::condition_variable lineEnded;
    bool lineUnderWay = false;
    std::uint64_t notifications = 0;
    bool ended = false;
    std::optional<Failure> failure;
};

void Printer::print(const Report& report)
{
    const std::string line = json ? asJson(report) : asLine(report);
    std::unique_lock<std::mutex> lock(mutex);
    lineEnded.wait(lock, [&] { return !lineUnderWay || ended; });
    if (ended)
        return;
    lineUnderWay = true;
    lock.unlock();
    std::optional<Failure> notWritten;
    try {
        ctl::print(line);
    } catch (const Failure& error) {
        notWritten = error;
    }
    lock.lock();
    lineUnderWay = false;
    lineEnded.notify_all();
    const bool counts = std::strcmp(report.kind, "notification") == 0;
    if (notWritten)
        failLocked(*notWritten);
    else if (counts && ++notifications == wanted)
        endLocked();
}

void Printer::fail(const Failure& error)
{
    const std::lock_guard<std::mutex> lock(mutex);
    failLocked(error);
}

void Printer::end()
{
    const std::lock_guard<std::mutex> lock(mutex);
    endLocked();
}

void Printer::failLocked(const Failure& error)
{
    if (ended)
        return;
    failure = error;
    endLocked();
}

void Printer::endLocked()
{
    ended = true;
    lineEnded.notify_all();
    atEnd();
}

void Printer::check()
{
    constexpr auto patience = std::chrono::milliseconds(100);
    std::unique_lock<std::mutex> lock(mutex);
    // Leaving in order would wait for the thread that prints, and so for the reader.
    if (!lineEnded.wait_for(lock, patience, [&] { return !lineUnderWay; })) {
        pollfd room = {STDERR_FILENO, POLLOUT, 0}; // it may have the same reader
        if (failure && poll(&room, 1, 0) > 0)
            complain(*failure);
        std::_Exit(static_cast<int>(failure ? failure->status : ExitStatus::done));
    }
    if (failure)
        throw Failure(*failure);
}

Report lossReport(int reason)
{
    return {"connection",
            "not-connected",
            {{"number", std::int64_t{-reason}}, {"reason", reasonText(reason)}}};
}

/// `report` with the name of the source that it is about.
Report named(Report report, const ReferenceTimeId& source)
{
    report.fields.insert(report.fields.begin(),
                         {"source", chronal::Helpers::getRefTimeStr(source)});
    return report;
}

/// What everybody is notified of, and the state of the connection.
class Listener : public Client
{
public:
    Listener(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
             Printer& sharedPrinter, bool printsBroadcasts)
        : Client(app, comp), printer(sharedPrinter), broadcasts(printsBroadcasts)
    {
    }

    bool wasReached()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return reached;
    }

    /// What kept the service from being reached, if that is known.
    std::optional<int> obstacle()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return lastReason;
    }

private:
    void connected() override
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            reached = true;
        }
        printer.print({"connection", "connected", {}});
    }

    void notConnected(int reason) override
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            lastReason = reason;
        }
        printer.print(lossReport(reason));
    }

    void answered(const fabric::MsgIds&, const Report&) override {}

    void notified(const Report& notification) override
    {
        if (broadcasts)
            printer.print(notification);
    }

    Printer& printer;
    const bool broadcasts;
    std::mutex mutex;
    bool reached = false;
    std::optional<int> lastReason;
};

/// The current time of one source. The notification does not name its source, so each source has a
/// session of its own.
class Subscriber : public Client
{
public:
    Subscriber(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
               Printer& sharedPrinter, const ReferenceTimeId& subscribedSource)
        : Client(app, comp), printer(sharedPrinter), source(subscribedSource)
    {
    }

private:
    void connected() override
    {
        wasConnected = true;
        // Nobody else sends here, and the answer is delivered on this same thread.
        cmdRefTimeSubscribe(subscription, source);
    }

    void notConnected(int reason) override
    {
        // That the service cannot be reached, the listener says for all.
        if (wasConnected)
            printer.print(named(lossReport(reason), source));
        wasConnected = false;
    }

    void answered(const fabric::MsgIds& ids, const Report& answer) override
    {
        if (ids == subscription && answer.result < 0)
            printer.fail(refusal("ref-time subscribe " + chronal::Helpers::getRefTimeStr(source),
                                 answer.result));
    }

    void notified(const Report& notification) override
    {
        if (std::strcmp(notification.name, "current-time") == 0)
            printer.print(named(notification, source));
    }

    Printer& printer;
    const ReferenceTimeId source;
    fabric::MsgIds subscription = {};
    bool wasConnected = false;
};

} // namespace

void monitor(const Options& options, const Watch& watch)
{
    boost::asio::io_context waiting;
    Printer printer(options.json, watch.count, [&] { waiting.stop(); });

    boost::asio::signal_set signals(waiting, SIGINT, SIGTERM);
    signals.async_wait([&](const auto&, int) { printer.end(); });

    Connection<Listener> listener(options.socket, printer, watch.broadcasts);
    std::list<Connection<Subscriber>> subscribers;
    for (const ReferenceTimeId source : watch.sources)
        subscribers.emplace_back(options.socket, printer, source);

    const auto failUnlessReached = [&](std::chrono::microseconds waited) {
        if (!listener->wasReached())
            printer.fail(noService(options.socket, waited, listener->obstacle()));
    };
    boost::asio::steady_timer firstConnection(waiting, options.timeout);
    firstConnection.async_wait([&](const auto&) { failUnlessReached(options.timeout); });

    boost::asio::steady_timer duration(waiting);
    if (watch.duration) {
        duration.expires_after(*watch.duration);
        duration.async_wait([&](const auto&) {
            failUnlessReached(*watch.duration);
            printer.end();
        });
    }

    waiting.run();
    printer.check();
}

} // namespace chronal::ctl
