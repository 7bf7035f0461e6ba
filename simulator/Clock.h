#ifndef CHRONAL_SIM_CLOCK_H
#define CHRONAL_SIM_CLOCK_H

#include <chrono>

#include "ZoneRules.h"

namespace chronal::sim {

/// The simulation's idea of time. The true UTC may be set and may run at any speed; the steady
/// time only ever goes forward and is that of whoever calls Service::runDue().
class Clock
{
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    virtual ~Clock() = default;

    /// Always a time of the calendar: see wrapped().
    virtual Utc utc() const = 0;
    virtual TimePoint steady() const = 0;

    /// When to look whether utc() has gone on by `wait`. May be too early, but not at once unless
    /// `wait` is zero or negative, and is never much too late.
    virtual TimePoint steadyAfter(Span wait) const = 0;
};

/// Starts at a time of choice and runs from then on at a multiple of the machine's speed.
class ScaledClock final : public Clock
{
public:
    /// `speed` is positive.
    ScaledClock(Utc start, double speed);

    Utc utc() const override;
    TimePoint steady() const override;
    TimePoint steadyAfter(Span wait) const override;

private:
    const Utc startUtc;
    const TimePoint startSteady;
    const double factor;
};

/// The machine's clocks, beyond 2038 also where time_t has 32 bits.
const Clock& systemClock();

} // namespace chronal::sim

#endif
