#ifndef CHRONALCTL_MONITOR_H
#define CHRONALCTL_MONITOR_H

#include <vector>

#include "Arguments.h"

namespace chronal::ctl {

/// Prints changes of the connection, the current times of `sources`, and all other notifications
/// if `broadcasts`, until SIGINT, SIGTERM or the end that was given. The timeout is for the first
/// connection. Throws Failure.
void monitor(const Arguments& given, const std::vector<ReferenceTimeId>& sources, bool broadcasts);

} // namespace chronal::ctl

#endif
