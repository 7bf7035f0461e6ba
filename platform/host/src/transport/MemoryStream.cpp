#include "MemoryStream.h"

#include <fabric-host/Frame.h>

#include <cerrno>
#include <new>
#include <utility>

namespace fabric {
namespace host {
namespace {

/// A side that answers stops to read when so much waits: what one more command brings about then
/// still has a place.
constexpr std::size_t congestedFrames = maxQueuedFrames / 2;
constexpr std::size_t congestedBytes = maxQueuedBytes / 2;

/// More is not kept for the frames to come.
constexpr std::size_t usualSize = 16 * 1024;

} // namespace

MemoryStream::MemoryStream(boost::asio::io_context& loop, std::shared_ptr<MemoryChannel> channel,
                           Side side)
    : FrameStream(loop, side == serviceSide ? throttled : freeFlow),
      channel_(std::move(channel)),
      in_(side == serviceSide ? channel_->toService : channel_->toClient),
      out_(side == serviceSide ? channel_->toClient : channel_->toService),
      here_(side == serviceSide ? channel_->service : channel_->client),
      other_(side == serviceSide ? channel_->client : channel_->service)
{
    const std::lock_guard<std::mutex> lock(here_.mutex);
    here_.turn = &turn_;
}

MemoryStream::~MemoryStream()
{
    MemoryStream::close(0);
}

int MemoryStream::send(FrameView frame)
{
    {
        const std::lock_guard<std::mutex> lock(out_.mutex);
        if (out_.closed || out_.refused)
            return -ENOTCONN;
        if (out_.frames >= maxQueuedFrames || out_.bytes.size() + frame.size > maxQueuedBytes)
            return -EAGAIN;
        try {
            out_.bytes.insert(out_.bytes.end(), frame.data, frame.data + frame.size);
        } catch (const std::bad_alloc&) {
            return -ENOMEM;
        }
        if (out_.frames++ != 0)
            return 0;
    }
    other_.wake();
    return 0;
}

bool MemoryStream::nextFrame(FrameView& frame)
{
    if (begin_ == taken_.size() && !takeQueued())
        return false;
    const std::uint8_t* const start = &taken_[begin_];
    frame = {start, lengthOfFrame(start)};
    begin_ += frame.size;
    return true;
}

bool MemoryStream::takeQueued()
{
    begin_ = 0;
    taken_.clear();
    if (taken_.capacity() > usualSize)
        FrameBytes().swap(taken_);
    bool senderWaits = false;
    {
        const std::lock_guard<std::mutex> lock(in_.mutex);
        in_.bytes.swap(taken_);
        in_.frames = 0;
        senderWaits = std::exchange(in_.senderWaits, false);
    }
    if (senderWaits)
        other_.wake();
    return !taken_.empty();
}

void MemoryStream::awaitInput()
{
    int reason = 0;
    {
        // The other end schedules the next turn, unless it has closed.
        const std::lock_guard<std::mutex> lock(in_.mutex);
        if (!in_.closed || in_.frames != 0)
            return;
        reason = in_.reason;
    }
    end(reason);
}

bool MemoryStream::isCongested()
{
    const std::lock_guard<std::mutex> lock(out_.mutex);
    if (out_.refused || out_.closed ||
        (out_.frames < congestedFrames && out_.bytes.size() < congestedBytes))
        return false;
    out_.senderWaits = true;
    return true;
}

void MemoryStream::shutdownSend()
{
    closeSending(out_, other_, 0);
}

void MemoryStream::close(int reason)
{
    open_ = false;
    {
        const std::lock_guard<std::mutex> lock(here_.mutex);
        here_.turn = nullptr;
    }
    closeReceiving(in_);
    closeSending(out_, other_, reason);
}

void MemoryStream::refuse(MemoryChannel& channel, int reason)
{
    closeReceiving(channel.toService);
    closeSending(channel.toClient, channel.client, reason);
}

/// Wakes the other end, which also looks again for room to send.
void MemoryStream::closeSending(MemoryChannel::Direction& outgoing, MemoryChannel::End& other,
                                int reason)
{
    {
        const std::lock_guard<std::mutex> lock(outgoing.mutex);
        if (std::exchange(outgoing.closed, true))
            return;
        outgoing.reason = reason;
    }
    other.wake();
}

void MemoryStream::closeReceiving(MemoryChannel::Direction& incoming)
{
    const std::lock_guard<std::mutex> lock(incoming.mutex);
    incoming.refused = true;
    FrameBytes().swap(incoming.bytes);
    incoming.frames = 0;
}

} // namespace host
} // namespace fabric
