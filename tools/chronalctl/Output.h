#ifndef CHRONALCTL_OUTPUT_H
#define CHRONALCTL_OUTPUT_H

#include <set>
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

/// One JSON object on one line. Times and spans are objects of seconds, microseconds, text and
/// their form by ISO 8601, or null for years of more than four digits and spans of more than a day.
std::string asJson(const Report& report);

/// A part of the service's state. A report that is a refusal is shown as such.
struct Part
{
    std::string label;
    std::string key; ///< of JSON; "sources" for each source
    Report report;
};
using Status = std::vector<Part>;

std::string asTable(const Status& status);
std::string asJson(const Status& status);

std::string asJson(const std::set<std::string>& texts);

/// `command` is the command's words.
std::string asJson(const std::string& command, const Failure& failure);

/// Writes to standard output and flushes it. Throws Failure if that fails.
void print(const std::string& text);

} // namespace chronal::ctl

#endif
