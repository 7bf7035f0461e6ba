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

/// The text of the first advice that applies to a refusal, or nothing. `result` is the service's, a
/// negative error number.
std::string probableCause(const std::vector<Advice>& advice, int result, const Arguments& given);

} // namespace chronal::ctl

#endif
