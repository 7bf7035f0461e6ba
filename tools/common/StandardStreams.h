#ifndef CHRONAL_TOOLS_STANDARD_STREAMS_H
#define CHRONAL_TOOLS_STANDARD_STREAMS_H

#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace chronal::tools {

/// Occupies the descriptors of closed standard streams, so that no socket or file gets them and is
/// written to by mistake. Using such a stream fails with EBADF. Call it before anything else.
inline void holdStandardStreams()
{
    // open() returns the lowest free descriptor, and the wrong direction makes its use fail.
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

/// If standard output is a terminal, lines are broken to fit its width, or $COLUMNS. What does not
/// fit goes on below the second column, which two blanks separate from the first.
std::string fitted(const std::string& text);

} // namespace chronal::tools

#endif
