#ifndef CHRONALCTL_MONITOR_H
#define CHRONALCTL_MONITOR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include <chronal/ReferenceTimeId.h>

#include "Options.h"

namespace chronal::ctl {

struct Watch
{
    std::vector<ReferenceTimeId> sources; ///< whose current times are asked for
    bool broadcasts = true;               ///< whether to print what everybody is notified of
    std::optional<std::chrono::microseconds> duration;
    std::optional<std::uint64_t> count; ///< of notifications
};

/// Prints notifications, and how the connection fares, until SIGINT or SIGTERM or the end that is
/// set. The timeout is for the first connection. Throws Failure.
void monitor(const Options& options, const Watch& watch);

} // namespace chronal::ctl

#endif
