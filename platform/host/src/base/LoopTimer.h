#ifndef FABRIC_HOST_LOOP_TIMER_H
#define FABRIC_HOST_LOOP_TIMER_H

#include <functional>
#include <memory>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "OperationMemory.h"

namespace fabric::host {

/// Calls a function on a loop at a time that can be changed. Setting it never allocates, so it
/// cannot fail. Use it on the loop's thread only.
class LoopTimer
{
public:
    using TimePoint = boost::asio::steady_timer::time_point;

    /// Waits from the start, for a time that never comes, so that Asio allocates its entry here.
    LoopTimer(boost::asio::io_context& loop, std::function<void()> function)
        : state_(std::make_shared<State>(loop, std::move(function)))
    {
        state_->await(state_, TimePoint::max() - std::chrono::hours(1));
    }

    ~LoopTimer()
    {
        state_->cancelled = true;
        state_->timer.cancel();
    }

    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    /// Replaces the time; TimePoint::max() means never. A later time costs nothing until the
    /// earlier one is reached.
    void expireAt(TimePoint when) noexcept
    {
        state_->wanted = when;
        if (when < state_->awaited) {
            state_->awaited = TimePoint::min();
            state_->timer.cancel(); // its handler waits for the new time
        }
    }
    void expireAfter(std::chrono::milliseconds wait) noexcept
    {
        expireAt(TimePoint::clock::now() + wait);
    }
    void cancel() noexcept { expireAt(TimePoint::max()); }

private:
    struct State
    {
        State(boost::asio::io_context& loop, std::function<void()> called)
            : function(std::move(called)), timer(loop)
        {
        }

        void await(const std::shared_ptr<State>& self, TimePoint when)
        {
            awaited = when;
            timer.expires_at(when);
            timer.async_wait(preallocated(
                memory, [self](const boost::system::error_code&) { self->expired(self); }));
        }

        void expired(const std::shared_ptr<State>& self)
        {
            if (cancelled)
                return;
            const bool due = wanted <= TimePoint::clock::now();
            if (due)
                wanted = TimePoint::max();
            await(self, wanted == TimePoint::max() ? wanted - std::chrono::hours(1) : wanted);
            if (due)
                function();
        }

        const std::function<void()> function;
        bool cancelled = false;
        boost::asio::steady_timer timer;
        TimePoint wanted = TimePoint::max();
        TimePoint awaited = TimePoint::max();
        OperationMemory memory;
    };

    const std::shared_ptr<State> state_;
};

} // namespace fabric::host

#endif
