#ifndef CHRONALCTL_OPTIONS_H
#define CHRONALCTL_OPTIONS_H

#include <chrono>
#include <string>

namespace chronal::ctl {

/// What may be said with every command.
struct Options
{
    std::string socket; ///< empty for the simulated service in this process
    bool json = false;
    std::chrono::microseconds timeout = std::chrono::seconds(5);
};

} // namespace chronal::ctl

#endif
