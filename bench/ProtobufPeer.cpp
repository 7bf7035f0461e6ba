#include "Peers.h"

#include <string>

#include "Samples.h"
#include "messages.pb.h"

namespace bench {
namespace {

void set(messages::Time& to, const nubOsalTime_struct& from)
{
    to.set_seconds(from.seconds);
    to.set_microseconds(from.microseconds);
}

messages::RefTimeId refTimeId()
{
    messages::RefTimeId message;
    message.set_ref_time_id(source.id);
    return message;
}

messages::RefTimeData refTimeData()
{
    messages::RefTimeData message;
    message.set_ref_time_id(source.id);
    set(*message.mutable_time1(), time);
    set(*message.mutable_time2(), time);
    set(*message.mutable_time3(), time);
    set(*message.mutable_time4(), time);
    return message;
}

messages::Timezone timezoneOf(const std::string& zone)
{
    messages::Timezone message;
    message.set_timezone(zone);
    set(*message.mutable_time(), time);
    return message;
}

messages::Timezone shortTimezone() { return timezoneOf(shortZone); }

messages::Timezone longTimezone() { return timezoneOf(longZone); }

messages::ReplyTime replyTime()
{
    messages::ReplyTime message;
    message.set_ref_time_id(source.id);
    set(*message.mutable_utc_time(), time);
    set(*message.mutable_utc_deviation(), time);
    set(*message.mutable_local_time(), time);
    return message;
}

messages::DateTime dateTime()
{
    messages::DateTime message;
    set(*message.mutable_time0(), time);
    set(*message.mutable_time1(), time);
    set(*message.mutable_time2(), time);
    set(*message.mutable_time3(), time);
    set(*message.mutable_time4(), time);
    message.set_text(shortZone);
    return message;
}

/// Fills a new message and writes its bytes to a new string.
template <auto message>
void build()
{
    std::string bytes;
    message().SerializeToString(&bytes);
    keep(bytes);
}

/// Writes the bytes of an existing message to an existing string.
template <auto message>
void serialize()
{
    static const auto from = message();
    static std::string bytes;
    from.SerializeToString(&bytes);
    keep(bytes);
}

template <auto message>
void parse()
{
    static const std::string bytes = message().SerializeAsString();
    decltype(message()) result;
    result.ParseFromString(bytes);
    keep(result);
}

// clang-format off
const Peers protobuf = {
    {"send/80-byte", "protobuf", build<refTimeData>},
    {"send/4-byte", "protobuf", build<refTimeId>},
    {"send/string", "protobuf", build<longTimezone>},
    {"receive/64-byte", "protobuf", parse<replyTime>},
    {"receive/104-byte", "protobuf", parse<dateTime>},
    {"receive/short-string", "protobuf", parse<shortTimezone>},
    {"receive/long-string", "protobuf", parse<longTimezone>},
    {"encode/timezone", "protobuf", serialize<longTimezone>},
    {"encode/ref-time-data", "protobuf", serialize<refTimeData>},
    {"decode/timezone", "protobuf", parse<longTimezone>},
    {"decode/ref-time-data", "protobuf", parse<refTimeData>},
};
// clang-format on

} // namespace
} // namespace bench
