#ifndef FABRIC_HOST_RATE_LIMITED_LOG_H
#define FABRIC_HOST_RATE_LIMITED_LOG_H

#include <chrono>
#include <cstddef>

#include "Log.h"

namespace fabric::host {

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
