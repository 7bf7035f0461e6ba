#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace chronal::tools {

void holdStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // open() returns the lowest free descriptor, this one; in the wrong direction, so that
        // using it fails.
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace chronal::tools
