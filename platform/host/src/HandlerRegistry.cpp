#include "HandlerRegistry.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "Contained.h"
#include "Log.h"

namespace fabric {
namespace host {
namespace {

constexpr std::uint8_t kindNotification = 1;
constexpr std::uint8_t kindReply = 2;

} // namespace

bool HandlerRegistry::Registration::matches(const MsgMeta& meta) const noexcept
{
    return key.resourceId == meta.resourceId && key.operationId == meta.operationId &&
           key.kind == meta.kind && key.serviceId == meta.serviceId &&
           meta.kind == (receiver == Receiver::component ? kindReply : kindNotification);
}

/// The time in which a handler runs and its removal has to wait. Entered and left with the lock
/// held, which is given up in between.
class HandlerRegistry::Call
{
public:
    Call(HandlerRegistry& owner, std::unique_lock<std::mutex>& held, int id)
        : registry(owner), lock(held)
    {
        registry.running = id;
        lock.unlock();
    }

    ~Call()
    {
        lock.lock();
        registry.running = 0;
        registry.callEnded.notify_all();
    }

    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    HandlerRegistry& registry;
    std::unique_lock<std::mutex>& lock;
};

int HandlerRegistry::add(Receiver receiver, const MsgMeta& key, const EventHandler& handler)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (lastId == std::numeric_limits<int>::max())
        throw std::length_error("fabric-host: out of handler ids");
    registrations.push_back({lastId + 1, receiver, key, handler});
    return ++lastId;
}

void HandlerRegistry::remove(int id, bool onDispatchThread)
{
    std::unique_lock<std::mutex> lock(mutex);
    const auto found = std::find_if(registrations.begin(), registrations.end(),
                                    [id](const Registration& each) { return each.id == id; });
    if (found != registrations.end())
        registrations.erase(found);
    if (!onDispatchThread)
        callEnded.wait(lock, [&] { return running == 0 || running != id; });
}

Delivery HandlerRegistry::deliver(const Event& event)
{
    Delivery delivery = {0, 0};
    std::unique_lock<std::mutex> lock(mutex);
    const int last = lastId;
    int id = 0;
    while (const Registration* const registration = next(event.meta, id, last)) {
        id = registration->id;
        // A copy, since the handler may remove its own registration.
        const EventHandler handler = registration->handler;
        const Call call(*this, lock, id);
        ++delivery.handlers;
        if (!invoke(id, handler, event))
            ++delivery.exceptions;
    }
    return delivery;
}

const HandlerRegistry::Registration* HandlerRegistry::next(const MsgMeta& meta, int after,
                                                           int last) const noexcept
{
    for (const Registration& each : registrations)
        if (each.id > after && each.id <= last && each.matches(meta))
            return &each;
    return nullptr;
}

bool HandlerRegistry::isRegistered(int id)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(registrations.begin(), registrations.end(),
                       [id](const Registration& each) { return each.id == id; });
}

bool HandlerRegistry::invoke(int id, const EventHandler& handler, const Event& event)
{
    const EventHandler::Caller& caller = handler.boundCaller();
    return contained([&] { caller.invoke(event); },
                     [&](const char* what) {
                         // A handler that is gone may have taken its object along, which only its
                         // class name needs.
                         const bool there = isRegistered(id);
                         log(logTrouble, "fabric-host: exception out of %s::%s: %s\n",
                             there ? caller.getClassName().c_str() : "(removed)",
                             caller.getMethodName().c_str(), what);
                     });
}

} // namespace host
} // namespace fabric
