#ifndef CHRONAL_TESTING_COMMAND_H
#define CHRONAL_TESTING_COMMAND_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include <chronal-sim/Messages.h>
#include <fabric/MsgMeta.h>
#include <fabric/SerializableMessage.h>
#include <nub/Osal.h>

namespace chronal {
namespace testing {

/// A time since 1970 or a span, as the platform has it, but comparable by value and printable.
struct Time
{
    /// Seconds and microseconds.
    Time(std::int64_t wholeSeconds = 0, std::int32_t fraction = 0)
        : seconds(wholeSeconds), microseconds(fraction)
    {
    }
    /// Converts from the platform's time.
    Time(const nubOsalTime_struct& time) : seconds(time.seconds), microseconds(time.microseconds) {}
    /// Converts to the platform's time.
    operator nubOsalTime_struct() const;

    std::int64_t seconds;      ///< since 1970, or of the span
    std::int32_t microseconds; ///< negative in a negative span
};

bool operator==(const Time& left, const Time& right);
bool operator!=(const Time& left, const Time& right);
bool operator<(const Time& left, const Time& right);
bool operator>(const Time& left, const Time& right);
bool operator<=(const Time& left, const Time& right);
bool operator>=(const Time& left, const Time& right);

/// Prints what lies within a hundred hours of 1970 as a span, everything else as a time.
std::ostream& operator<<(std::ostream& out, const Time& time);

/// Reads a time like "2026-10-25T00:59:59Z" or "2026-10-25T02:59:59.5+02:00". Throws
/// std::invalid_argument for anything else.
Time utc(const std::string& text);

/// Makes a span in the form of a deviation.
Time span(std::chrono::microseconds length);

/// A command that an application has sent, as the service decodes it.
class Command
{
public:
    /// Takes an event that decodeFrame() has returned.
    explicit Command(std::unique_ptr<fabric::SerializableMessageEvent> event);

    /// The function of chronal::UserAdapter that sent it, for example "cmdTimezoneSet".
    std::string name() const;

    /// The ids that its reply carries.
    fabric::MsgIds ids() const;

    /// The fields, which are valid as long as a copy of this command. Throws std::logic_error that
    /// names both messages if this is not a command of that kind.
    template <class Record>
    const Record& as(const sim::Message<Record>& message) const
    {
        return *static_cast<const Record*>(payload(message));
    }

private:
    friend bool operator==(const Command& left, const Command& right);
    friend std::ostream& operator<<(std::ostream& out, const Command& command);

    const void* payload(const fabric::host::MessageType& message) const;

    std::shared_ptr<const fabric::SerializableMessageEvent> event_;
};

/// Compares messages and fields, but not ids.
bool operator==(const Command& left, const Command& right);
bool operator!=(const Command& left, const Command& right);

/// Prints the name, the ids, and the fields by name.
std::ostream& operator<<(std::ostream& out, const Command& command);

/// Returns a copy of a field's characters.
std::string text(const nubDeserString_t& field);

/// Makes a field that refers to `characters`, for a record that is passed to a Desk.
nubDeserString_t text(const std::string& characters);

} // namespace testing
} // namespace chronal

#endif
