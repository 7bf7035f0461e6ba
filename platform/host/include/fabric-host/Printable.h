#ifndef FABRIC_HOST_PRINTABLE_H
#define FABRIC_HOST_PRINTABLE_H

#include <string>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Foreign text, made safe for a terminal or a log. Control characters, characters that are
/// invisible or change the direction or the lines of text, and bytes that are not UTF-8 become
/// visible escapes such as "\x1b" and "\u202e"; so do the ASCII characters in `special`, which a
/// quoted text needs. Everything else, letters of any script among it, stays.
FABRIC_API std::string printable(const std::string& text, const std::string& special = "");

} // namespace host
} // namespace fabric

#endif
