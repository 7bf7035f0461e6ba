#ifndef FABRIC_HOST_MEMORY_STREAM_H
#define FABRIC_HOST_MEMORY_STREAM_H

#include <memory>
#include <utility>

#include "FrameStream.h"

namespace fabric::host {

/// Carries frames between two threads of this process.
class MemoryStream final : public FrameStream
{
    struct Side;

public:
    /// Creates the two ends of a connection: the client's and the service's. Thread-safe.
    /// The caller may destroy an end on this thread until either has sent something.
    static std::pair<std::shared_ptr<FrameStream>, std::shared_ptr<FrameStream>>
    newPair(boost::asio::io_context& clientLoop, boost::asio::io_context& serviceLoop);

    /// Called by newPair() only.
    MemoryStream(boost::asio::io_context& loop, std::shared_ptr<void> sides, Side& here,
                 Side& other);
    ~MemoryStream() override;

    int send(FrameView frame) override;
    void shutdownSend() override { closeSending(0); }
    /// Nothing needs sending: frames stay in memory until the other end reads them.
    std::size_t drain() override { return 0; }
    void close(int reason) override;
    bool isCongested() override;
    bool isOpen() const noexcept override { return open_; }

private:
    bool nextFrame(FrameView& frame) override;
    void awaitInput() override;

    bool takeQueued();
    void closeSending(int reason);

    const std::shared_ptr<void> sides_; ///< keeps the next two alive
    Side& here_;
    Side& other_;
    bool open_ = true;
    FrameBytes taken_; ///< received frames, swapped out of the channel
    std::size_t begin_ = 0;
};

} // namespace fabric::host

#endif
