#include "SocketText.h"

#include <sys/un.h>

#include <stdexcept>

#include <fabric-host/SocketPath.h>

namespace chronal::tools {

std::string parseSocket(const std::string& text)
{
    constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    if (text.empty())
        throw std::invalid_argument("'' is no path; right would be one such as /tmp/chronal.sock, "
                                    "or an existing folder");
    std::string path = fabric::host::socketAt(text);
    if (path.size() > longest)
        throw std::invalid_argument("'" + path + "' has " + std::to_string(path.size()) +
                                    " characters; the path of a socket has at most " +
                                    std::to_string(longest));
    return path;
}

} // namespace chronal::tools
