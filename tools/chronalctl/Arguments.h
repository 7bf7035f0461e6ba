#ifndef CHRONALCTL_ARGUMENTS_H
#define CHRONALCTL_ARGUMENTS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <chronal/ReferenceTimeId.h>
#include <nub/Osal.h>

namespace chronal::ctl {

/// The command line's values. Only one command runs, so all commands share them.
struct Arguments
{
    std::string command;                      ///< its words, such as "timezone set"
    std::map<std::string, std::string> texts; ///< the command's arguments as typed, by their names

    // Options of the program.
    std::string socket; ///< empty for the simulated service in this process
    bool json = false;
    std::chrono::microseconds timeout = std::chrono::seconds(5); ///< enough to restart a service

    // Arguments of one command or another.
    ReferenceTimeId source;
    nubOsalTime_struct time = {};
    nubOsalTime_struct end = {};
    nubOsalTime_struct deviation = {};
    nubOsalTime_struct deviationAfter = {};
    int value = 0;
    bool negate = false;
    bool on = true;
    bool show = false;                 ///< instead of switching on or off
    std::optional<bool> later;         ///< or the earlier moment, where the clocks change
    std::optional<std::string> occurs; ///< how often a local time does
    std::string text;
    std::vector<std::string> remarks; ///< on the times

    // Options of "settings set", which has to know which were given.
    std::array<std::optional<nubOsalTime_struct>, 4> times;
    std::optional<int> number;
    std::optional<std::string> server;

    // Arguments of a monitor.
    std::vector<ReferenceTimeId> sources;
    std::optional<std::chrono::microseconds> duration;
    std::optional<std::uint64_t> count;
    bool timestamps = false;
};

} // namespace chronal::ctl

#endif
