#ifndef BENCH_SAMPLES_H
#define BENCH_SAMPLES_H

#include <string>

#include <chronal/ReferenceTimeId.h>
#include <nub/Osal.h>

/// The values that the library's way and its floor both work on. Not constants: neither side may
/// compute anything with them beforehand.
namespace bench {

inline nubOsalTime_struct time = {1700000000, 123456};
inline nubOsalTime_struct marker = {-360001, 0}; ///< an unknown deviation
inline nubOsalTime_struct shortSpan = {5, 0};
inline nubOsalTime_struct longSpan = {-(3 * 86400 + 4 * 3600 + 5 * 60 + 6), -7008};
inline chronal::ReferenceTimeId source = chronal::referenceTimeDvb;
inline std::string shortZone = "Europe/Berlin";          ///< within what a std::string holds itself
inline std::string longZone = "America/Argentina/Salta"; ///< 23 characters, beyond it

/// Makes the compiler believe that the value is used, and that any memory may have changed.
template <typename Value>
inline void keep(const Value& value)
{
    asm volatile("" : : "r"(&value) : "memory");
}

} // namespace bench

#endif
