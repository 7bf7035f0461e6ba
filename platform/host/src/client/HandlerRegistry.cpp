#include "HandlerRegistry.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <tuple>

#include <fabric-host/MessageCatalogue.h>

#include "../base/Guarded.h"
#include "../base/Log.h"

namespace fabric {
namespace host {
bool HandlerRegistry::Key::operator<(const Key& other) const noexcept
{
    const auto fields = [](const Key& key) {
        return std::tie(key.meta.resourceId, key.meta.operationId, key.meta.kind,
                        key.meta.serviceId, key.receiver);
    };
    return fields(*this) < fields(other);
}

/// The time in which a handler runs and its removal has to wait. Entered and left with the lock
/// held, which is given up in between.
class HandlerRegistry::Call
{
public:
    Call(HandlerRegistry& owner, std::unique_lock<std::mutex>& held, int id)
        : registry(owner), lock(held)
    {
        registry.running_ = id;
        lock.unlock();
    }

    ~Call()
    {
        lock.lock();
        registry.running_ = 0;
        registry.callEnded_.notify_all();
    }

    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    HandlerRegistry& registry;
    std::unique_lock<std::mutex>& lock;
};

int HandlerRegistry::add(Receiver receiver, const MsgMeta& key, const EventHandler& handler)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lastId_ == std::numeric_limits<int>::max())
        throw std::length_error("fabric-host: out of handler ids");
    registrations_[{key, receiver}].push_back({lastId_ + 1, handler});
    return ++lastId_;
}

void HandlerRegistry::remove(int id, bool onDispatchThread)
{
    std::unique_lock<std::mutex> lock(mutex_);
    for (auto& [key, list] : registrations_) {
        const auto found = std::find_if(list.begin(), list.end(),
                                        [id](const Registration& each) { return each.id == id; });
        if (found == list.end())
            continue;
        list.erase(found);
        break;
    }
    if (!onDispatchThread)
        callEnded_.wait(lock, [&] { return running_ == 0 || running_ != id; });
}

Delivery HandlerRegistry::deliver(const Event& event)
{
    const Key key = {event.meta,
                     event.meta.kind == kindReply ? Receiver::component : Receiver::application};
    Delivery delivery = {0, 0};
    std::unique_lock<std::mutex> lock(mutex_);
    const int last = lastId_;
    int id = 0;
    while (const Registration* const registration = next(key, id, last)) {
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

const HandlerRegistry::Registration* HandlerRegistry::next(const Key& key, int after,
                                                           int last) const noexcept
{
    const auto list = registrations_.find(key);
    if (list == registrations_.end())
        return nullptr;
    const auto found =
        std::upper_bound(list->second.begin(), list->second.end(), after,
                         [](int id, const Registration& each) { return id < each.id; });
    return found != list->second.end() && found->id <= last ? &*found : nullptr;
}

bool HandlerRegistry::isRegistered(int id)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(registrations_.begin(), registrations_.end(), [id](const auto& list) {
        return std::any_of(list.second.begin(), list.second.end(),
                           [id](const Registration& each) { return each.id == id; });
    });
}

bool HandlerRegistry::invoke(int id, const EventHandler& handler, const Event& event)
{
    const EventHandler::Caller& caller = handler.boundCaller();
    return callGuarded([&] { caller.invoke(event); },
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
