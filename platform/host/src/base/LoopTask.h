#ifndef FABRIC_HOST_LOOP_TASK_H
#define FABRIC_HOST_LOOP_TASK_H

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "OperationMemory.h"

namespace fabric::host {

/// Runs a function on a loop at the request of any thread. Requests made before it runs result in
/// one run. Scheduling never allocates, so it cannot fail.
class LoopTask
{
public:
    LoopTask(boost::asio::io_context& loop, std::function<void()> function)
        : loop_(loop), state_(std::make_shared<State>())
    {
        state_->function = std::move(function);
    }

    /// Cancels a scheduled run. Call it on the loop's thread, or when no thread runs the loop.
    ~LoopTask() { state_->cancelled = true; }

    LoopTask(const LoopTask&) = delete;
    LoopTask& operator=(const LoopTask&) = delete;

    /// Thread-safe while the task exists.
    void schedule() noexcept
    {
        if (state_->setScheduled(true))
            return;
        boost::asio::post(loop_, preallocated(state_->memory, [state = state_] {
                              state->setScheduled(false);
                              if (!state->cancelled)
                                  state->function();
                          }));
    }

private:
    struct State
    {
        /// Returns the previous value. The mutex also orders the threads' access to `memory`.
        bool setScheduled(bool now) noexcept
        {
            const std::lock_guard<std::mutex> lock(mutex);
            return std::exchange(scheduled, now);
        }

        std::function<void()> function;
        bool cancelled = false;
        std::mutex mutex;
        bool scheduled = false;
        OperationMemory memory;
    };

    boost::asio::io_context& loop_;
    const std::shared_ptr<State> state_;
};

} // namespace fabric::host

#endif
