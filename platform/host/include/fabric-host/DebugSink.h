#ifndef FABRIC_HOST_DEBUG_SINK_H
#define FABRIC_HOST_DEBUG_SINK_H

#include <cstdint>
#include <functional>
#include <string>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Debug output of the host platform is off by default. The environment variable NUB_DEBUG, read
/// once at first use, enables it: a comma-separated list of CATEGORY:LEVEL, both decimal, where `*`
/// means every category. A category's lines appear up to and including its level. Examples:
/// `NUB_DEBUG=*:3000` and `NUB_DEBUG=5:5000,203:4000`. An invalid entry is reported on standard
/// error and ignored. Each line is sent to standard error with one write(), its control characters
/// escaped by printable() (fabric-host/Printable.h).

/// Receives the code of a line (category in the upper 16 bits, level in the lower) and its text,
/// newline included. Called on the thread that writes the line, one call at a time. Must not write
/// debug lines or call setDebugSink().
typedef std::function<void(std::uint32_t code, const std::string& line)> DebugSink;

/// Sends lines to `sink`, or to standard error if `sink` is empty. Thread-safe.
FABRIC_API void setDebugSink(DebugSink sink);

/// Replaces the settings of NUB_DEBUG with `switches`, in the same form; empty disables all output.
/// Throws std::invalid_argument that names the invalid entry, leaving the settings unchanged.
FABRIC_API void setDebugSwitches(const std::string& switches);

} // namespace host
} // namespace fabric

#endif
