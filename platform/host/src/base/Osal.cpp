#include <nub/Osal.h>

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;

/// A sub-second field taken apart: whole seconds, rounded down, and the rest of 0 to 999999.
struct Fraction
{
    explicit Fraction(std::int32_t microseconds) noexcept
        : carry(microseconds / microsecondsPerSecond), rest(microseconds % microsecondsPerSecond)
    {
        if (rest < 0) {
            rest += microsecondsPerSecond;
            --carry;
        }
    }

    std::int32_t carry;
    std::int32_t rest;
};

} // namespace

void nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    const Fraction fraction(time->microseconds);
    // Unsigned, since the sum may leave the range and is to wrap.
    time->seconds = static_cast<std::int64_t>(static_cast<std::uint64_t>(time->seconds) +
                                              static_cast<std::uint64_t>(fraction.carry));
    time->microseconds = fraction.rest;
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    const Fraction leftFraction(left->microseconds);
    const Fraction rightFraction(right->microseconds);

    // Both carries go to the right, so that no value is too large to be compared: where the sum
    // leaves the range, its direction is the answer.
    const std::int32_t carry = rightFraction.carry - leftFraction.carry;
    std::int64_t rightSeconds;
    if (__builtin_add_overflow(right->seconds, carry, &rightSeconds))
        return carry > 0 ? -1 : 1;
    if (left->seconds != rightSeconds)
        return left->seconds < rightSeconds ? -1 : 1;
    return leftFraction.rest - rightFraction.rest;
}
