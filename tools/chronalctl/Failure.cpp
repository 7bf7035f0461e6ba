#include "Failure.h"

#include <cstdint>
#include <cstring>

#include <chronal/Helpers.h>

namespace chronal::ctl {

namespace {

std::string serviceOf(const std::string& socket)
{
    return "service " + (socket.empty() ? "in this process" : "at " + socket);
}

std::string because(int reason)
{
    return reason == 0 ? "" : std::string(": ") + std::strerror(reason);
}

std::string within(std::chrono::microseconds waited)
{
    const auto whole = std::chrono::floor<std::chrono::seconds>(waited);
    nubOsalTime_struct span = {};
    span.seconds = whole.count();
    span.microseconds = static_cast<std::int32_t>((waited - whole).count());
    return " within " + chronal::Helpers::getTimeSpanStr(span).substr(1); // without its sign
}

} // namespace

Failure refusal(int result)
{
    // As an unsigned number, since the most negative one has no positive counterpart.
    const unsigned error = 0U - static_cast<unsigned>(result);
    return {ExitStatus::refused, "refused by the service: " + std::to_string(result) + " (" +
                                     std::strerror(static_cast<int>(error)) + ")"};
}

Failure noService(const std::string& socket, std::chrono::microseconds waited, int reason)
{
    return {ExitStatus::noAnswer, "no " + serviceOf(socket) + within(waited) + because(reason)};
}

Failure noAnswer(const std::string& socket, std::chrono::microseconds waited)
{
    return {ExitStatus::noAnswer, "no answer from the " + serviceOf(socket) + within(waited)};
}

Failure notSent(const std::string& socket, int reason)
{
    return {ExitStatus::noAnswer,
            "the command could not be sent to the " + serviceOf(socket) + because(reason)};
}

Failure lostBeforeAnswer(const std::string& socket, int reason)
{
    return {ExitStatus::noAnswer,
            "the " + serviceOf(socket) + " went away before it answered" + because(reason)};
}

} // namespace chronal::ctl
