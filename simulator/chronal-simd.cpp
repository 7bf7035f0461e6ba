// The simulated time service as a process of its own.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <date/date.h>

#include "Clock.h"
#include "Manual.h"
#include "Protocol.h"
#include "Rehearsal.h"
#include "SocketServer.h"
#include "TimeService.h"

namespace {

using namespace chronal::sim;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

struct Settings
{
    std::string socket;
    Options service;
    std::optional<Utc> startTime;
    double speed = 1;
    Faults faults;
    bool verbose = false;
};

std::optional<Utc> readStartTime(const std::string& text)
{
    for (const char* const form : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%MZ",
                                   "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        std::tm parts = {};
        const char* const end = strptime(text.c_str(), form, &parts);
        if (!end || *end != '\0')
            continue;
        const date::year_month_day day(date::year(parts.tm_year + 1900),
                                       date::month(static_cast<unsigned>(parts.tm_mon + 1)),
                                       date::day(static_cast<unsigned>(parts.tm_mday)));
        const Utc time = date::sys_days(day) + std::chrono::hours(parts.tm_hour) +
                         std::chrono::minutes(parts.tm_min) + std::chrono::seconds(parts.tm_sec);
        if (day.ok() && time >= Utc() && time < calendarEnd)
            return time;
    }
    return std::nullopt;
}

std::vector<std::string> commandNames()
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < catalogue().count; ++i)
        if (catalogue().types[i].kind == chronal::detail::kindCommand)
            names.emplace_back(catalogue().types[i].name);
    return names;
}

const chronal::tools::ManPageText manPageText = {
    "simulated time service",
    {{"SIGNALS", {"SIGINT and SIGTERM end it; its socket is removed."}},
     {"EXIT STATUS", {"0: ended by a signal. 1: it could not listen or go on. 2: bad usage."}},
     {"EXAMPLES",
      {"  chronal-simd --socket /tmp/chronal.sock --start-time 2026-03-29T00:59:50Z\n"
       "  chronalctl --socket /tmp/chronal.sock status"}},
     {"SEE ALSO", {"chronalctl(1)"}}}};

void describe(CLI::App& app, Settings& settings)
{
    app.description("Simulated time service: serves the clients that connect to its socket.");
    app.set_version_flag("--version", "chronal-simd " CHRONAL_VERSION);
    app.add_option("--socket", settings.socket,
                   "Socket to listen at (default: chronal.sock in $XDG_RUNTIME_DIR)")
        ->type_name("PATH");
    app.add_option("--zone", settings.service.zone, "Time zone at the start (default: UTC)")
        ->type_name("NAME");
    app.add_option_function<std::int64_t>(
           "--period",
           [&](std::int64_t count) {
               settings.service.notificationPeriod = std::chrono::milliseconds(count);
           },
           "Time between two notifications of the current time, such as 250ms or 2s; "
           "not accelerated (default: 1s)")
        ->transform(CLI::AsNumberWithUnit(
                        std::map<std::string, std::int64_t>{{"ms", 1}, {"s", 1000}, {"min", 60000}},
                        CLI::AsNumberWithUnit::UNIT_REQUIRED)
                        .description(""))
        ->type_name("SPAN");
    app.add_option_function<std::string>(
           "--start-time",
           [&](const std::string& text) {
               settings.startTime = readStartTime(text);
               if (!settings.startTime)
                   throw CLI::ValidationError("--start-time",
                                              "'" + text +
                                                  "' is no UTC from 1970 to 9999 in the form "
                                                  "2026-03-29T00:59:50Z");
           },
           "UTC at the start, such as 2026-03-29T00:59:50Z (default: the machine's)")
        ->type_name("TIME");
    app.add_option("--speed", settings.speed,
                   "Lets time run N times faster, 0.001 to 1000000 (default: 1)")
        ->type_name("N")
        ->check([](const std::string& text) {
            // Not by CLI::Range, which "nan" passes.
            double speed = 0;
            const bool valid =
                CLI::detail::lexical_cast(text, speed) && speed >= 0.001 && speed <= 1e6;
            return valid ? std::string() : "'" + text + "' is no number from 0.001 to 1000000";
        });
    app.add_option("--drop-after", settings.faults.dropAfter,
                   "Disconnects each client after N commands")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000000).description(""));
    app.add_option("--refuse", settings.faults.refused,
                   "Refuses a command, such as cmdTimezoneSet, with -13; may be repeated")
        ->type_name("COMMAND")
        ->expected(1)
        ->take_all()
        ->check(CLI::IsMember(commandNames()).description(""));
    app.add_flag("--verbose", settings.verbose, "Writes a line for every message");
    chronal::tools::addManual(app, manPageText);
}

std::string defaultSocket()
{
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    if (!folder || !*folder)
        throw std::runtime_error("XDG_RUNTIME_DIR is not set; name a socket with --socket");
    return std::string(folder) + "/chronal.sock";
}

std::unique_ptr<Clock> ownClock(const Settings& settings)
{
    if (!settings.startTime && settings.speed == 1)
        return nullptr;
    return std::make_unique<ScaledClock>(settings.startTime.value_or(systemClock().utc()),
                                         settings.speed);
}

void writeLine(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

void serve(const Settings& settings)
{
    const std::string socket = settings.socket.empty() ? defaultSocket() : settings.socket;
    const std::unique_ptr<Clock> clock = ownClock(settings);
    TimeService service(settings.service, clock ? *clock : systemClock());
    Rehearsal rehearsal(service, settings.faults, settings.verbose ? writeLine : Rehearsal::Log());
    fabric::host::SocketServer server(rehearsal, socket, {SIGINT, SIGTERM});
    writeLine("listening on " + socket);
    server.run();
}

int fail(const char* what, int status)
{
    std::fprintf(stderr, "chronal-simd: %s\n", what);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // whoever reads the lines may leave
    try {
        Settings settings;
        CLI::App app("", "chronal-simd");
        describe(app, settings);
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& request) { // --help, --version
            return app.exit(request);
        } catch (const CLI::ParseError& error) {
            return fail(error.what(), exitUsage);
        }
        serve(settings);
        return 0;
    } catch (const std::invalid_argument& error) {
        return fail(error.what(), exitUsage);
    } catch (const std::exception& error) {
        return fail(error.what(), exitFailure);
    }
}
