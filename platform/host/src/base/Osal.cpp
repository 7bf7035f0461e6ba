#include <nub/Osal.h>

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;

} // namespace

void nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    std::int32_t carry = time->microseconds / microsecondsPerSecond;
    time->microseconds %= microsecondsPerSecond;
    if (time->microseconds < 0) {
        time->microseconds += microsecondsPerSecond;
        --carry;
    }
    // Added as unsigned numbers, since the sum has to wrap on overflow.
    time->seconds = static_cast<std::int64_t>(static_cast<std::uint64_t>(time->seconds) +
                                              static_cast<std::uint64_t>(carry));
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    std::int64_t difference;
    if (__builtin_sub_overflow(left->seconds, right->seconds, &difference) ||
        __builtin_mul_overflow(difference, microsecondsPerSecond, &difference) ||
        __builtin_add_overflow(difference, std::int64_t{left->microseconds} - right->microseconds,
                               &difference))
        return left->seconds < right->seconds ? -1 : 1; // too far apart for microseconds to matter
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}
