#ifndef FABRIC_HOST_HANDLER_REGISTRY_H
#define FABRIC_HOST_HANDLER_REGISTRY_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include <fabric/AbstractComponent.h>
#include <fabric/Event.h>

namespace fabric::host {

/// Distinguishes the objects on which handlers are registered.
enum class Receiver
{
    application, ///< receives notifications
    component    ///< receives replies
};

/// Keeps and calls the handlers of one session. No handler is called with a lock held.
class HandlerRegistry
{
public:
    /// Returns the handler's id. Thread-safe.
    int add(Receiver receiver, const MsgMeta& key, const EventHandler& handler);

    /// Ignores an unknown id. Waits while the handler is running, except on the dispatch thread,
    /// where it would wait for itself. Thread-safe.
    void remove(int id, bool onDispatchThread);

    /// Calls the message's handlers in order of registration, except for those added or removed
    /// meanwhile. Logs exceptions from handlers. Call it on the dispatch thread only. Returns the
    /// number of handlers.
    std::size_t deliver(const Event& event);

    /// Counts the exceptions from handlers. Thread-safe.
    std::uint64_t exceptions() const noexcept { return exceptions_; }

private:
    struct Registration
    {
        int id;
        Receiver receiver;
        MsgMeta key;
        EventHandler handler;
    };
    using Registrations = std::vector<Registration>;

    /// Returns the first registration after an id. Needs the mutex held.
    Registrations::iterator behind(int id) noexcept;
    bool isRegistered(int id);
    void invoke(int id, const EventHandler& handler, const Event& event);

    std::mutex mutex_;
    std::condition_variable callEnded_;
    Registrations registrations_; // in ascending order of ids
    int lastId_ = 0;
    std::atomic<std::size_t> exceptions_{0};
    int running_ = 0; // id of the handler being called, or 0
};

} // namespace fabric::host

#endif
