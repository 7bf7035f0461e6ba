#ifndef CHRONALCTL_FAILURE_H
#define CHRONALCTL_FAILURE_H

#include <chrono>
#include <stdexcept>
#include <string>

namespace chronal::ctl {

enum class ExitStatus
{
    done = 0,
    refused = 1,  ///< by the service
    badUsage = 2, ///< of the command line
    noAnswer = 3  ///< no service, or no answer in time
};

/// What a person is to read on standard error, and the exit status that goes with it.
struct Failure : std::runtime_error
{
    Failure(ExitStatus exitStatus, const std::string& text)
        : std::runtime_error(text), status(exitStatus)
    {
    }

    ExitStatus status;
};

/// The service's refusal: its negative error number and what that means.
Failure refusal(int result);

/// `socket` is where the service was looked for, or empty for the one in this process; `reason` is
/// the error number that kept it from being reached, or 0.
Failure noService(const std::string& socket, std::chrono::microseconds waited, int reason);
Failure noAnswer(const std::string& socket, std::chrono::microseconds waited);
Failure notSent(const std::string& socket, int reason);
Failure lostBeforeAnswer(const std::string& socket, int reason);

} // namespace chronal::ctl

#endif
