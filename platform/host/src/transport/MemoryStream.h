#ifndef FABRIC_HOST_MEMORY_STREAM_H
#define FABRIC_HOST_MEMORY_STREAM_H

#include <atomic>
#include <memory>
#include <mutex>

#include "FrameStream.h"

namespace fabric {
namespace host {

/// What two ends in one process share. Each direction is a queue of frames.
struct MemoryChannel
{
    struct Direction
    {
        std::mutex mutex; ///< guards the frames and what becomes of them
        FrameBytes bytes; ///< frames, one after the other
        std::size_t frames = 0;
        bool senderWaits = false; ///< until the frames are taken
        bool closed = false;      ///< nothing more will be sent
        bool refused = false;     ///< nothing more will be taken
        int reason = 0;           ///< why it was closed
    };

    /// Wakes the loop of one end. Apart from the frames, so that whoever is woken up need not wait
    /// for a mutex of the one that wakes it.
    struct End
    {
        void wake() noexcept
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (turn)
                turn->schedule();
        }

        std::mutex mutex;
        LoopTask* turn = nullptr; ///< null until the end is there, and once it has closed
    };

    Direction toService;
    Direction toClient;
    End service;
    End client;
};

/// Frames between two threads of this process.
class MemoryStream final : public FrameStream
{
public:
    enum Side
    {
        clientSide,
        serviceSide ///< throttled
    };

    MemoryStream(boost::asio::io_context& loop, std::shared_ptr<MemoryChannel> channel, Side side);
    ~MemoryStream() override;

    /// Closes the service's end of a channel that it does not take.
    static void refuse(MemoryChannel& channel, int reason);

    int send(FrameView frame) override;
    void shutdownSend() override;
    /// Frames that were sent stay in memory until the other end takes them.
    std::size_t drain() override { return 0; }
    void close(int reason) override;
    bool isOpen() const noexcept override { return open_; }

private:
    bool nextFrame(FrameView& frame) override;
    void awaitInput() override;
    bool isCongested() override;

    bool takeQueued();
    static void closeSending(MemoryChannel::Direction& outgoing, MemoryChannel::End& other,
                             int reason);
    static void closeReceiving(MemoryChannel::Direction& incoming);

    const std::shared_ptr<MemoryChannel> channel_;
    MemoryChannel::Direction& in_;
    MemoryChannel::Direction& out_;
    MemoryChannel::End& here_;
    MemoryChannel::End& other_;
    std::atomic<bool> open_{true};
    FrameBytes taken_; ///< from the channel
    std::size_t begin_ = 0;
};

} // namespace host
} // namespace fabric

#endif
