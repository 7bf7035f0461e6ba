#ifndef FABRIC_HOST_DEBUG_SINK_H
#define FABRIC_HOST_DEBUG_SINK_H

#include <cstdint>
#include <functional>
#include <string>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Debug output of the host platform.
///
/// Off by default. The environment variable NUB_DEBUG switches it on, read once at first use: a
/// comma-separated list of CATEGORY:LEVEL, both decimal, `*` for every category; lines of a
/// category appear up to and including its level. For example `NUB_DEBUG=*:3000` or
/// `NUB_DEBUG=5:5000,203:4000`. A part that cannot be read is named on standard error and ignored.
/// Lines go to standard error, each with one write(), control characters in them as printable()
/// shows them (fabric-host/Printable.h).

/// Gets the code of a line (category in the upper, level in the lower 16 bits) and its text, the
/// newline included. Called on the thread that writes the line, one call at a time; must not write
/// debug lines itself.
typedef std::function<void(std::uint32_t code, const std::string& line)> DebugSink;

/// Sends the lines to `sink` instead of standard error; an empty one restores that. Any thread.
FABRIC_API void setDebugSink(DebugSink sink);

/// Replaces what NUB_DEBUG said by `switches`, in the same form; empty switches everything off.
/// Throws std::invalid_argument that names the part that cannot be read, and changes nothing then.
FABRIC_API void setDebugSwitches(const std::string& switches);

} // namespace host
} // namespace fabric

#endif
