#include "FrameStream.h"

#include <cerrno>
#include <new>

namespace fabric::host {
namespace {

/// Longer than a handful of commands needs, so that few turns are cut short, and short enough that
/// nobody notices the wait even among many busy streams.
constexpr std::chrono::microseconds turnLength(50);

} // namespace

void FrameStream::start(FrameListener& listener)
{
    listener_ = &listener;
    turn_.schedule();
}

void FrameStream::takeTurn()
{
    // The other end may send something before start(), and the listener is gone after close().
    if (!listener_ || !isOpen())
        return;
    const std::shared_ptr<FrameStream> self = shared_from_this(); // the listener may release it
    const auto end = std::chrono::steady_clock::now() + turnLength;
    try {
        FrameView frame = {nullptr, 0};
        while (isOpen() && listener_->mayRead()) {
            if (!nextFrame(frame)) {
                awaitInput();
                break;
            }
            if (!listener_->frameReceived(frame))
                return this->end(EBADMSG);
            if (std::chrono::steady_clock::now() >= end) {
                turn_.schedule();
                break;
            }
        }
        listener_->turnEnded();
    } catch (const std::bad_alloc&) {
        this->end(ENOMEM);
    }
}

void FrameStream::deliverReceived()
{
    // At most two full queues are waiting: one already swapped out, and another behind it.
    FrameView frame = {nullptr, 0};
    try {
        for (std::size_t i = 0; i < 2 * maxQueuedFrames && isOpen() && listener_; ++i)
            if (!nextFrame(frame) || !listener_->frameReceived(frame))
                return;
    } catch (const std::bad_alloc&) { // the connection is about to be closed anyway
    }
}

void FrameStream::end(int reason)
{
    if (!isOpen())
        return;
    close(reason);
    listener_->ended(reason);
}

} // namespace fabric::host
