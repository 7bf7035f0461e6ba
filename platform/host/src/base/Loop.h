#ifndef FABRIC_HOST_LOOP_H
#define FABRIC_HOST_LOOP_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <new>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

// What runs on a loop is started without allocating, so that starting it cannot fail.

namespace fabric::host {

/// Provides the memory of one asynchronous operation at a time. Asio frees it before it calls the
/// operation's handler.
class OperationMemory final : public std::pmr::memory_resource
{
private:
    void* do_allocate(std::size_t size, std::size_t) override
    {
        if (used_ || size > sizeof(storage_))
            return ::operator new(size);
        used_ = true;
        return storage_;
    }

    void do_deallocate(void* memory, std::size_t, std::size_t) override
    {
        if (memory == storage_)
            used_ = false;
        else
            ::operator delete(memory);
    }

    bool do_is_equal(const memory_resource& other) const noexcept override
    {
        return this == &other;
    }

    alignas(std::max_align_t) unsigned char storage_[320]; // Boost 1.74 needs up to 200 bytes
    bool used_ = false;
};

/// A completion handler whose operation Asio allocates from `memory`.
template <typename Function>
struct PreallocatedHandler
{
    using allocator_type = std::pmr::polymorphic_allocator<std::byte>;
    allocator_type get_allocator() const noexcept { return memory; }

    template <typename... Arguments>
    void operator()(Arguments&&... arguments)
    {
        function(std::forward<Arguments>(arguments)...);
    }

    OperationMemory* memory;
    Function function;
};

/// `memory` outlives the operation.
template <typename Function>
PreallocatedHandler<Function> preallocated(OperationMemory& memory, Function function)
{
    return {&memory, std::move(function)};
}

/// Runs a function on a loop at the request of any thread. Requests made before it runs result in
/// one run.
class LoopTask
{
public:
    LoopTask(boost::asio::io_context& loop, std::function<void()> function)
        : state_(std::make_shared<State>(loop, std::move(function)))
    {
    }

    /// Cancels a scheduled run. Call it on the loop's thread, or when no thread runs the loop.
    ~LoopTask()
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        state_->ended = true;
    }

    LoopTask(const LoopTask&) = delete;
    LoopTask& operator=(const LoopTask&) = delete;

    /// Thread-safe while the task exists.
    void schedule() noexcept { schedule(state_); }

    /// Returns a function that does the same and may outlive the task and its loop.
    std::function<void()> scheduler() const
    {
        return [state = state_] { schedule(state); };
    }

private:
    struct State
    {
        State(boost::asio::io_context& where, std::function<void()> called)
            : loop(where), function(std::move(called))
        {
        }

        boost::asio::io_context& loop;
        const std::function<void()> function;
        std::atomic<bool> scheduled{false}; ///< also orders the threads' access to `memory`
        std::mutex mutex;                   ///< guards the use of `loop`, and `ended`
        bool ended = false;
        OperationMemory memory;
    };

    static void schedule(const std::shared_ptr<State>& state) noexcept
    {
        if (state->scheduled.exchange(true))
            return;
        const std::lock_guard<std::mutex> lock(state->mutex);
        if (!state->ended)
            boost::asio::post(state->loop, preallocated(state->memory, [state] {
                                  state->scheduled = false;
                                  if (!state->ended) // is set on this thread
                                      state->function();
                              }));
    }

    const std::shared_ptr<State> state_;
};

/// Calls a function on a loop at a time that can be changed. Use it on the loop's thread only.
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
        state_->ended = true;
        state_->cancelWait();
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
            state_->cancelWait(); // its handler waits for the new time
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

        void cancelWait() noexcept
        {
            boost::system::error_code ignored; // it is never set
            timer.cancel(ignored);
        }

        void expired(const std::shared_ptr<State>& self)
        {
            if (ended)
                return;
            const bool due = wanted <= TimePoint::clock::now();
            if (due)
                wanted = TimePoint::max();
            await(self, wanted == TimePoint::max() ? wanted - std::chrono::hours(1) : wanted);
            if (due)
                function();
        }

        const std::function<void()> function;
        bool ended = false;
        boost::asio::steady_timer timer;
        TimePoint wanted = TimePoint::max();
        TimePoint awaited = TimePoint::max();
        OperationMemory memory;
    };

    const std::shared_ptr<State> state_;
};

} // namespace fabric::host

#endif
