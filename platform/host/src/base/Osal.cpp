#include <nub/Osal.h>

namespace {

constexpr std::int32_t microsecondsPerSecond = 1000000;

/// Splits a sub-second field into whole seconds, rounded down, and the rest, 0 to 999999.
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
    // Added as unsigned numbers, since the sum has to wrap on overflow.
    time->seconds = static_cast<std::int64_t>(static_cast<std::uint64_t>(time->seconds) +
                                              static_cast<std::uint64_t>(fraction.carry));
    time->microseconds = fraction.rest;
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    const Fraction leftFraction(left->microseconds);
    const Fraction rightFraction(right->microseconds);

    // Both carries are added on the right, so that any two values can be compared: if the sum
    // overflows, the carry's sign decides.
    const std::int32_t carry = rightFraction.carry - leftFraction.carry;
    std::int64_t rightSeconds;
    if (__builtin_add_overflow(right->seconds, carry, &rightSeconds))
        return carry > 0 ? -1 : 1;
    if (left->seconds != rightSeconds)
        return left->seconds < rightSeconds ? -1 : 1;
    return leftFraction.rest - rightFraction.rest;
}
