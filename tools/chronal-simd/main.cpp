// The simulated time service as a process of its own.

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fabric-host/DebugSink.h>
#include <fabric-host/Printable.h>
#include <fabric-host/ServiceHost.h>

#include "Clock.h"
#include "Control.h"
#include "FaultInjector.h"
#include "LineLog.h"
#include "ParsedOption.h"
#include "SocketText.h"
#include "StandardStreams.h"
#include "TimeService.h"
#include "TimeText.h"
#include <chronal-sim/Messages.h>

namespace {

using namespace chronal::sim;
using chronal::tools::addParsed;
using chronal::tools::join;
using fabric::host::printable;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

struct Settings
{
    std::string socket;
    Options service;
    std::optional<Utc> startTime;
    double speed = 1;
    std::size_t dropAfter = 0;
    std::set<std::string> refused;
    bool control = false;
    bool verbose = false;
};

// Parsers of options. They throw std::invalid_argument with a text that says what is expected.

[[noreturn]] void refuse(const std::string& text, const std::string& reason)
{
    throw std::invalid_argument("'" + text + "' is not " + reason);
}

std::string parseZone(const std::string& text)
{
    if (!findZone(text))
        refuse(text, "a time zone of this system; expected for example Europe/Berlin");
    return text;
}

std::chrono::milliseconds parsePeriod(const std::string& text)
{
    using std::chrono::milliseconds;
    const std::chrono::microseconds period = chronal::tools::parseDuration(text);
    const auto whole = std::chrono::duration_cast<milliseconds>(period);
    if (whole != period || whole < milliseconds(1) || whole > std::chrono::hours(24))
        refuse(text, "a period; expected whole milliseconds, from 1ms to a day");
    return whole;
}

double parseSpeed(const std::string& text)
{
    double speed = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, speed);
    // Slower, time seems to stand still; faster, a day takes less than a tenth of a second.
    const bool inRange = speed == 0 || (speed >= 0.001 && speed <= 1e6);
    if (error != std::errc() || rest != end || !inRange)
        refuse(text, "0 or a number from 0.001 to 1000000");
    return speed;
}

/// Stores what `parse` makes of an option's text.
template <class Value, class Parse>
auto into(Value& value, Parse parse)
{
    return [&value, parse](const std::string& text) { value = parse(text); };
}

void describe(CLI::App& app, Settings& settings)
{
    app.description("Simulates the time service for the clients that connect to its socket.");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "chronal-simd " CHRONAL_VERSION,
                         "Print the version and exit");
    addParsed(
        app, "--socket", "PATH",
        "Listen at this socket, or at chronal.sock in this directory (default: $XDG_RUNTIME_DIR)",
        into(settings.socket, chronal::tools::parseSocket));
    addParsed(app, "--zone", "ZONE", "Start in this time zone (default: UTC)",
              into(settings.service.zone, parseZone));
    addParsed(app, "--period", "DURATION",
              "Notify subscribers this often, such as every 250ms, 2s or 1min, whatever the speed "
              "(default: 1s)",
              into(settings.service.notificationPeriod, parsePeriod));
    addParsed(app, "--start-time", "TIME",
              "Start at this UTC, such as 2026-03-29T00:59:50Z or any other form in chronalctl(1) "
              "(default: the machine's time)",
              into(settings.startTime, parseTime));
    addParsed(app, "--speed", "N",
              "Run N times faster, from 0.001 to 1000000, or stand still with 0 (default: 1)",
              into(settings.speed, parseSpeed));
    addParsed(app, "--drop-after", "N", "Disconnect each client after N commands",
              into(settings.dropAfter, chronal::tools::parseWholeNumber<std::size_t, 1>));
    addParsed(app, "--refuse", "COMMAND",
              "Refuse this command with -13; may be repeated:\n{" + join(commandNames(), ",\n") +
                  '}',
              [&settings](const std::string& text) { settings.refused.insert(parseCommand(text)); })
        ->take_all();
    app.add_flag("--control", settings.control,
                 "Obey the lines of standard input: " + controlWords() +
                     ". Each is answered with one line, \"ok\" or \"error: ...\"");
    app.add_flag("--verbose", settings.verbose,
                 "Print a line for every message, and at the end the numbers of refused frames and "
                 "dropped clients. Lines for which a slow reader leaves no room are left out and "
                 "counted");
}

