#ifndef FABRIC_HOST_WORK_QUEUE_H
#define FABRIC_HOST_WORK_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include <fabric-host/Link.h>

#include "WakeUp.h"

namespace fabric {
namespace host {

/// Frames of one connection that wait in one direction, at most; those that have been taken to be
/// worked off do not count any more.
constexpr std::size_t maxQueuedFrames = 1024;

/// For a frame that is of no use any more but as memory for the next one: gives that back if it is
/// much.
inline void recycle(FrameBytes& frame) noexcept
{
    constexpr std::size_t much = 512;
    if (frame.capacity() > much)
        FrameBytes().swap(frame);
}

/// What waits for one thread to do it, in order. An item that has been done is filled in again,
/// so that messages in the flow allocate nothing.
template <typename Item>
class WorkQueue
{
public:
    typedef WakeUp::TimePoint TimePoint;

    /// Items that have been taken, to be walked through. Belongs to the thread that takes them.
    class Batch
    {
    public:
        Item* begin() noexcept { return items.data(); }
        Item* end() noexcept { return items.data() + count; }

    private:
        friend class WorkQueue;
        std::vector<Item> items; // those behind the first `count` have been done
        std::size_t count = 0;
    };

    /// How many frames of one sender wait. Of use to one queue only.
    class Quota
    {
        friend class WorkQueue;
        std::uint64_t batch = 0; // that `frames` belong to
        std::size_t frames = 0;
    };

    /// Has `fill` fill in the next item; there is none if it throws. Any thread.
    template <typename Fill>
    void push(Fill fill)
    {
        std::unique_lock<std::mutex> lock(mutex);
        append(lock, fill);
    }

    /// The same with a frame. False when too many of the sender's wait.
    template <typename Fill>
    bool push(Quota& sender, Fill fill)
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (std::exchange(sender.batch, batches) != batches)
            sender.frames = 0;
        if (sender.frames == maxQueuedFrames)
            return false;
        append(lock, [&](Item& item) {
            fill(item);
            ++sender.frames;
        });
        return true;
    }

    /// Takes nothing in from now on. Any thread.
    void close()
    {
        std::unique_lock<std::mutex> lock(mutex);
        closed = true;
        wakeTaker(lock);
    }

    /// Waits for items until `until`, and takes them all into `batch`, whose own are done. False
    /// once the queue is closed and nothing is left.
    bool take(Batch& batch, TimePoint until = TimePoint::max())
    {
        bool late = false;
        std::unique_lock<std::mutex> lock(mutex);
        while (waiting.count == 0 && !closed && !late) {
            asleep = true;
            lock.unlock();
            late = !wakeUp.wait(until);
            lock.lock();
        }
        asleep = false;
        batch.count = 0;
        std::swap(batch, waiting);
        ++batches;
        return batch.count != 0 || !closed;
    }

private:
    /// Gives up the lock.
    template <typename Fill>
    void append(std::unique_lock<std::mutex>& lock, Fill fill)
    {
        if (closed)
            return;
        if (waiting.count == waiting.items.size())
            waiting.items.emplace_back();
        fill(waiting.items[waiting.count]);
        ++waiting.count;
        wakeTaker(lock);
    }

    /// Gives up the lock, too, so that the thread that wakes up need not wait for it.
    void wakeTaker(std::unique_lock<std::mutex>& lock)
    {
        const bool wanted = std::exchange(asleep, false);
        lock.unlock();
        if (wanted)
            wakeUp.post();
    }

    WakeUp wakeUp;
    std::mutex mutex; // guards what follows
    bool asleep = false;
    Batch waiting;
    std::uint64_t batches = 0; // taken
    bool closed = false;
};

} // namespace host
} // namespace fabric

#endif
