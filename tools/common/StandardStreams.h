#ifndef CHRONAL_TOOLS_STANDARD_STREAMS_H
#define CHRONAL_TOOLS_STANDARD_STREAMS_H

namespace chronal::tools {

/// Occupies the descriptors of closed standard streams, so that no socket or file gets them and is
/// written to by mistake. Using such a stream fails with EBADF. Call it before anything else.
void holdStandardStreams();

} // namespace chronal::tools

#endif
