#ifndef CHRONAL_TOOLS_SOCKET_TEXT_H
#define CHRONAL_TOOLS_SOCKET_TEXT_H

#include <string>

namespace chronal::tools {

/// The path of a socket, given by itself or by its directory. Throws std::invalid_argument with a
/// text that says what was wrong and what is expected.
std::string parseSocket(const std::string& text);

/// The socket at which chronal-simd listens by default: chronal.sock in $XDG_RUNTIME_DIR. Empty if
/// that is not set.
std::string defaultSocket();

} // namespace chronal::tools

#endif
