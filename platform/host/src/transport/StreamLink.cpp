#include <fabric-host/Frame.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include "../base/Guarded.h"
#include "../base/Log.h"
#include "FrameStream.h"

namespace fabric::host {
namespace {

/// Short at first, to find a restarted service soon; longer later, so that an absent one costs
/// little.
constexpr std::chrono::milliseconds firstDelay(50);
constexpr std::chrono::milliseconds longestDelay(2000);

class StreamLink final : public Link, private FrameListener
{
public:
    StreamLink(Connector connector, bool reconnects)
        : connector_(std::move(connector)), reconnects_(reconnects)
    {
    }

    void open(boost::asio::io_context& loop, LinkListener& listener) override
    {
        loop_ = &loop;
        listener_ = &listener;
        if (!reconnects_)
            return connect();
        retry_.emplace(loop, [this] { attempt(); });
        delay_ = firstDelay;
        reported_ = 0;
        attempt();
    }

    void close() override
    {
        retry_.reset();
        const std::shared_ptr<FrameStream> stream = exchange(nullptr);
        if (!stream)
            return;
        stream->deliverReceived();
        if (const std::size_t unsent = stream->drain())
            log(logError, "fabric-host: %zu messages not sent before the connection was closed\n",
                unsent);
        stream->close(0);
    }

    int send(FrameView frame) override
    {
        if (!isFrameLength(frame.size) || lengthOfFrame(frame.data) != frame.size)
            return -EBADMSG; // the other end would lose the frame boundaries
        const std::lock_guard<std::mutex> lock(mutex_);
        return stream_ ? stream_->send(frame) : -ENOTCONN;
    }

    bool reconnects() const noexcept override { return reconnects_; }

private:
    bool frameReceived(FrameView frame) override
    {
        if (!listener_->frameReceived(frame))
            return false;
        delay_ = firstDelay; // a peer that sends anything else is retried less and less often
        return true;
    }

    void ended(int reason) override
    {
        exchange(nullptr);
        listener_->linkDown(reason);
        if (reconnects_)
            retry();
    }

    /// Brings the link up. Commands can be sent before the listener is notified; replies come
    /// after.
    void connect()
    {
        const std::shared_ptr<FrameStream> stream = connector_(*loop_);
        reported_ = 0;
        exchange(stream);
        listener_->linkUp();
        if (stream->isOpen())
            stream->start(*this);
    }

    void attempt()
    {
        callGuarded([this] { connect(); },
                    [this](const char*) {
                        const int error = currentError(ENOMEM);
                        if (error != reported_)
                            listener_->linkFailed(error);
                        reported_ = error;
                        retry();
                    });
    }

    void retry()
    {
        retry_->expireAfter(delay_);
        delay_ = std::min(2 * delay_, longestDelay);
    }

    std::shared_ptr<FrameStream> exchange(std::shared_ptr<FrameStream> stream) noexcept
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(stream_, std::move(stream));
    }

    const Connector connector_;
    const bool reconnects_;
    boost::asio::io_context* loop_ = nullptr;
    LinkListener* listener_ = nullptr;
    std::optional<LoopTimer> retry_; ///< set while a link that reconnects is open
    std::chrono::milliseconds delay_ = firstDelay;
    int reported_ = 0; ///< error number of the last failure, 0 after a success

    std::mutex mutex_;
    std::shared_ptr<FrameStream> stream_; ///< null while the link is down; guarded by mutex_
};

} // namespace

std::unique_ptr<Link> newStreamLink(Connector connector, bool reconnects)
{
    return std::make_unique<StreamLink>(std::move(connector), reconnects);
}

} // namespace fabric::host
