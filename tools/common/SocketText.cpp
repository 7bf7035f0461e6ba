#include "SocketText.h"

#include <cstdlib>
#include <stdexcept>

#include <chronal-sim/Start.h>
#include <fabric-host/Link.h>

namespace chronal::tools {

using fabric::host::longestSocketPath;
using sim::socketAt;

std::string parseSocket(const std::string& text)
{
    if (text.empty())
        throw std::invalid_argument("'' is not a path; expected for example /run/chronal.sock, or "
                                    "an existing directory");
    std::string path = socketAt(text);
    if (path.size() > longestSocketPath)
        throw std::invalid_argument("'" + path + "' has " + std::to_string(path.size()) +
                                    " characters; the path of a socket has at most " +
                                    std::to_string(longestSocketPath));
    return path;
}

std::string defaultSocket()
{
    const char* const directory = std::getenv("XDG_RUNTIME_DIR");
    return directory && *directory ? socketAt(std::string(directory) + '/') : "";
}

} // namespace chronal::tools
