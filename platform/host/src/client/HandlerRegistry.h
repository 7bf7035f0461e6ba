#ifndef FABRIC_HOST_HANDLER_REGISTRY_H
#define FABRIC_HOST_HANDLER_REGISTRY_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include <fabric/AbstractComponent.h>
#include <fabric/Event.h>

namespace fabric {
namespace host {

/// What messages of one kind are registered on.
enum class Receiver
{
    application, ///< notifications
    component    ///< replies
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

    /// Calls the message's handlers in order of their registration, those left out that are added
    /// or removed meanwhile. On the dispatch thread only. Exceptions out of handlers are reported.
    Delivery deliver(const Event& event);

private:
    /// What messages a handler is registered for, and where.
    struct Key
    {
        MsgMeta meta;
        Receiver receiver;

        bool operator<(const Key& other) const noexcept;
    };

    struct Registration
    {
        int id;
        EventHandler handler;
    };
    using Registrations = std::vector<Registration>; // in ascending order of ids

    class Call;

    /// The first one for the key whose id lies in (after, last]; null if there is none.
    const Registration* next(const Key& key, int after, int last) const noexcept;
    bool isRegistered(int id);
    bool invoke(int id, const EventHandler& handler, const Event& event);

    std::mutex mutex_;
    std::condition_variable callEnded_;
    std::map<Key, Registrations> registrations_; // a key that was used once stays
    int lastId_ = 0;
    int running_ = 0; // the handler being called, or 0
};

} // namespace host
} // namespace fabric

#endif
