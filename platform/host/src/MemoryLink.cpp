#include "MemoryLink.h"

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>

#include "Contained.h"
#include "Log.h"
#include "ServiceServer.h"
#include "WorkQueue.h"

namespace fabric {
namespace host {

/// One thing for the service's thread to do.
struct ServiceThread::Item
{
    enum Kind
    {
        opened,
        frame,
        closed
    };

    Kind kind;
    Channel* channel;
    FrameBytes bytes;
    std::shared_ptr<Channel> owner; // of one that has been opened or closed
};

/// One connection, from the opening of a link until either side ends it.
class ServiceThread::Channel final : public Peer
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

    bool deliver(const FrameBytes& frame) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        // The link's closing is under way to the server; until then nobody misses the frame.
        return !listener || listener->frameReceived(frame);
    }

    void drop(int reason) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        up = false;
        if (LinkListener* const told = std::exchange(listener, nullptr))
            told->linkDown(reason);
    }

    WorkQueue<Item>::Quota sent;
    ClientId client = 0; // the service's thread only

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
        queue.close();
        thread.join();
    }

    void open(const std::shared_ptr<Channel>& channel) { push(Item::opened, channel); }
    /// Last of all for a channel.
    void close(const std::shared_ptr<Channel>& channel) { push(Item::closed, channel); }

    int send(Channel& channel, const FrameBytes& frame)
    {
        const bool queued = queue.push(channel.sent, [&](Item& item) {
            item.kind = Item::frame;
            item.channel = &channel; // which stands at least until close() is carried out
            item.bytes = frame;
        });
        return queued ? 0 : -EAGAIN;
    }

    std::uint64_t framesRefused() const noexcept { return server.counters().framesRefused; }

private:
    void push(Item::Kind kind, const std::shared_ptr<Channel>& channel)
    {
        queue.push([&](Item& item) {
            item.kind = kind;
            item.channel = channel.get();
            item.owner = channel;
        });
    }

    void run()
    {
        server.start();
        WorkQueue<Item>::Batch batch;
        while (queue.take(batch, server.runDue()))
            for (Item& item : batch)
                carryOut(item);
    }

    void carryOut(Item& item)
    {
        const bool done = contained(
            [&] { carryOut(item, *item.channel); },
            [](const char* what) { log(logTrouble, "fabric-host: client lost: %s\n", what); });
        if (!done)
            item.channel->drop(ENOMEM);
        item.owner = nullptr;
    }

    void carryOut(Item& item, Channel& channel)
    {
        switch (item.kind) {
        case Item::opened:
            if (channel.open())
                channel.client = server.connected(item.owner);
            break;
        case Item::frame:
            server.frameReceived(channel.client, item.bytes);
            recycle(item.bytes);
            break;
        case Item::closed:
            server.disconnected(channel.client);
            break;
        }
    }

    ServiceServer server;
    const std::unique_ptr<Service> service;

    WorkQueue<Item> queue;
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

void MemoryLink::close() noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!channel)
        return;
    channel->close();
    serviceThread->impl->close(channel);
    channel = nullptr;
}

int MemoryLink::send(const FrameBytes& frame)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!channel || !channel->isUp())
        return -ENOTCONN;
    return serviceThread->impl->send(*channel, frame);
}

} // namespace host
} // namespace fabric
