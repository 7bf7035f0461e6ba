#ifndef NUB_OSAL_H
#define NUB_OSAL_H

#include <pthread.h>

#include <cstdint>

#include <fabric/Export.h>

/// An absolute time since 1970-01-01 00:00:00 UTC, or a signed span.
///
/// The seconds are aligned to 8 bytes on every target, because that is their alignment in the
/// records of the time service.
struct nubOsalTime_struct
{
    alignas(8) std::int64_t seconds;
    std::int32_t microseconds; ///< 0 to 999999; 0 or negative in a negative span
};

extern "C" {

/// Carries whole seconds between the fields, so that 0 <= microseconds < 1000000 and the value
/// stays the same. At the ends of their range, the seconds wrap.
FABRIC_API void nubOsalNormalizeTime(nubOsalTime_struct* time);

/// Returns 0 if both have the same value, as {0, 1000000} and {1, 0} do, a negative number if
/// `left` is earlier, and a positive number if it is later.
FABRIC_API int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right);
}

/// Locks a mutex and unlocks it in its destructor.
class ltGuard
{
public:
    explicit ltGuard(pthread_mutex_t* mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
    ~ltGuard() { pthread_mutex_unlock(mutex_); }

    ltGuard(const ltGuard&) = delete;
    ltGuard& operator=(const ltGuard&) = delete;

private:
    pthread_mutex_t* mutex_;
};

#endif
