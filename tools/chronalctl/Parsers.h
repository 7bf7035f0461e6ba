#ifndef CHRONALCTL_PARSERS_H
#define CHRONALCTL_PARSERS_H

#include <chrono>
#include <string>

#include "Arguments.h"

/// Texts of the command line that only chronalctl reads. Each function throws std::invalid_argument
/// with a text that says what was wrong and what is expected.
namespace chronal::ctl {

/// In upper or lower case. "INVAL" is a source as well: the service refuses it.
ReferenceTimeId parseSource(const std::string& text);

/// "on", "off" or "get", in upper or lower case.
void readState(const std::string& text, Arguments& given);

/// A duration that is not zero.
std::chrono::microseconds parseWait(const std::string& text);

/// Any text that fits into a message.
std::string parseText(const std::string& text);

} // namespace chronal::ctl

#endif
