#ifndef CHRONALCTL_OUTPUT_H
#define CHRONALCTL_OUTPUT_H

#include <string>
#include <vector>

#include "Failure.h"
#include "Report.h"

/// Reports as text, each ending with a newline. Times and spans are printed by the library's text
/// functions, strings of the service by fabric::host::printable().
namespace chronal::ctl {

/// One line per value, or "done" for a command that has no other answer.
std::string asTable(const Report& report);

/// One line.
std::string asLine(const Report& report);

/// One JSON object on one line. Times and spans are objects of seconds, microseconds and text.
std::string asJson(const Report& report);

/// The service's state. A report that is a refusal is shown as such.
struct Status
{
    struct Source
    {
        std::string name;
        Report report;
    };

    std::vector<Source> sources;
    Report timezone;
    Report nextDeviation;
    Report settings;
};

std::string asTable(const Status& status);
std::string asJson(const Status& status);

/// `command` is the command's words.
std::string asJson(const std::string& command, const Failure& failure);

/// Writes to standard output and flushes it. Throws Failure if that fails.
void print(const std::string& text);

} // namespace chronal::ctl

#endif
