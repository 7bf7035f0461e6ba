#ifndef FABRIC_HOST_MEMORY_LINK_H
#define FABRIC_HOST_MEMORY_LINK_H

#include <memory>
#include <mutex>

#include <fabric-host/Link.h>
#include <fabric-host/Service.h>
#include <fabric/Export.h>

namespace fabric {
namespace host {

/// Runs one service on a thread of its own, for clients inside this process. Only frames pass
/// between it and them.
class FABRIC_API ServiceThread
{
public:
    explicit ServiceThread(std::unique_ptr<Service> service);
    /// Ends the thread, once the service has got everything that was sent.
    ~ServiceThread();

    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

    /// Malformed, or no commands. Any thread.
    std::uint64_t framesRefused() const noexcept;

private:
    friend class MemoryLink;
    struct Item;
    class Channel;
    class Impl;
    std::unique_ptr<Impl> impl;
};

/// A link to a service of this process.
class FABRIC_API MemoryLink final : public Link
{
public:
    /// `service` outlives the last connection over this link.
    explicit MemoryLink(std::shared_ptr<ServiceThread> service);
    ~MemoryLink() override;

    void open(LinkListener& listener) override;
    /// Ends the process when there is no memory for the service to hear of it: what is still under
    /// way needs that last item.
    void close() noexcept override;
    int send(const FrameBytes& frame) override;

private:
    const std::shared_ptr<ServiceThread> serviceThread;
    std::mutex mutex;
    std::shared_ptr<ServiceThread::Channel> channel; // null when closed
};

} // namespace host
} // namespace fabric

#endif
