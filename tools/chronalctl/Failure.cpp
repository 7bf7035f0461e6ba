#include "Failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <chronal/Helpers.h>
#include <fabric-host/Printable.h>

#include "WireTime.h"

namespace chronal::ctl {

using fabric::host::printable;

namespace {

/// Advice on a socket at which no service listens.
std::string howToListen(const std::string& socket)
{
    const std::filesystem::path path = socket;
    const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
    std::error_code ignored;
    const std::filesystem::file_status there = status(path, ignored);
    if (exists(there) && !is_socket(there))
        return socket + " is not a socket";
    if (!is_directory(directory, ignored))
        return "There is no directory " + directory.string();
    const std::string leftBehind =
        exists(there) ? "A service that was killed has left this socket behind. " : "";
    return leftBehind + "To simulate one there: chronal-simd --socket " + socket;
}

} // namespace

std::string numberText(int number)
{
    // Unsigned, because the most negative number has no positive counterpart.
    const unsigned error = 0U - static_cast<unsigned>(number);
    return std::to_string(number) + " (" + std::strerror(static_cast<int>(error)) + ')';
}

void remark(const std::string& text)
{
    std::fprintf(stderr, "chronalctl: %s\n", printable(text).c_str());
}

void complain(const Failure& failure)
{
    remark(failure.what());
    if (!failure.advice.empty())
        std::fprintf(stderr, "%s\n", printable(failure.advice).c_str());
}

Failure refusal(const std::string& command, int result)
{
    return {ExitStatus::refused, result,
            "the service refused \"" + command + "\": " + numberText(result)};
}

Failure noAnswer(const std::string& text, std::optional<int> reason, const std::string& advice)
{
    if (!reason)
        return {ExitStatus::noAnswer, 0, text};
    return {ExitStatus::noAnswer, -*reason, text + ": " + reasonText(*reason), advice};
}

Failure noService(const std::string& socket, std::chrono::microseconds waited,
                  std::optional<int> reason)
{
    const int error = reason.value_or(0);
    const bool nobodyListens = error == ENOENT || error == ENOTDIR || error == ECONNREFUSED;
    return noAnswer("no " + serviceAt(socket) + within(waited), reason,
                    nobodyListens ? howToListen(socket) : "");
}

std::string serviceAt(const std::string& socket)
{
    return "service " + (socket.empty() ? "in this process" : "at " + socket);
}

std::string within(std::chrono::microseconds waited)
{
    // Without its sign.
    return " within " + chronal::Helpers::getTimeSpanStr(sim::wireSpan(waited)).substr(1);
}

std::string reasonText(int reason) { return reason == 0 ? "closed" : std::strerror(reason); }

Failure notPrinted(int reason) { return noAnswer("cannot write to standard output", reason); }

} // namespace chronal::ctl
