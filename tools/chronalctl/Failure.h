#ifndef CHRONALCTL_FAILURE_H
#define CHRONALCTL_FAILURE_H

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace chronal::ctl {

enum class ExitStatus
{
    done = 0,
    refused = 1,  ///< by the service
    badUsage = 2, ///< of the command line
    noAnswer = 3, ///< no service, or no answer in time
    noTime = 4    ///< of the source
};

/// Why the program did not do what it was asked to; what() is one line of text.
struct Failure : std::runtime_error
{
    Failure(ExitStatus givenStatus, int givenNumber, const std::string& text,
            const std::string& givenAdvice = "")
        : std::runtime_error(text), status(givenStatus), number(givenNumber), advice(givenAdvice)
    {
    }

    ExitStatus status;
    int number;         ///< negative, or 0 if there is none
    std::string advice; ///< the probable cause and what to do; may be empty
};

/// "-13 (Permission denied)" of a negative error number.
std::string numberText(int number);

/// Prints a line to standard error.
void remark(const std::string& text);
void complain(const Failure& failure);

/// The service's refusal of a command, with its negative error number.
Failure refusal(const std::string& command, int result);

/// The service was not reached, did not answer or went away: `text`, then the reason if there is
/// one, an error number or 0 for a closed connection.
Failure noAnswer(const std::string& text, std::optional<int> reason = std::nullopt,
                 const std::string& advice = "");

/// `socket` is the service's, or empty for the service in this process.
Failure noService(const std::string& socket, std::chrono::microseconds waited,
                  std::optional<int> reason);

/// "service at SOCKET", or the one in this process.
std::string serviceAt(const std::string& socket);

/// " within 5s".
std::string within(std::chrono::microseconds waited);

/// Why a connection ended: the text of an error number, or "closed" for 0.
std::string reasonText(int reason);

/// `reason` is the error number of writing to standard output.
Failure notPrinted(int reason);

} // namespace chronal::ctl

#endif
