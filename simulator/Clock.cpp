#include "Clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>

namespace chronal::sim {

namespace {

// The machine's UTC may be set and advances during suspension, so no wait is longer than this.
constexpr Span longestWait = std::chrono::minutes(1);

// Keeps steady time in range, and is longer than any wait for a change that somebody may see.
constexpr Span century = std::chrono::hours(24 * 36525);

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

SettableClock::SettableClock(Utc start, double speed)
    : machine_(std::chrono::steady_clock::now()), steady_(machine_), utc_(start), speed_(speed)
{
}

Span SettableClock::elapsed() const
{
    return speed_ == 0
               ? Span::zero()
               : std::chrono::duration_cast<Span>(std::chrono::steady_clock::now() - machine_);
}

// Computes in floating point until the result is certain to fit into a Span.
Utc SettableClock::utc() const
{
    const double ahead = std::fmod(inMicroseconds(elapsed()) * speed_,
                                   inMicroseconds(calendarEnd.time_since_epoch()));
    return wrapped(utc_ + Span(static_cast<Span::rep>(ahead)));
}

Clock::TimePoint SettableClock::steady() const { return steady_ + elapsed(); }

Clock::TimePoint SettableClock::steadyAfter(Span wait) const
{
    if (speed_ == 0)
        return steady_ + std::clamp(wait, Span::zero(), century);
    return steady() + Span(static_cast<Span::rep>(std::ceil(std::clamp(
                          inMicroseconds(wait) / speed_, 0.0, inMicroseconds(longestWait)))));
}

Clock::TimePoint SettableClock::later(Span span) const
{
    const Span passed = std::chrono::duration_cast<Span>(steady().time_since_epoch());
    if (span < Span::zero() || span > century - passed)
        throw std::invalid_argument("a span of " + std::to_string(span.count()) +
                                    " us is negative or leads beyond a century");
    return steady() + span;
}

Clock::TimePoint SettableClock::onMachine(TimePoint steady) const
{
    const bool never = speed_ == 0 || steady == TimePoint::max();
    return never ? TimePoint::max() : machine_ + (steady - steady_);
}

void SettableClock::setUtc(Utc utc)
{
    setSpeed(speed_);
    utc_ = wrapped(utc);
}

void SettableClock::setSpeed(double speed)
{
    const Utc now = utc();
    steady_ = steady();
    utc_ = now;
    machine_ = std::chrono::steady_clock::now();
    speed_ = speed;
}

void SettableClock::advanceTo(TimePoint steady)
{
    setSpeed(speed_);
    const TimePoint::duration ahead = std::max(steady - steady_, TimePoint::duration::zero());
    steady_ += ahead;
    utc_ = wrapped(utc_ + std::chrono::duration_cast<Span>(ahead));
}

const Clock& systemClock()
{
    static const SystemClock clock;
    return clock;
}

} // namespace chronal::sim
