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

    virtual Utc utc() const = 0;
    virtual TimePoint steady() const = 0;

    /// When to look whether utc() has reached `moment`; TimePoint::max() if it never will. May be
    /// too early, never much too late, and lies in the future as long as `moment` does.
    virtual TimePoint steadyAt(Utc moment) const = 0;
};

/// Starts at a time of choice and runs from then on at a multiple of the machine's speed. Stops at
/// the end of the calendar.
class ScaledClock final : public Clock
{
public:
    /// `speed` is positive.
    ScaledClock(Utc start, double speed);

    Utc utc() const override;
    TimePoint steady() const override;
    TimePoint steadyAt(Utc moment) const override;

private:
    const Utc startUtc;
    const TimePoint startSteady;
    const double factor;
};

/// The machine's clocks.
const Clock& systemClock();

} // namespace chronal::sim

#endif
