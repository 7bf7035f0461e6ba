#ifndef CHRONAL_TOOLS_SOCKET_TEXT_H
#define CHRONAL_TOOLS_SOCKET_TEXT_H

#include <string>

namespace chronal::tools {

/// The path of a socket, or of the folder for it. Throws std::invalid_argument with a text that
/// says what was wrong and what would be right.
std::string parseSocket(const std::string& text);

/// The socket that chronal-simd listens at unless it is told otherwise: chronal.sock in
/// $XDG_RUNTIME_DIR. Empty if that is not set.
std::string defaultSocket();

} // namespace chronal::tools

#endif
