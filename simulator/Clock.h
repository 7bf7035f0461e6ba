#ifndef CHRONAL_SIM_CLOCK_H
#define CHRONAL_SIM_CLOCK_H

#include <chrono>

#include "ZoneRules.h"

namespace chronal::sim {

/// The time of the simulation. UTC may be set and may run at any speed. Steady time only moves
/// forward; Service::runDue() returns a time on that scale.
class Clock
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    /// Always within the calendar: see wrapped().
    virtual Utc utc() const = 0;
    virtual TimePoint steady() const = 0;

    /// The time at which to check whether utc() has advanced by `wait`. It may be too early, but
    /// lies after steady() if `wait` is positive, and is never more than a minute late.
    virtual TimePoint steadyAfter(Span wait) const = 0;
};

/// Starts at a given time and runs at a multiple of the machine's speed.
class ScaledClock final : public Clock
{
public:
    /// `speed` must be positive.
    ScaledClock(Utc start, double speed);

    Utc utc() const override;
    TimePoint steady() const override;
    TimePoint steadyAfter(Span wait) const override;

private:
    const Utc startUtc_;
    const TimePoint startSteady_;
    const double speed_;
};

/// The machine's clocks. They continue past 2038, even where time_t has 32 bits.
const Clock& systemClock();

} // namespace chronal::sim

#endif
