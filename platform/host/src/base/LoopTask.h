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

/// A function that any thread can have run on a loop. However often it is scheduled before it runs,
/// it runs once. Scheduling needs no memory, so it always succeeds.
class LoopTask
{
public:
    LoopTask(boost::asio::io_context& loop, std::function<void()> function)
        : loop_(loop), state_(std::make_shared<State>())
    {
        state_->function = std::move(function);
    }

    /// On the loop's thread, or when none runs the loop any more. A scheduled task does not run.
    ~LoopTask() { state_->cancelled = true; }

    LoopTask(const LoopTask&) = delete;
    LoopTask& operator=(const LoopTask&) = delete;

    /// Any thread, as long as the task lives.
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
        /// Returns what it was. With the mutex goes the operation's memory from thread to thread.
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
