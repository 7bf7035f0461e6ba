#ifndef FABRIC_HOST_SOCKET_PATH_H
#define FABRIC_HOST_SOCKET_PATH_H

#include <sys/un.h>

#include <cstddef>
#include <string>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// In characters.
constexpr std::size_t longestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

/// The path of the socket at `place`: chronal.sock in it, if it is a folder or ends with a slash.
FABRIC_API std::string socketAt(const std::string& place);

} // namespace host
} // namespace fabric

#endif
