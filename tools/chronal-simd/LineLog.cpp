#include "LineLog.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace chronal::sim {

namespace {

constexpr int farewell = 100; // milliseconds

/// There is memory for such a line in any case.
constexpr std::size_t usualLine = 512;

/// A terminal says that it has room when it has some, and then waits for more; so it is opened once
/// more, as one that does not wait.
int withoutWaiting(int descriptor)
{
    if (isatty(descriptor) == 0)
        return descriptor;
    const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    const int opened = open(name.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    return opened >= 0 ? opened : descriptor;
}

} // namespace

LineLog::LineLog(int descriptor, Complain failed)
    : output(withoutWaiting(descriptor)), complain(std::move(failed))
{
    unwritten.reserve(usualLine);
}

void LineLog::write(std::string_view line) noexcept
{
    if (!flush(0)) {
        ++leftOut;
        return;
    }
    try {
        append(line);
    } catch (const std::bad_alloc&) {
        unwritten.clear();
        ++leftOut;
        return;
    }
    underWay = std::exchange(leftOut, 0) + 1;
    flush(0);
}

void LineLog::append(std::string_view line)
{
    if (insideLine)
        unwritten = "\n";
    if (leftOut != 0)
        unwritten.append("lines left out: ").append(std::to_string(leftOut)).append("\n");
    unwritten += line;
    if (line.empty() || line.back() != '\n')
        unwritten += '\n';
}

std::size_t LineLog::finish(std::string_view line) noexcept
{
    flush(farewell);
    write(line);
    flush(farewell);
    return underWay + leftOut;
}

/// False when there is no room for the rest, not even after `wait` milliseconds.
bool LineLog::flush(int wait)
{
    while (!unwritten.empty()) {
        pollfd room = {output, POLLOUT, 0};
        if (poll(&room, 1, wait) == 0)
            return false;
        // A pipe that has room at all has room for so much.
        const std::size_t size = std::min<std::size_t>(unwritten.size(), PIPE_BUF);
        const ssize_t written = ::write(output, unwritten.data(), size);
        if (written == 0 || (written < 0 && (errno == EINTR || errno == EAGAIN)))
            return false;
        if (written < 0) {
            lose(errno);
            return true;
        }
        insideLine = unwritten[static_cast<std::size_t>(written) - 1] != '\n';
        unwritten.erase(0, static_cast<std::size_t>(written));
    }
    underWay = 0;
    return true;
}

void LineLog::lose(int error)
{
    unwritten.clear();
    const std::size_t lost = std::exchange(underWay, 0);
    // Nobody is there, who has left or has never been.
    if (error == EPIPE || error == EBADF)
        return;
    leftOut += lost;
    try {
        if (!std::exchange(complained, true))
            complain(std::strerror(error));
    } catch (const std::bad_alloc&) {
        complained = false; // at the next line
    }
}

} // namespace chronal::sim
