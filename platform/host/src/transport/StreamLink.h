#ifndef FABRIC_HOST_STREAM_LINK_H
#define FABRIC_HOST_STREAM_LINK_H

#include <memory>
#include <mutex>

#include <fabric-host/Link.h>

#include "FrameStream.h"

namespace fabric::host {

/// Implements a link over a FrameStream.
class StreamLink : public Link, protected FrameListener
{
public:
    void close() override;
    int send(FrameView frame) final;

protected:
    void setListener(LinkListener& listener) noexcept { listener_ = &listener; }
    LinkListener& listener() const noexcept { return *listener_; }

    /// Brings the link up. Commands can be sent before the listener is notified; replies come
    /// after.
    void connected(const std::shared_ptr<FrameStream>& stream);

    bool frameReceived(FrameView frame) override;
    void ended(int reason) override;

private:
    std::shared_ptr<FrameStream> exchange(std::shared_ptr<FrameStream> stream) noexcept;

    LinkListener* listener_ = nullptr;
    std::mutex mutex_;
    std::shared_ptr<FrameStream> stream_; ///< null while the link is down
};

} // namespace fabric::host

#endif
