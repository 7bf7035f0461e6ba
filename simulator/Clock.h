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

    /// The time of the machine's steady clock at `steady`; TimePoint::max() for never.
    virtual TimePoint onMachine(TimePoint steady) const { return steady; }
};

/// Can be set, stopped and moved, and runs at a multiple of the machine's speed. Steady time runs
/// at the machine's speed, unless the clock stands still. Not thread-safe.
class SettableClock final : public Clock
{
public:
    /// With a `speed` of 0 the clock stands still.
    SettableClock(Utc start, double speed);

    Utc utc() const override;
    TimePoint steady() const override;
    TimePoint steadyAfter(Span wait) const override;
    TimePoint onMachine(TimePoint steady) const override;

    /// The steady time after `span`. Throws std::invalid_argument for a negative span, or one that
    /// leads more than a century ahead: steady time is limited.
    TimePoint later(Span span) const;

    void setUtc(Utc utc);
    double speed() const { return speed_; }
    void setSpeed(double speed);

    /// Moves UTC and steady time forward to this steady time.
    void advanceTo(TimePoint steady);

private:
    /// The machine's time since the last change, or zero if the clock stands still.
    Span elapsed() const;

    // The times at the last change.
    TimePoint machine_;
    TimePoint steady_;
    Utc utc_;
    double speed_;
};

/// The machine's clocks. They continue past 2038, even where time_t has 32 bits.
const Clock& systemClock();

} // namespace chronal::sim

#endif