/// Standard error. If it cannot be written, there is nowhere left to complain.
LineLog& troubleLog()
{
    static LineLog lines(STDERR_FILENO, [](const std::string&) {});
    return lines;
}

void complain(const std::string& what) { troubleLog().write("chronal-simd: " + printable(what)); }

/// Debug lines about trouble are on unless NUB_DEBUG switches them off.
void showTrouble()
{
    const char* const others = std::getenv("NUB_DEBUG");
    if (setenv("NUB_DEBUG", (std::string("*:3000,") + (others ? others : "")).c_str(), 1) != 0)
        throw std::bad_alloc();
    troubleLog(); // so that it is there when there is no memory
    fabric::host::setDebugSink(
        [](std::uint32_t, const std::string& line) { troubleLog().write(line); });
}

/// Stops a service at SIGINT and SIGTERM. Made before any other thread, which all leave the signals
/// to this one: it needs no memory for them.
class SignalThread
{
public:
    explicit SignalThread(fabric::host::ServiceHost& host)
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this, &host] {
            int number = 0;
            while (sigwait(&signals_, &number) == 0 && !ended_)
                host.stop();
        });
    }
    ~SignalThread()
    {
        ended_ = true;
        pthread_kill(thread_.native_handle(), SIGINT); // which sigwait() takes
        thread_.join();
    }

    SignalThread(const SignalThread&) = delete;
    SignalThread& operator=(const SignalThread&) = delete;

private:
    sigset_t signals_;
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

void serve(const Settings& settings)
{
    const std::string socket =
        settings.socket.empty() ? chronal::tools::defaultSocket() : settings.socket;
    if (socket.empty())
        throw std::runtime_error("XDG_RUNTIME_DIR is not set; name a socket with --socket");
    SettableClock ownClock(settings.startTime.value_or(systemClock().utc()), settings.speed);
    const bool isOwn = settings.startTime || settings.speed != 1 || settings.control;
    const Clock& clock = isOwn ? ownClock : systemClock();
    TimeService service(settings.service, clock);
    LineLog log(STDOUT_FILENO, [](const std::string& why) { complain("standard output: " + why); });
    const auto writeLine = [&](const std::string& line) { log.write(line); };
    FaultInjector injector(service, clock,
                           settings.verbose ? FaultInjector::Log(writeLine) : FaultInjector::Log(),
                           settings.dropAfter);
    for (const std::string& command : settings.refused)
        injector.setFault(command, Fault{false, refusal(-EACCES), {}});
    fabric::host::ServiceHost host(injector);
    const SignalThread signals(host);
    host.listen(socket);
    writeLine("listening on " + printable(socket));
    std::optional<Control> control;
    if (settings.control)
        control.emplace(host, injector, ownClock, writeLine);
    host.run();
    control.reset();
    const fabric::host::ServiceCounters counters = host.counters();
    if (!settings.verbose)
        return;
    char line[100];
    std::snprintf(line, sizeof(line), "ended; frames refused: %ju, clients dropped: %ju\n",
                  std::uintmax_t{counters.framesRefused}, std::uintmax_t{counters.clientsDropped});
    if (const std::size_t lost = log.finish(line)) {
        std::snprintf(line, sizeof(line), "chronal-simd: lines left out at the end: %zu\n", lost);
        troubleLog().write(line);
    }
}

int fail(const char* what, int status, const char* advice = "") noexcept
{
    try {
        std::fprintf(stderr, "chronal-simd: %s\n%s", printable(what).c_str(), advice);
    } catch (const std::bad_alloc&) {
        std::fputs("chronal-simd: out of memory\n", stderr);
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    chronal::tools::holdStandardStreams();
    std::signal(SIGPIPE, SIG_IGN); // the reader of the lines may go away
    try {
        Settings settings;
        CLI::App app("", "chronal-simd");
        describe(app, settings);
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& request) { // --help, --version
            std::ostringstream text;
            app.exit(request, text);
            std::cout << chronal::tools::fitted(text.str());
            return std::cout.flush() ? 0 : fail("cannot write to standard output", exitFailure);
        } catch (const CLI::ParseError& error) {
            return fail(error.what(), exitUsage, "See: chronal-simd --help\n");
        }
        showTrouble();
        serve(settings);
        return 0;
    } catch (const std::exception& error) {
        return fail(error.what(), exitFailure);
    }
}
