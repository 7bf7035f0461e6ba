// How long clients wait for their answers while another one sends zone changes as fast as it can,
// of each of which everybody is notified, and how long without it.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <deque>

#include <chronal-sim/Start.h>

#include "Client.h"

namespace {

using bench::Turn;

constexpr std::size_t others = 20;
constexpr std::size_t bytesPerWrite = 64 * 1024;

/// Zone changes, each to another zone than the one before, as they go over the socket.
std::vector<std::uint8_t> zoneChanges()
{
    using namespace chronal::sim;
    std::vector<std::uint8_t> bytes;
    for (bool east = true; bytes.size() < bytesPerWrite; east = !east) {
        const auto frame =
            bench::encoded(*bench::newEvent(compose(cmdTimezoneSet, [&](auto& record) {
                copyText(record.timezone, east ? "Asia/Tokyo" : "America/Lima");
            })));
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    return bytes;
}

/// Sends `bytes` again and again and reads all answers. In a process that was forked from one with
/// threads, so it makes system calls only.
void flood(const sockaddr_un& address, const std::vector<std::uint8_t>& bytes)
{
    std::array<std::uint8_t, bytesPerWrite> ignored;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    pollfd state = {socket, POLLIN | POLLOUT, 0};
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return;
    for (std::size_t sent = 0; ::poll(&state, 1, -1) > 0 && (state.revents & POLLHUP) == 0;) {
        if ((state.revents & POLLIN) != 0)
            ::recv(socket, ignored.data(), ignored.size(), MSG_DONTWAIT);
        if ((state.revents & POLLOUT) == 0)
            continue;
        const ssize_t count =
            ::send(socket, &bytes[sent], bytes.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        sent = (sent + static_cast<std::size_t>(std::max<ssize_t>(count, 0))) % bytes.size();
    }
}

typedef std::deque<bench::Application<bench::Asker>> Askers;

/// Nanoseconds from question to answer, of all clients, each of which asks again at once.
std::vector<double> waits(Askers& askers)
{
    std::deque<Turn> turns;
    for (auto& asker : askers)
        asker.adapter.start(turns.emplace_back(1));
    std::vector<double> all;
    for (Turn& turn : turns) {
        turn.awaitLast();
        const std::vector<double> each = turn.nanoseconds();
        all.insert(all.end(), each.begin(), each.end());
    }
    return all;
}

void measure(const std::string& directory, int rounds)
{
    const std::string path = directory + "/socket";
    const bench::Child service([&] { bench::serve(path); });
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const std::vector<std::uint8_t> bytes = zoneChanges();
    Askers askers;
    while (askers.size() < others)
        askers.emplace_back(chronal::sim::start({path}));

    std::vector<double> without[2], with[2], ratios;
    for (int round = 0; round < rounds; ++round) {
        const std::vector<double> alone = waits(askers);
        const bench::Child flooding([&] { flood(address, bytes); });
        const std::vector<double> flooded = waits(askers);
        for (const int i : {0, 1}) {
            without[i].push_back(bench::quantile(alone, i ? 0.99 : 0.5));
            with[i].push_back(bench::quantile(flooded, i ? 0.99 : 0.5));
        }
        ratios.push_back(with[1].back() / without[1].back());
    }
    const auto us = [](const std::vector<double>& each) { return bench::median(each) / 1000; };
    std::printf("{\"clients\": %zu, \"median_us\": %.1f, \"p99_us\": %.1f, \"flooded_median_us\": "
                "%.1f, \"flooded_p99_us\": %.1f, \"p99_ratio\": %.2f}\n",
                others, us(without[0]), us(without[1]), us(with[0]), us(with[1]),
                bench::median(ratios));
}

} // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, measure); }
