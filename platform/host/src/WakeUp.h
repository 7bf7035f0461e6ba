#ifndef FABRIC_HOST_WAKE_UP_H
#define FABRIC_HOST_WAKE_UP_H

#include <semaphore.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <limits>

namespace fabric {
namespace host {

/// What one thread sleeps on until another posts. No condition variable: who has waited for one
/// holds a mutex that counts as contended, and to unlock that is a system call each time.
class WakeUp
{
public:
    typedef std::chrono::steady_clock Clock;
    typedef Clock::time_point TimePoint;

    WakeUp() noexcept { sem_init(&semaphore, 0, 0); }
    ~WakeUp() { sem_destroy(&semaphore); }

    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    /// Any thread.
    void post() noexcept { sem_post(&semaphore); }

    /// False when it is `until` and nothing has been posted. May return early.
    bool wait(TimePoint until)
    {
        if (until == TimePoint::max())
            return sem_wait(&semaphore) == 0 || errno == EINTR;
        constexpr std::chrono::seconds last(std::numeric_limits<std::time_t>::max());
        const std::chrono::nanoseconds time = until.time_since_epoch();
        const auto whole = std::min(std::chrono::duration_cast<std::chrono::seconds>(time), last);
        const auto rest = time % std::chrono::seconds(1);
        const timespec end = {static_cast<std::time_t>(whole.count()),
                              static_cast<long>(rest.count())};
        return sem_clockwait(&semaphore, CLOCK_MONOTONIC, &end) == 0 || errno == EINTR;
    }

private:
    sem_t semaphore;
};

} // namespace host
} // namespace fabric

#endif
