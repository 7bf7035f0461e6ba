#ifndef FABRIC_HOST_LOG_H
#define FABRIC_HOST_LOG_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace fabric::host {

enum LogLevel : std::uint32_t
{
    logError = 3000,
    logInfo = 4000,
    logMessage = 5000
};

/// Writes a debug line in the host platform's category, 204, if its level is enabled. Thread-safe;
/// preserves errno.
void log(LogLevel level, const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

/// Logs errors that may recur, at most one line a second, and counts the lines left out in between.
/// Not thread-safe.
class RateLimitedLog
{
public:
    void log(const char* subject, const char* detail) noexcept
    {
        const auto now = std::chrono::steady_clock::now();
        if (now < next_) {
            ++leftOut_;
            return;
        }
        next_ = now + std::chrono::seconds(1);
        host::log(logError, "fabric-host: %s: %s (lines left out before: %zu)\n", subject, detail,
                  leftOut_);
        leftOut_ = 0;
    }

private:
    std::chrono::steady_clock::time_point next_;
    std::size_t leftOut_ = 0;
};

} // namespace fabric::host

#endif
