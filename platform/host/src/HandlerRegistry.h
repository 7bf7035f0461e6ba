#ifndef FABRIC_HOST_HANDLER_REGISTRY_H
#define FABRIC_HOST_HANDLER_REGISTRY_H

#include <condition_variable>
#include <cstdint>
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
    struct Registration
    {
        int id;
        Receiver receiver;
        MsgMeta key;
        EventHandler handler;

        bool matches(const MsgMeta& meta) const noexcept;
    };
    class Call;

    /// The first matching one whose id lies in (after, last]; null if there is none.
    const Registration* next(const MsgMeta& meta, int after, int last) const noexcept;
    bool isRegistered(int id);
    bool invoke(int id, const EventHandler& handler, const Event& event);

    std::mutex mutex;
    std::condition_variable callEnded;
    std::vector<Registration> registrations; // in ascending order of ids
    int lastId = 0;
    int running = 0; // the handler being called, or 0
};

} // namespace host
} // namespace fabric

#endif
