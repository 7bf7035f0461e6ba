#ifndef FABRIC_HOST_INBOX_H
#define FABRIC_HOST_INBOX_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include <fabric-host/Link.h>

namespace fabric {

class ClientInterface;

namespace host {

/// Frames that wait in one direction of one connection, at most.
constexpr std::size_t maxQueuedFrames = 1024;

/// A client to be detached on behalf of a thread that waits for it.
struct DetachRequest
{
    ClientInterface& client;
    bool done;
};

/// One thing for the dispatch thread to do.
struct InboxItem
{
    enum Kind
    {
        frame,      ///< deliver `bytes`
        up,         ///< report the connection
        failed,     ///< report the failure, with `reason`
        down,       ///< report the end, with `reason`
        standing,   ///< report to those attached meanwhile
        detach,     ///< carry out `request`
        endDispatch ///< the last one
    };

    explicit InboxItem(Kind what, int why = 0) : kind(what), reason(why) {}
    explicit InboxItem(FrameBytes&& received) : kind(frame), bytes(std::move(received)) {}
    explicit InboxItem(DetachRequest& detachRequest) : kind(detach), request(&detachRequest) {}

    Kind kind;
    int reason = 0;
    FrameBytes bytes;
    DetachRequest* request = nullptr;
};

/// What waits for the dispatch thread: frames, of which there is a limit, and everything else,
/// which finds a place always; in one order.
class Inbox
{
public:
    /// False when too many wait. Any thread, like push().
    bool pushFrame(FrameBytes bytes)
    {
        if (frames.load(std::memory_order_relaxed) >= maxQueuedFrames)
            return false;
        push(InboxItem(std::move(bytes)));
        return true;
    }

    void push(InboxItem item)
    {
        const bool isFrame = item.kind == InboxItem::frame;
        std::unique_lock<std::mutex> lock(mutex);
        items.push_back(std::move(item));
        if (isFrame)
            ++frames;
        const bool first = items.size() == 1;
        lock.unlock(); // so that the thread that wakes up need not wait for it
        if (first)
            filled.notify_one();
    }

    /// Waits until there is something, and takes it all into `batch`, which is empty.
    void take(std::vector<InboxItem>& batch)
    {
        std::unique_lock<std::mutex> lock(mutex);
        filled.wait(lock, [this] { return !items.empty(); });
        batch.swap(items);
    }

    /// One frame of a batch is no longer waiting.
    void frameTaken() { --frames; }

private:
    std::mutex mutex;
    std::condition_variable filled;
    std::vector<InboxItem> items;
    std::atomic<std::size_t> frames{0}; // waiting, in here or in a batch
};

} // namespace host
} // namespace fabric

#endif
