#include "FrameStream.h"

#include <cerrno>
#include <new>

namespace fabric::host {
namespace {

/// Longer than a handful of commands take, so that few turns are cut short, and short enough that
/// many busy streams each wait no longer than a person notices.
constexpr std::chrono::microseconds turnLength(50);

} // namespace

void FrameStream::start(FrameListener& listener)
{
    listener_ = &listener;
    turn_.schedule();
}

void FrameStream::takeTurn()
{
    if (!listener_) // the other end has been faster than start()
        return;
    const std::shared_ptr<FrameStream> self = shared_from_this(); // the listener may drop it
    const auto end = std::chrono::steady_clock::now() + turnLength;
    try {
        FrameView frame = {nullptr, 0};
        while (isOpen() && !(flow_ == throttled && isCongested()) && listener_->mayRead()) {
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
    // What is held is at most what was taken from a full queue, and another one.
    FrameView frame = {nullptr, 0};
    try {
        for (std::size_t i = 0; i < 2 * maxQueuedFrames && isOpen() && listener_; ++i)
            if (!nextFrame(frame) || !listener_->frameReceived(frame))
                return;
    } catch (const std::bad_alloc&) { // ends the connection, which is about to be closed anyway
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
