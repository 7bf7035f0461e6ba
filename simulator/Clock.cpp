#include "Clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>

namespace chronal::sim {

namespace {

// The machine's UTC may be set and advances during suspension, so no wait is longer than this.
constexpr Span longestWait = std::chrono::minutes(1);

Span machineTime()
{
#ifdef SYS_clock_gettime64
    // Where time_t has 32 bits, the C library's clock ends in 2038 and the kernel's does not.
    struct
    {
        std::int64_t seconds;
        std::int64_t nanoseconds;
    } now = {};
    if (::syscall(SYS_clock_gettime64, CLOCK_REALTIME, &now) == 0)
        return std::chrono::seconds(now.seconds) + Span(now.nanoseconds / 1000);
#endif
    return std::chrono::duration_cast<Span>(std::chrono::system_clock::now().time_since_epoch());
}

class SystemClock final : public Clock
{
public:
    Utc utc() const override { return wrapped(Utc(machineTime())); }

    TimePoint steady() const override { return std::chrono::steady_clock::now(); }

    TimePoint steadyAfter(Span wait) const override
    {
        return steady() + std::clamp(wait, Span::zero(), longestWait);
    }
};

double inMicroseconds(Span span) { return static_cast<double>(span.count()); }

} // namespace

ScaledClock::ScaledClock(Utc start, double speed)
    : startUtc_(start), startSteady_(std::chrono::steady_clock::now()), speed_(speed)
{
}

// Computes in floating point until the result is certain to fit into a Span.
Utc ScaledClock::utc() const
{
    const Span elapsed = std::chrono::duration_cast<Span>(steady() - startSteady_);
    const double ahead =
        std::fmod(inMicroseconds(elapsed) * speed_, inMicroseconds(calendarEnd.time_since_epoch()));
    return wrapped(startUtc_ + Span(static_cast<Span::rep>(ahead)));
}

Clock::TimePoint ScaledClock::steady() const { return std::chrono::steady_clock::now(); }

Clock::TimePoint ScaledClock::steadyAfter(Span wait) const
{
    return steady() + Span(static_cast<Span::rep>(std::ceil(std::clamp(
                          inMicroseconds(wait) / speed_, 0.0, inMicroseconds(longestWait)))));
}

const Clock& systemClock()
{
    static const SystemClock clock;
    return clock;
}

} // namespace chronal::sim
