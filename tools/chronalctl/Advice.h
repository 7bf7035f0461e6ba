#ifndef CHRONALCTL_ADVICE_H
#define CHRONALCTL_ADVICE_H

#include <string>
#include <vector>

#include "Arguments.h"

namespace chronal::ctl {

/// The probable cause of a refusal. The service gives only an error number; the causes are those of
/// the simulated service, a device's service may have others.
struct Advice
{
    int error;        ///< as in <cerrno>
    std::string text; ///< "{TIME}" in it stands for the argument TIME as typed
    bool (*applies)(const Arguments& given) = nullptr; ///< null: to any arguments
};

/// The text of the first advice that applies, or nothing.
std::string probableCause(const std::vector<Advice>& advice, int error, const Arguments& given);

// Conditions, by what the simulated service accepts.

bool isOutsideCalendar(const nubOsalTime_struct& utc);
/// Also of a local time that is in the calendar but perhaps not as UTC.
bool isOutsideLocalCalendar(const nubOsalTime_struct& local);
bool isOverADay(const nubOsalTime_struct& span);
bool isZero(const nubOsalTime_struct& span);
bool isTooLong(const std::string& text);

} // namespace chronal::ctl

#endif
