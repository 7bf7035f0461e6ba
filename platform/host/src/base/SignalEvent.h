#ifndef FABRIC_HOST_SIGNAL_EVENT_H
#define FABRIC_HOST_SIGNAL_EVENT_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace fabric::host {

/// Signals of the process as a descriptor that becomes readable; one object at a time. Asio's
/// signal_set cannot be used again after it has run out of memory.
class SignalEvent
{
public:
    /// Throws with no signal changed.
    SignalEvent(boost::asio::io_context& loop, std::initializer_list<int> signals)
        : SignalEvent(loop)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {
            const int savedError = errno;
            const std::uint64_t one = 1;
            static_cast<void>(::write(event(), &one, sizeof(one)) == 0);
            errno = savedError;
        };
        action.sa_flags = SA_RESTART;
        former_.reserve(signals.size());
        for (const int number : signals) {
            struct sigaction former = {};
            if (::sigaction(number, &action, &former) != 0)
                throw std::system_error(errno, std::generic_category(), "sigaction");
            former_.emplace_back(number, former);
        }
    }

    ~SignalEvent()
    {
        for (const auto& [number, former] : former_)
            ::sigaction(number, &former, nullptr);
        descriptor_.release(); // a handler may still be running
    }

    SignalEvent(const SignalEvent&) = delete;
    SignalEvent& operator=(const SignalEvent&) = delete;

    boost::asio::posix::stream_descriptor& descriptor() noexcept { return descriptor_; }

    /// How many signals have come since it was last asked.
    int take() noexcept
    {
        std::uint64_t count = 0;
        return ::read(event(), &count, sizeof(count)) > 0 ? static_cast<int>(count) : 0;
    }

private:
    /// If the public constructor throws, the destructor runs nevertheless.
    explicit SignalEvent(boost::asio::io_context& loop) : descriptor_(loop, event()) {}

    static int event()
    {
        static const int theEvent = [] {
            const int made = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
            if (made < 0)
                throw std::system_error(errno, std::generic_category(), "eventfd");
            return made;
        }();
        return theEvent;
    }

    boost::asio::posix::stream_descriptor descriptor_;
    std::vector<std::pair<int, struct sigaction>> former_; ///< actions
};

} // namespace fabric::host

#endif
