#include "HandlerRegistry.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <fabric-host/MessageCatalogue.h>

#include "../base/Guarded.h"
#include "../base/Log.h"

namespace fabric::host {
namespace {

bool matches(const MsgMeta& key, const MsgMeta& message) noexcept
{
    return key.resourceId == message.resourceId && key.operationId == message.operationId &&
           key.kind == message.kind && key.serviceId == message.serviceId;
}

} // namespace

HandlerRegistry::Registrations::iterator HandlerRegistry::behind(int id) noexcept
{
    return std::upper_bound(registrations_.begin(), registrations_.end(), id,
                            [](int before, const Registration& each) { return before < each.id; });
}

int HandlerRegistry::add(Receiver receiver, const MsgMeta& key, const EventHandler& handler)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lastId_ == std::numeric_limits<int>::max())
        throw std::length_error("fabric-host: out of handler ids");
    registrations_.push_back({lastId_ + 1, receiver, key, handler});
    return ++lastId_;
}

void HandlerRegistry::remove(int id, bool onDispatchThread)
{
    if (id <= 0)
        return;
    std::unique_lock<std::mutex> lock(mutex_);
    const auto found = behind(id - 1);
    if (found != registrations_.end() && found->id == id)
        registrations_.erase(found);
    if (!onDispatchThread)
        callEnded_.wait(lock, [&] { return running_ != id; });
}

std::size_t HandlerRegistry::deliver(const Event& event)
{
    const Receiver receiver =
        event.meta.kind == kindReply ? Receiver::component : Receiver::application;
    std::size_t count = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    const int last = lastId_;
    int id = 0;
    for (;;) {
        const auto next =
            std::find_if(behind(id), registrations_.end(), [&](const Registration& each) {
                return each.receiver == receiver && matches(each.key, event.meta);
            });
        if (next == registrations_.end() || next->id > last)
            return count;
        id = next->id;
        // Copied, since the handler may remove its own registration.
        const EventHandler handler = next->handler;
        running_ = id;
        ++count;
        callUnlocked(
            lock, [&] { invoke(id, handler, event); },
            [this] {
                running_ = 0;
                callEnded_.notify_all();
            });
    }
}

bool HandlerRegistry::isRegistered(int id)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = behind(id - 1);
    return found != registrations_.end() && found->id == id;
}

void HandlerRegistry::invoke(int id, const EventHandler& handler, const Event& event)
{
    const EventHandler::Caller& caller = handler.boundCaller();
    callGuarded([&] { caller.invoke(event); },
                [&](const char* what) {
                    ++exceptions_;
                    // If the handler was removed, its object may be destroyed, which only
                    // getClassName() uses.
                    const bool there = isRegistered(id);
                    log(logError, "fabric-host: exception from %s::%s: %s\n",
                        there ? caller.getClassName().c_str() : "(removed)",
                        caller.getMethodName().c_str(), what);
                });
}

} // namespace fabric::host
