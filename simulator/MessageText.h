#ifndef CHRONAL_SIM_MESSAGE_TEXT_H
#define CHRONAL_SIM_MESSAGE_TEXT_H

#include <string>

#include <fabric/SerializableMessage.h>

namespace chronal::sim {

/// A message of the catalogue on one line: its name, its ids, and the fields of its record by name.
///
/// Records do not tell points in time from spans, so a time within a hundred hours of 1970 is taken
/// for the span that it hardly ever is not. Characters that a terminal would obey are escaped.
std::string messageText(const fabric::SerializableMessageEvent& message);

} // namespace chronal::sim

#endif
