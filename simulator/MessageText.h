#ifndef CHRONAL_SIM_MESSAGE_TEXT_H
#define CHRONAL_SIM_MESSAGE_TEXT_H

#include <string>

#include <fabric/SerializableMessage.h>

namespace chronal::sim {

/// A message of the catalogue as one line: its name, its ids, and the fields of its record by name.
///
/// Records do not distinguish points in time from spans. A time within a hundred hours of 1970 is
/// printed as a span, which it nearly always is. Characters that a terminal would interpret are
/// escaped.
std::string messageText(const fabric::SerializableMessageEvent& message);

} // namespace chronal::sim

#endif
