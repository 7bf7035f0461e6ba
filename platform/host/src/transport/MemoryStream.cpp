#include <fabric-host/Frame.h>

#include <array>
#include <cerrno>
#include <functional>
#include <mutex>
#include <new>
#include <utility>

#include "FrameStream.h"

namespace fabric::host {
namespace {

/// An end is congested when its queue is half full, so that the messages caused by one more command
/// still fit.
constexpr std::size_t congestedFrames = maxQueuedFrames / 2;
constexpr std::size_t congestedBytes = maxQueuedBytes / 2;

/// A larger buffer is freed after a burst; a few frames at a time fit easily in this size.
constexpr std::size_t usualSize = 16 * 1024;

/// The state of one end that the other end uses, too.
struct Side
{
    std::function<void()> wake = [] {}; ///< schedules this end's turn

    std::mutex mutex; ///< guards the members below
    FrameBytes bytes; ///< consecutive frames for this end
    std::size_t frames = 0;
    bool senderWaits = false; ///< for this end to read
    bool closed = false;      ///< nothing more will be sent to this end
    bool refused = false;     ///< this end accepts nothing more
    int reason = 0;           ///< why it was closed
};

/// Carries frames between two threads of this process.
class MemoryStream final : public FrameStream
{
public:
    MemoryStream(boost::asio::io_context& loop, std::shared_ptr<void> sides, Side& here,
                 Side& other)
        : FrameStream(loop), sides_(std::move(sides)), here_(here), other_(other)
    {
        here_.wake = turn_.scheduler();
    }
    ~MemoryStream() override { MemoryStream::close(0); }

    int send(FrameView frame) override
    {
        {
            const std::lock_guard<std::mutex> lock(other_.mutex);
            if (other_.closed || other_.refused)
                return -ENOTCONN;
            if (other_.frames >= maxQueuedFrames ||
                other_.bytes.size() + frame.size > maxQueuedBytes)
                return -EAGAIN;
            try {
                other_.bytes.insert(other_.bytes.end(), frame.data, frame.data + frame.size);
            } catch (const std::bad_alloc&) {
                return -ENOMEM;
            }
            if (other_.frames++ != 0)
                return 0;
        }
        other_.wake();
        return 0;
    }

    void shutdownSend() override { closeSending(0); }
    /// Nothing needs sending: frames stay in memory until the other end reads them.
    std::size_t drain() override { return 0; }
    void close(int reason) override
    {
        open_ = false;
        {
            const std::lock_guard<std::mutex> lock(here_.mutex);
            here_.refused = true;
            FrameBytes().swap(here_.bytes);
            here_.frames = 0;
        }
        closeSending(reason);
    }

    bool isCongested() override
    {
        const std::lock_guard<std::mutex> lock(other_.mutex);
        if (other_.refused || other_.closed ||
            (other_.frames < congestedFrames && other_.bytes.size() < congestedBytes))
            return false;
        other_.senderWaits = true;
        return true;
    }

    bool isOpen() const noexcept override { return open_; }

private:
    bool nextFrame(FrameView& frame) override
    {
        if (begin_ == taken_.size() && !takeQueued())
            return false;
        const std::uint8_t* const start = &taken_[begin_];
        frame = {start, lengthOfFrame(start)};
        begin_ += frame.size;
        return true;
    }

    void awaitInput() override
    {
        int reason = 0;
        {
            // The other end schedules the next turn, unless it has closed.
            const std::lock_guard<std::mutex> lock(here_.mutex);
            if (!here_.closed || here_.frames != 0)
                return;
            reason = here_.reason;
        }
        end(reason);
    }

    bool takeQueued()
    {
        begin_ = 0;
        taken_.clear();
        if (taken_.capacity() > usualSize)
            FrameBytes().swap(taken_);
        bool senderWaits = false;
        {
            const std::lock_guard<std::mutex> lock(here_.mutex);
            here_.bytes.swap(taken_);
            here_.frames = 0;
            senderWaits = std::exchange(here_.senderWaits, false);
        }
        if (senderWaits)
            other_.wake();
        return !taken_.empty();
    }

    /// Wakes the other end, which may also be waiting for room to send.
    void closeSending(int reason)
    {
        {
            const std::lock_guard<std::mutex> lock(other_.mutex);
            if (std::exchange(other_.closed, true))
                return;
            other_.reason = reason;
        }
        other_.wake();
    }

    const std::shared_ptr<void> sides_; ///< keeps the next two alive
    Side& here_;
    Side& other_;
    bool open_ = true;
    FrameBytes taken_; ///< received frames, swapped out of the channel
    std::size_t begin_ = 0;
};

} // namespace

std::pair<std::shared_ptr<FrameStream>, std::shared_ptr<FrameStream>>
newMemoryStreams(boost::asio::io_context& clientLoop, boost::asio::io_context& serviceLoop)
{
    const auto sides = std::make_shared<std::array<Side, 2>>();
    auto& [client, service] = *sides;
    return {std::make_shared<MemoryStream>(clientLoop, sides, client, service),
            std::make_shared<MemoryStream>(serviceLoop, sides, service, client)};
}

} // namespace fabric::host
