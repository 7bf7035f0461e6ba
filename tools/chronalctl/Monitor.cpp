#include "Monitor.h"

#include <csignal>
#include <cstring>
#include <exception>
#include <functional>
#include <list>
#include <mutex>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chronal/Helpers.h>

#include "Client.h"
#include "Failure.h"
#include "Output.h"

namespace chronal::ctl {

namespace {

/// What the dispatch threads share: the output, and the end.
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
    void fail(const std::exception_ptr& error);
    /// From now on nothing is printed.
    void end();
    /// Throws the failure, if there was one.
    void check();

private:
    void endLocked();

    const bool json;
    const std::optional<std::uint64_t> wanted;
    const std::function<void()> atEnd;
    std::mutex mutex;
    std::uint64_t notifications = 0;
    bool ended = false;
    std::exception_ptr failure;
};

void Printer::print(const Report& report)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (ended)
        return;
    try {
        ctl::print(json ? asJson(report) : asLine(report));
    } catch (const Failure&) {
        failure = std::current_exception();
        endLocked();
    }
    const bool counts = std::strcmp(report.kind, "notification") == 0;
    if (counts && ++notifications == wanted)
        endLocked();
}

void Printer::fail(const std::exception_ptr& error)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (ended)
        return;
    failure = error;
    endLocked();
}

void Printer::end()
{
    const std::lock_guard<std::mutex> lock(mutex);
    endLocked();
}

void Printer::endLocked()
{
    ended = true;
    atEnd();
}

void Printer::check()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (failure)
        std::rethrow_exception(failure);
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

    /// What kept the service from being reached, or nothing once it was.
    std::optional<int> obstacle()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return reached ? std::nullopt : std::optional<int>(lastReason);
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
        printer.print({"connection",
                       "not-connected",
                       {{"reason", std::string(reason ? std::strerror(reason) : "closed")}}});
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
    int lastReason = 0;
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
        // Nobody else sends here, and the answer is delivered on this same thread.
        cmdRefTimeSubscribe(subscription, source);
    }

    void notConnected(int) override {}

    void answered(const fabric::MsgIds& ids, const Report& answer) override
    {
        if (ids == subscription && answer.result < 0)
            printer.fail(std::make_exception_ptr(refusal(
                "ref-time subscribe " + chronal::Helpers::getRefTimeStr(source), answer.result)));
    }

    void notified(const Report& notification) override
    {
        if (std::strcmp(notification.name, "current-time") != 0)
            return;
        Report named = notification;
        named.fields.insert(named.fields.begin(),
                            {"source", chronal::Helpers::getRefTimeStr(source)});
        printer.print(named);
    }

    Printer& printer;
    const ReferenceTimeId source;
    fabric::MsgIds subscription = {};
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
        if (const std::optional<int> reason = listener->obstacle())
            printer.fail(std::make_exception_ptr(noService(options.socket, waited, *reason)));
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
