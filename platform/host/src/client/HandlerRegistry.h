#ifndef FABRIC_HOST_HANDLER_REGISTRY_H
#define FABRIC_HOST_HANDLER_REGISTRY_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include <fabric/AbstractComponent.h>
#include <fabric/Event.h>

namespace fabric::host {

/// The object on which handlers are registered.
enum class Receiver
{
    application, ///< of notifications
    component    ///< of replies
};

/// What became of one message.
struct Delivery
{
    std::size_t handlers;
    std::size_t exceptions;
};

/// The handlers of one session, and their calls. No handler is called with a lock held.
class HandlerRegistry
{
public:
    /// Any thread. Returns the handler's id.
    int add(Receiver receiver, const MsgMeta& key, const EventHandler& handler);

    /// Any thread; ignores an unknown id. Waits while the handler is running, but not on the
    /// dispatch thread, where that handler is further down the stack.
    void remove(int id, bool onDispatchThread);

    /// Calls the message's handlers in order of their registration, except for those that are added
    /// or removed meanwhile. On the dispatch thread only. Exceptions out of handlers are reported.
    Delivery deliver(const Event& event);

private:
    struct Registration
    {
        int id;
        Receiver receiver;
        MsgMeta key;
        EventHandler handler;
    };
    using Registrations = std::vector<Registration>;

    class Call;

    /// With the mutex held: the first registration behind an id.
    Registrations::iterator behind(int id) noexcept;
    bool isRegistered(int id);
    bool invoke(int id, const EventHandler& handler, const Event& event);

    std::mutex mutex_;
    std::condition_variable callEnded_;
    Registrations registrations_; // in ascending order of ids
    int lastId_ = 0;
    int running_ = 0; // the handler being called, or 0
};

} // namespace fabric::host

#endif
