#ifndef NUB_OSAL_H
#define NUB_OSAL_H

#include <pthread.h>

#include <cstdint>

#include <fabric/Export.h>

/// An absolute time (since 1970-01-01 00:00:00 UTC) or a signed span.
///
/// The seconds are aligned to 8 bytes on every target, so that all builds agree on the layout of
/// the records that embed a time.
struct nubOsalTime_struct
{
    alignas(8) std::int64_t seconds;
    std::int32_t microseconds; ///< fraction of a second; negative in a negative span
};

extern "C" {

/// Normalises `time` in place: afterwards 0 <= microseconds < 1000000 and the value is the same,
/// whole seconds having been carried. At the ends of the range the seconds wrap.
FABRIC_API void nubOsalNormalizeTime(nubOsalTime_struct* time);

/// Compares by value, so that {0, 1000000} equals {1, 0}: 0 when equal, negative when `left` is
/// the earlier one, positive when it is the later one. The arguments are not changed.
FABRIC_API int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right);
}

/// Holds a mutex for the lifetime of the guard.
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
