#include "StreamLink.h"

#include <cerrno>
#include <utility>

#include <fabric-host/Frame.h>

#include "../base/Log.h"

namespace fabric::host {

void StreamLink::connected(const std::shared_ptr<FrameStream>& stream)
{
    exchange(stream);
    listener_->linkUp();
    if (stream->isOpen())
        stream->start(*this);
}

void StreamLink::close()
{
    const std::shared_ptr<FrameStream> stream = exchange(nullptr);
    if (!stream)
        return;
    stream->deliverReceived();
    if (const std::size_t unsent = stream->drain())
        log(logError, "fabric-host: %zu messages not sent before the connection was closed\n",
            unsent);
    stream->close(0);
}

int StreamLink::send(FrameView frame)
{
    if (!isFrameLength(frame.size) || lengthOfFrame(frame.data) != frame.size)
        return -EBADMSG; // the other end would lose the frame boundaries
    const std::lock_guard<std::mutex> lock(mutex_);
    return stream_ ? stream_->send(frame) : -ENOTCONN;
}

bool StreamLink::frameReceived(FrameView frame) { return listener_->frameReceived(frame); }

void StreamLink::ended(int reason)
{
    exchange(nullptr);
    listener_->linkDown(reason);
}

std::shared_ptr<FrameStream> StreamLink::exchange(std::shared_ptr<FrameStream> stream) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(stream_, std::move(stream));
}

} // namespace fabric::host
