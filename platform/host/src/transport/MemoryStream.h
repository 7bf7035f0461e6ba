#ifndef FABRIC_HOST_MEMORY_STREAM_H
#define FABRIC_HOST_MEMORY_STREAM_H

#include <atomic>
#include <memory>
#include <utility>

#include "FrameStream.h"

namespace fabric::host {

/// Frames between two threads of this process.
class MemoryStream final : public FrameStream
{
    struct Side;
    struct Channel;

public:
    /// The two ends of a new connection: the client's, and the service's, which is throttled. Any
    /// thread; an end may be destroyed here as long as neither has sent anything.
    static std::pair<std::shared_ptr<FrameStream>, std::shared_ptr<FrameStream>>
    newPair(boost::asio::io_context& clientLoop, boost::asio::io_context& serviceLoop);

    /// For newPair().
    MemoryStream(boost::asio::io_context& loop, Flow flow, std::shared_ptr<Channel> channel,
                 Side& here, Side& other);
    ~MemoryStream() override;

    int send(FrameView frame) override;
    void shutdownSend() override { closeSending(0); }
    /// Frames that were sent stay in memory until the other end takes them.
    std::size_t drain() override { return 0; }
    void close(int reason) override;
    bool isCongested() override;
    bool isOpen() const noexcept override { return open_; }

private:
    bool nextFrame(FrameView& frame) override;
    void awaitInput() override;

    bool takeQueued();
    void closeSending(int reason);

    const std::shared_ptr<Channel> channel_;
    Side& here_;
    Side& other_;
    std::atomic<bool> open_{true};
    FrameBytes taken_; ///< from the channel
    std::size_t begin_ = 0;
};

} // namespace fabric::host

#endif
