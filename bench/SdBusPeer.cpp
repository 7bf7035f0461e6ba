#include "Peers.h"

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <systemd/sd-bus.h>

#include "Samples.h"

namespace bench {
namespace {

constexpr char path[] = "/org/chronal/Time";
constexpr char interface[] = "org.chronal.Time";

// The fields of the records, as D-Bus types.
constexpr char refTimeIdFields[] = "i";
constexpr char refTimeDataFields[] = "i(xi)i(xi)(xi)(xi)";
constexpr char timezoneFields[] = "s(xi)";
constexpr char replyTimeFields[] = "i(xi)(xi)(xi)bi";
constexpr char dateTimeFields[] = "(xi)(xi)(xi)(xi)(xi)isbbb";

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), std::string("sd-bus: ") + what);
    return result;
}

struct Close
{
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};

struct Release
{
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using Bus = std::unique_ptr<sd_bus, Close>;
using Message = std::unique_ptr<sd_bus_message, Release>;

Bus newBus()
{
    sd_bus* bus = nullptr;
    checked(sd_bus_new(&bus), "cannot make a bus");
    return Bus(bus);
}

struct Ends
{
    Bus service;
    Bus client;
};

/// Two ends of a socket, which talk to each other without a daemon.
Ends pairOfEnds()
{
    std::array<int, 2> sockets;
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sockets.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot make a pair of sockets");
    Ends ends = {newBus(), newBus()};
    checked(sd_bus_set_fd(ends.service.get(), sockets[0], sockets[0]), "cannot use the socket");
    checked(sd_bus_set_fd(ends.client.get(), sockets[1], sockets[1]), "cannot use the socket");
    const sd_id128_t id = {};
    checked(sd_bus_set_server(ends.service.get(), 1, id), "cannot be a server");
    checked(sd_bus_start(ends.service.get()), "cannot start the service's end");
    checked(sd_bus_start(ends.client.get()), "cannot start the client's end");
    return ends;
}

Bus connectedTo(const char* daemonAddress)
{
    Bus bus = newBus();
    checked(sd_bus_set_address(bus.get(), daemonAddress), "cannot use the daemon's address");
    checked(sd_bus_set_bus_client(bus.get(), 1), "cannot be a client of the daemon");
    checked(sd_bus_start(bus.get()), "cannot connect to the daemon");
    return bus;
}

template <typename... Values>
void append(sd_bus_message* message, const char* fields, Values... values)
{
    checked(sd_bus_message_append(message, fields, values...), "cannot append");
}

template <typename... Fields>
void read(sd_bus_message* message, const char* types, Fields&... fields)
{
    checked(sd_bus_message_read(message, types, &fields...), "cannot read");
    (keep(fields), ...);
}

// Functions that fill and read the fields of one record each.

void fillRefTimeId(sd_bus_message* message)
{
    append(message, refTimeIdFields, std::int32_t{source.id});
}

void fillRefTimeData(sd_bus_message* message)
{
    append(message, refTimeDataFields, std::int32_t{source.id}, time.seconds, time.microseconds, 0,
           time.seconds, time.microseconds, time.seconds, time.microseconds, time.seconds,
           time.microseconds);
}

void fillShortTimezone(sd_bus_message* message)
{
    append(message, timezoneFields, shortZone.c_str(), time.seconds, time.microseconds);
}

void fillLongTimezone(sd_bus_message* message)
{
    append(message, timezoneFields, longZone.c_str(), time.seconds, time.microseconds);
}

void fillReplyTime(sd_bus_message* message)
{
    append(message, replyTimeFields, std::int32_t{source.id}, time.seconds, time.microseconds,
           time.seconds, time.microseconds, time.seconds, time.microseconds, 1, 0);
}

void fillDateTime(sd_bus_message* message)
{
    append(message, dateTimeFields, time.seconds, time.microseconds, time.seconds,
           time.microseconds, time.seconds, time.microseconds, time.seconds, time.microseconds,
           time.seconds, time.microseconds, 0, shortZone.c_str(), 0, 0, 0);
}

void readTimezone(sd_bus_message* message)
{
    const char* zone = nullptr;
    nubOsalTime_struct when;
    read(message, timezoneFields, zone, when.seconds, when.microseconds);
}

void readReplyTime(sd_bus_message* message)
{
    std::int32_t id;
    std::array<nubOsalTime_struct, 3> times;
    int flag;
    std::int32_t value;
    read(message, replyTimeFields, id, times[0].seconds, times[0].microseconds, times[1].seconds,
         times[1].microseconds, times[2].seconds, times[2].microseconds, flag, value);
}

void readDateTime(sd_bus_message* message)
{
    std::array<nubOsalTime_struct, 5> times;
    std::int32_t value;
    const char* text = nullptr;
    std::array<int, 3> flags;
    read(message, dateTimeFields, times[0].seconds, times[0].microseconds, times[1].seconds,
         times[1].microseconds, times[2].seconds, times[2].microseconds, times[3].seconds,
         times[3].microseconds, times[4].seconds, times[4].microseconds, value, text, flags[0],
         flags[1], flags[2]);
}

using Fill = void (*)(sd_bus_message*);
using Read = void (*)(sd_bus_message*);

Message built(sd_bus* bus, Fill fill)
{
    sd_bus_message* message = nullptr;
    checked(sd_bus_message_new_method_call(bus, &message, interface, path, interface, "Call"),
            "cannot make a message");
    Message owner(message);
    fill(message);
    checked(sd_bus_message_seal(message, 1, 0), "cannot seal");
    return owner;
}

/// An end to build messages for, none of which is sent.
sd_bus* unsent()
{
    static const Ends ends = pairOfEnds();
    return ends.client.get();
}

template <Fill fill>
void build()
{
    keep(*built(unsent(), fill));
}

template <Fill fill, Read readFields>
void decode()
{
    static const Message message = built(unsent(), fill);
    checked(sd_bus_message_rewind(message.get(), 1), "cannot rewind");
    readFields(message.get());
}

/// A service in a thread of its own, and a client that calls it and waits for the reply.
class RoundTrip
{
public:
    RoundTrip(Ends ends, std::string destination)
        : ends_(std::move(ends)), destination_(std::move(destination))
    {
        checked(sd_bus_add_object(ends_.service.get(), nullptr, path, answer, nullptr),
                "cannot offer an object");
        service_ = std::thread([this] { serve(); });
    }

