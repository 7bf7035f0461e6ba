#include "Clock.h"

#include <algorithm>
#include <cmath>

namespace chronal::sim {

namespace {

// A moment may come sooner than it seems now, so nobody waits for it longer without looking again.
constexpr Span longestWait = std::chrono::minutes(1);

class SystemClock final : public Clock
{
public:
    Utc utc() const override
    {
        return std::chrono::time_point_cast<Span>(std::chrono::system_clock::now());
    }

    TimePoint steady() const override { return std::chrono::steady_clock::now(); }

    // The machine's UTC may be set, and goes on while the machine is suspended.
    TimePoint steadyAt(Utc moment) const override
    {
        return steady() + std::clamp(Span(moment - utc()), Span::zero(), longestWait);
    }
};

double inMicroseconds(Span span)
{
    return static_cast<double>(span.count());
}

} // namespace

ScaledClock::ScaledClock(Utc start, double speed)
    : startUtc(start), startSteady(std::chrono::steady_clock::now()), factor(speed)
{
}

// As floating-point numbers until it is certain that the result has a place in a Span.
Utc ScaledClock::utc() const
{
    constexpr Utc last = calendarEnd - Span(1);
    const Span elapsed = std::chrono::duration_cast<Span>(steady() - startSteady);
    const double ahead = inMicroseconds(elapsed) * factor;
    if (ahead >= inMicroseconds(last - startUtc))
        return last;
    return startUtc + Span(static_cast<Span::rep>(ahead));
}

Clock::TimePoint ScaledClock::steady() const
{
    return std::chrono::steady_clock::now();
}

Clock::TimePoint ScaledClock::steadyAt(Utc moment) const
{
    if (moment >= calendarEnd)
        return TimePoint::max();
    const double wait = inMicroseconds(moment - utc()) / factor;
    return steady() + Span(static_cast<Span::rep>(
                          std::ceil(std::clamp(wait, 0.0, inMicroseconds(longestWait)))));
}

const Clock& systemClock()
{
    static const SystemClock clock;
    return clock;
}

} // namespace chronal::sim
