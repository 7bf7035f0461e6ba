#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace chronal::tools {

void holdStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // The lowest free descriptor is this one. In the wrong direction, so that using it fails.
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace chronal::tools
