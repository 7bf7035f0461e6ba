#include "Clock.h"

#include <algorithm>

namespace chronal::sim {

namespace {

class SystemClock final : public Clock
{
public:
    Utc utc() const override
    {
        return std::chrono::time_point_cast<Span>(std::chrono::system_clock::now());
    }

    TimePoint steady() const override { return std::chrono::steady_clock::now(); }

    // The machine's UTC may be set, and goes on while the machine is suspended, so a distant moment
    // can come sooner than it seems now.
    TimePoint steadyAt(Utc moment) const override
    {
        constexpr Span longestWait = std::chrono::minutes(1);
        return steady() + std::clamp(Span(moment - utc()), Span::zero(), longestWait);
    }
};

} // namespace

const Clock& systemClock()
{
    static const SystemClock clock;
    return clock;
}

} // namespace chronal::sim