    ~RoundTrip()
    {
        stopped_ = true;
        service_.join();
    }

    RoundTrip(const RoundTrip&) = delete;
    RoundTrip& operator=(const RoundTrip&) = delete;

    void make() const
    {
        sd_bus_message* message = nullptr;
        checked(sd_bus_call_method(ends_.client.get(),
                                   destination_.empty() ? nullptr : destination_.c_str(), path,
                                   interface, "Fetch", nullptr, &message, refTimeIdFields,
                                   std::int32_t{source.id}),
                "got no reply");
        const Message reply(message);
        readReplyTime(message);
    }

private:
    // No exception may pass the C code that calls this.
    static int answer(sd_bus_message* call, void*, sd_bus_error*) noexcept
    {
        std::int32_t id;
        sd_bus_message* message = nullptr;
        read(call, refTimeIdFields, id);
        checked(sd_bus_message_new_method_return(call, &message), "cannot make a reply");
        const Message reply(message);
        fillReplyTime(message);
        return checked(sd_bus_send(nullptr, message, nullptr), "cannot reply");
    }

    void serve() const
    {
        constexpr std::uint64_t microsecondsUntilStopped = 100000;
        while (!stopped_)
            if (checked(sd_bus_process(ends_.service.get(), nullptr), "the client is gone") == 0)
                checked(sd_bus_wait(ends_.service.get(), microsecondsUntilStopped), "cannot wait");
    }

    const Ends ends_;
    const std::string destination_;
    std::atomic<bool> stopped_ = {false};
    std::thread service_;
};

void roundTripOfPeers()
{
    static const RoundTrip roundTrip(pairOfEnds(), "");
    roundTrip.make();
}

void roundTripOverDaemon()
{
    const auto connected = [] {
        const char* const address = std::getenv("CHRONAL_BENCH_BUS");
        Ends ends = {connectedTo(address), connectedTo(address)};
        const char* name = nullptr;
        checked(sd_bus_get_unique_name(ends.service.get(), &name), "got no name from the daemon");
        return std::make_unique<RoundTrip>(std::move(ends), name);
    };
    static const std::unique_ptr<RoundTrip> roundTrip = connected();
    roundTrip->make();
}

// clang-format off
const Peers sdBus = {
    {"send/80-byte", "sd-bus", build<fillRefTimeData>},
    {"send/4-byte", "sd-bus", build<fillRefTimeId>},
    {"send/string", "sd-bus", build<fillLongTimezone>},
    {"receive/64-byte", "sd-bus", decode<fillReplyTime, readReplyTime>},
    {"receive/104-byte", "sd-bus", decode<fillDateTime, readDateTime>},
    {"receive/short-string", "sd-bus", decode<fillShortTimezone, readTimezone>},
    {"receive/long-string", "sd-bus", decode<fillLongTimezone, readTimezone>},
    {"round-trip", "sd-bus", roundTripOfPeers},
};
// clang-format on

/// scripts/bench starts a daemon and gives its address.
const Peers sdBusOverDaemon = std::getenv("CHRONAL_BENCH_BUS")
                                  ? Peers{{"round-trip", "sd-bus-daemon", roundTripOverDaemon}}
                                  : Peers{};

} // namespace
} // namespace bench
