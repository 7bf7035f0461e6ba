#include "Failure.h"

#include <cerrno>
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

Failure noAnswerBecause(int reason, const std::string& text, const std::string& advice = "")
{
    return {ExitStatus::noAnswer, -reason, text + because(reason), advice};
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

std::string numberText(int number)
{
    // As an unsigned number, since the most negative one has no positive counterpart.
    const unsigned error = 0U - static_cast<unsigned>(number);
    return std::to_string(number) + " (" + std::strerror(static_cast<int>(error)) + ')';
}

Failure refusal(const std::string& command, int result)
{
    return {ExitStatus::refused, result,
            "the service refused \"" + command + "\": " + numberText(result)};
}

Failure noService(const std::string& socket, std::chrono::microseconds waited, int reason)
{
    const bool nobodyListens = reason == ENOENT || reason == ECONNREFUSED;
    return noAnswerBecause(reason, "no " + serviceOf(socket) + within(waited),
                           nobodyListens ? "To simulate one there: chronal-simd --socket " + socket
                                         : "");
}

Failure noAnswer(const std::string& socket, std::chrono::microseconds waited)
{
    return noAnswerBecause(0, "no answer from the " + serviceOf(socket) + within(waited));
}

Failure notSent(const std::string& socket, int reason)
{
    return noAnswerBecause(reason, "the command could not be sent to the " + serviceOf(socket));
}

Failure lostBeforeAnswer(const std::string& socket, int reason)
{
    return noAnswerBecause(reason, "the " + serviceOf(socket) + " went away before it answered");
}

Failure notPrinted(int reason)
{
    return noAnswerBecause(reason, "cannot write to standard output");
}

} // namespace chronal::ctl
