#include <chronal-testing/Command.h>

#include <stdexcept>
#include <utility>

#include <absl/time/time.h>
#include <fabric-host/Frame.h>

#include "WireTime.h"

namespace chronal::testing {

namespace {

int compare(const Time& left, const Time& right)
{
    const nubOsalTime_struct first = left;
    const nubOsalTime_struct second = right;
    return nubOsalCompareTime(&first, &second);
}

fabric::host::FrameBytes frameOf(const fabric::SerializableMessageEvent& event)
{
    fabric::SerializableMessageEvent anonymous(event.meta, {0, 0}, event.data);
    anonymous.ids = {0, 0};
    fabric::host::FrameBytes frame;
    std::string reason;
    if (fabric::host::encodeFrame(anonymous, sim::catalogue(), frame, reason) != 0)
        throw std::logic_error(reason);
    return frame;
}

} // namespace

Time::operator nubOsalTime_struct() const
{
    nubOsalTime_struct time = {}; // its padding as well, because a command sends it
    time.seconds = seconds;
    time.microseconds = microseconds;
    return time;
}

bool operator==(const Time& left, const Time& right) { return compare(left, right) == 0; }
bool operator!=(const Time& left, const Time& right) { return compare(left, right) != 0; }
bool operator<(const Time& left, const Time& right) { return compare(left, right) < 0; }
bool operator>(const Time& left, const Time& right) { return compare(left, right) > 0; }
bool operator<=(const Time& left, const Time& right) { return compare(left, right) <= 0; }
bool operator>=(const Time& left, const Time& right) { return compare(left, right) >= 0; }

std::ostream& operator<<(std::ostream& out, const Time& time) { return out << sim::timeText(time); }

Time utc(const std::string& text)
{
    absl::Time time;
    std::string error;
    if (!absl::ParseTime(absl::RFC3339_full, text, &time, &error) ||
        time == absl::InfiniteFuture() || time == absl::InfinitePast())
        throw std::invalid_argument("'" + text +
                                    "' is not a time; expected for example 2026-03-29T01:00:00Z");
    return sim::wireTime(sim::Utc(absl::ToChronoMicroseconds(time - absl::UnixEpoch())));
}

Time span(std::chrono::microseconds length) { return sim::wireSpan(length); }

Command::Command(std::unique_ptr<fabric::SerializableMessageEvent> event) : event_(std::move(event))
{
}

std::string Command::name() const { return sim::nameOf(*event_); }

fabric::MsgIds Command::ids() const { return event_->ids; }

const void* Command::payload(const fabric::host::MessageType& message) const
{
    if (sim::typeOf(*event_)->name != message.name)
        throw std::logic_error(name() + " is not " + message.name);
    return event_->data->payload;
}

bool operator==(const Command& left, const Command& right)
{
    return frameOf(*left.event_) == frameOf(*right.event_);
}

bool operator!=(const Command& left, const Command& right) { return !(left == right); }

std::ostream& operator<<(std::ostream& out, const Command& command)
{
    return out << sim::messageText(*command.event_);
}

std::string text(const nubDeserString_t& field)
{
    return field.chars ? std::string(field.chars, field.length) : std::string();
}

nubDeserString_t text(const std::string& characters)
{
    return {static_cast<std::uint32_t>(characters.size()), const_cast<char*>(characters.data())};
}

} // namespace chronal::testing
