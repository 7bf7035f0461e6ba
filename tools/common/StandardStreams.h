#ifndef CHRONAL_TOOLS_STANDARD_STREAMS_H
#define CHRONAL_TOOLS_STANDARD_STREAMS_H

namespace chronal::tools {

/// Takes the places of those standard streams that are closed, before a socket or another file gets
/// them and is written to. Using such a stream fails with EBADF. Called first of all.
void holdStandardStreams();

} // namespace chronal::tools

#endif
