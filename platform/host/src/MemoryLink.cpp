#include "MemoryLink.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <thread>
#include <utility>
#include <vector>

#include "Contained.h"
#include "Inbox.h"
#include "Log.h"
#include "ServiceServer.h"

namespace fabric {
namespace host {

/// One connection, from the opening of a link until either side ends it.
class ServiceThread::Channel : public Peer
{
public:
    explicit Channel(LinkListener& linkListener) : listener(&linkListener) {}

    // The link's side.

    bool isUp() const noexcept { return up; }

    /// When it has returned, the listener is not called any more.
    void close()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        listener = nullptr;
        up = false;
    }

    // The service's side.

    /// False when the link has closed meanwhile.
    bool open()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!listener)
            return false;
        up = true;
        listener->linkUp();
        return true;
    }

    bool deliver(FrameBytes frame) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        // The link's closing is under way to the server; until then nobody misses the frame.
        return !listener || listener->frameReceived(std::move(frame));
    }

    void drop(int reason) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        up = false;
        if (LinkListener* const told = std::exchange(listener, nullptr))
            told->linkDown(reason);
    }

    ClientId client = 0;                // the service's thread only
    std::atomic<std::size_t> frames{0}; // on their way to the service

private:
    std::mutex mutex;
    LinkListener* listener; // null once closed or dropped
    std::atomic<bool> up{false};
};

class ServiceThread::Impl
{
public:
    explicit Impl(std::unique_ptr<Service> hosted)
        : server(*hosted), service(std::move(hosted)), thread([this] { run(); })
    {
    }

    ~Impl()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ending = true;
        }
        filled.notify_one();
        thread.join();
    }

    void open(std::shared_ptr<Channel> channel) { push({Item::opened, std::move(channel), {}}); }
    void close(std::shared_ptr<Channel> channel) { push({Item::closed, std::move(channel), {}}); }

    int send(const std::shared_ptr<Channel>& channel, FrameBytes frame)
    {
        if (channel->frames >= maxQueuedFrames)
            return -EAGAIN;
        push({Item::frame, channel, std::move(frame)});
        return 0;
    }

    std::uint64_t framesRefused() const noexcept { return server.counters().framesRefused; }

private:
    struct Item
    {
        enum Kind
        {
            opened,
            frame,
            closed
        };

        Kind kind;
        std::shared_ptr<Channel> channel;
        FrameBytes bytes;
    };

    void push(Item item)
    {
        Channel& channel = *item.channel;
        const bool isFrame = item.kind == Item::frame;
        std::unique_lock<std::mutex> lock(mutex);
        items.push_back(std::move(item));
        if (isFrame)
            ++channel.frames;
        const bool first = items.size() == 1;
        lock.unlock(); // so that the thread that wakes up need not wait for it
        if (first)
            filled.notify_one();
    }

    void run()
    {
        server.start();
        Service::TimePoint next = server.runDue();
        std::vector<Item> batch;
        while (take(batch, next)) {
            for (const Item& item : batch)
                carryOut(item);
            batch.clear();
            next = server.runDue();
        }
    }

    /// Waits for items until `until`, and takes them all into `batch`, which is empty. False when
    /// the thread is to end; by then all links have closed and nothing they sent is left.
    bool take(std::vector<Item>& batch, Service::TimePoint until)
    {
        const auto awake = [this] { return ending || !items.empty(); };
        std::unique_lock<std::mutex> lock(mutex);
        if (until == Service::TimePoint::max())
            filled.wait(lock, awake);
        else
            filled.wait_until(lock, until, awake);
        batch.swap(items);
        return !ending || !batch.empty();
    }

    void carryOut(const Item& item)
    {
        Channel& channel = *item.channel;
        switch (item.kind) {
        case Item::opened:
            if (channel.open())
                channel.client = server.connected(item.channel);
            break;
        case Item::frame:
            --channel.frames;
            server.frameReceived(channel.client, item.bytes);
            break;
        case Item::closed:
            server.disconnected(channel.client);
            break;
        }
    }

    ServiceServer server;
    const std::unique_ptr<Service> service;

    std::mutex mutex;
    std::condition_variable filled;
    std::vector<Item> items;
    bool ending = false;

    std::thread thread; // last: it uses everything above
};

ServiceThread::ServiceThread(std::unique_ptr<Service> service) : impl(new Impl(std::move(service)))
{
}

ServiceThread::~ServiceThread() = default;

std::uint64_t ServiceThread::framesRefused() const noexcept
{
    return impl->framesRefused();
}

MemoryLink::MemoryLink(std::shared_ptr<ServiceThread> service) : serviceThread(std::move(service))
{
}

MemoryLink::~MemoryLink()
{
    MemoryLink::close();
}

void MemoryLink::open(LinkListener& listener)
{
    const std::lock_guard<std::mutex> lock(mutex);
    channel = std::make_shared<ServiceThread::Channel>(listener);
    serviceThread->impl->open(channel);
}

void MemoryLink::close()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!channel)
        return;
    channel->close();
    serviceThread->impl->close(std::move(channel));
    channel = nullptr;
}

int MemoryLink::send(FrameBytes frame)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!channel || !channel->isUp())
        return -ENOTCONN;
    return serviceThread->impl->send(channel, std::move(frame));
}

} // namespace host
} // namespace fabric
