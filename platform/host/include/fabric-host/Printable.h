#ifndef FABRIC_HOST_PRINTABLE_H
#define FABRIC_HOST_PRINTABLE_H

#include <string>

#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Makes untrusted text safe for a terminal or a log. Control characters, characters that are
/// invisible, break lines or change the direction of text, and bytes that are not UTF-8 become
/// escapes such as "\x1b" and "\u202e". So do the ASCII characters in `special`, such as the quotes
/// around the text. All other text, in any script, is unchanged.
FABRIC_API std::string printable(const std::string& text, const std::string& special = "");

} // namespace host
} // namespace fabric

#endif
