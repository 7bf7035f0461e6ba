#include "SocketText.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <sys/un.h>

namespace chronal::tools {

std::string parseSocket(const std::string& text)
{
    constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    if (text.empty())
        throw std::invalid_argument("'' is no path; right would be one such as /tmp/chronal.sock, "
                                    "or an existing folder");
    std::filesystem::path path = text;
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        path /= socketName;
    const std::size_t length = path.native().size();
    if (length > longest)
        throw std::invalid_argument("'" + path.native() + "' has " + std::to_string(length) +
                                    " characters; the path of a socket has at most " +
                                    std::to_string(longest));
    return path;
}

} // namespace chronal::tools
