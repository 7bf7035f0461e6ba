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

/// Milliseconds for which the last lines wait for room: ample for a reader that is reading, and not
/// noticed by a user who stops the service.
constexpr int lingerTimeout = 100;

/// Longer than most lines: those need no memory once the service runs.
constexpr std::size_t usualLine = 512;

/// A terminal reports room as soon as it has a little, and a longer write then blocks. The reopened
/// one does not block.
int nonBlocking(int descriptor)
{
    if (isatty(descriptor) == 0)
        return descriptor;
    const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    const int opened = open(name.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    return opened >= 0 ? opened : descriptor;
}

} // namespace

LineLog::LineLog(int descriptor, Complain complain)
    : output_(nonBlocking(descriptor)), complain_(std::move(complain))
{
    pending_.reserve(usualLine);
}

void LineLog::write(std::string_view line) noexcept
{
    ++last_;
    if (!flush(0))
        return;
    try {
        append(line);
        current_ = last_;
    } catch (const std::bad_alloc&) {
        pending_.clear();
        return;
    }
    flush(0);
}

void LineLog::append(std::string_view line)
{
    const std::size_t leftOut = last_ - settled_ - 1;
    if (insideLine_)
        pending_ = "\n";
    if (leftOut != 0)
        pending_.append("lines left out: ").append(std::to_string(leftOut)).append("\n");
    pending_ += line;
    if (line.empty() || line.back() != '\n')
        pending_ += '\n';
}

std::size_t LineLog::finish(std::string_view line) noexcept
{
    flush(lingerTimeout);
    write(line);
    flush(lingerTimeout);
    return last_ - settled_;
}

/// Waits up to `timeout` milliseconds for room. Returns whether the next line can be written.
bool LineLog::flush(int timeout)
{
    while (!pending_.empty()) {
        pollfd room = {output_, POLLOUT, 0};
        if (poll(&room, 1, timeout) <= 0)
            return false;
        // A pipe that reports room has room for PIPE_BUF bytes.
        const std::size_t size = std::min<std::size_t>(pending_.size(), PIPE_BUF);
        const ssize_t written = ::write(output_, pending_.data(), size);
        if (written == 0 || (written < 0 && (errno == EINTR || errno == EAGAIN)))
            return false;
        if (written < 0) {
            drop(errno);
            return true;
        }
        insideLine_ = pending_[static_cast<std::size_t>(written) - 1] != '\n';
        pending_.erase(0, static_cast<std::size_t>(written));
        if (pending_.empty())
            settled_ = current_;
    }
    return true;
}

/// Gives up the current line after a write error.
void LineLog::drop(int error)
{
    pending_.clear();
    if (error == EPIPE || error == EBADF) {
        settled_ = current_; // there is no reader to tell
        return;
    }
    try {
        if (!std::exchange(complained_, true))
            complain_(std::strerror(error));
    } catch (const std::bad_alloc&) {
        complained_ = false; // complains about the next line
    }
}

} // namespace chronal::sim
