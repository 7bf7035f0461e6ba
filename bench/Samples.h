#ifndef BENCH_SAMPLES_H
#define BENCH_SAMPLES_H

#include <string>

#include <chronal/ReferenceTimeId.h>
#include <nub/Osal.h>

/// Values that the library and its floors both work on. They are variables, so that the compiler
/// cannot compute anything with them beforehand.
namespace bench {

inline nubOsalTime_struct time = {1700000000, 123456};
inline nubOsalTime_struct marker = {-360001, 0}; ///< an unknown deviation
inline nubOsalTime_struct shortSpan = {5, 0};
inline nubOsalTime_struct longSpan = {-(3 * 86400 + 4 * 3600 + 5 * 60 + 6), -7008};
inline chronal::ReferenceTimeId source = chronal::referenceTimeDvb;
inline std::string shortZone = "Europe/Berlin";          ///< short enough to need no allocation
inline std::string longZone = "America/Argentina/Salta"; ///< 23 characters, which need one

/// Makes the compiler assume that the value is used and that any memory may have changed.
template <typename Value>
inline void keep(const Value& value)
{
    asm volatile("" : : "r"(&value) : "memory");
}

} // namespace bench

#endif
