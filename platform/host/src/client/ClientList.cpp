#include "ClientList.h"

#include <algorithm>
#include <typeinfo>
#include <utility>

#include "../base/Guarded.h"
#include "../base/Log.h"

namespace fabric {
namespace host {

ClientList::Entries::iterator ClientList::find(const ClientInterface& client) noexcept
{
    return std::find_if(entries_.begin(), entries_.end(),
                        [&](const Entry& each) { return each.client == &client; });
}

bool ClientList::isRunning(const ClientInterface& client) const noexcept
{
    const Running* each = running_;
    while (each && each->client != &client)
        each = each->outer;
    return each != nullptr;
}

void ClientList::attach(ClientInterface& client)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (find(client) != entries_.end())
        return;
    entries_.push_back({&client, lastSerial_ + 1, false, false});
    ++lastSerial_;
}

void ClientList::detach(ClientInterface& client)
{
    bool told = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = find(client);
        if (found == entries_.end())
            return;
        told = found->told;
        entries_.erase(found);
        left_.notify_all();
    }
    if (told)
        call(client, [](ClientInterface& gone) { gone.onServiceDisconnected(0); });
}

bool ClientList::beginDetach(ClientInterface& client) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = find(client);
    if (found != entries_.end())
        found->leaving = true;
    return found != entries_.end() || isRunning(client);
}

void ClientList::detachLeaving()
{
    const auto leaving = [](const Entry& each) { return each.leaving; };
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        auto found = std::find_if(entries_.begin(), entries_.end(), leaving);
        if (found == entries_.end())
            return;
        ClientInterface& client = *found->client;
        if (std::exchange(found->told, false)) {
            lock.unlock();
            call(client, [](ClientInterface& gone) { gone.onServiceDisconnected(0); });
            lock.lock();
            found = find(client); // the call may have changed the list
        }
        if (found != entries_.end())
            entries_.erase(found);
        left_.notify_all();
    }
}

void ClientList::awaitDetached(ClientInterface& client) noexcept
{
    std::unique_lock<std::mutex> lock(mutex_);
    left_.wait(lock, [&] {
        const auto found = find(client);
        const bool leaving = found != entries_.end() && found->leaving;
        return ended_ || (!leaving && !isRunning(client));
    });
}

void ClientList::dispatchEnded() noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    left_.notify_all();
}

void ClientList::detachAll()
{
    reportDown(0);
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    left_.notify_all();
}

void ClientList::reportUp()
{
    standing_ = true;
    reportStanding();
}

void ClientList::reportFailed(int error)
{
    reportEach(false, false,
               [error](ClientInterface& client) { client.onServiceConnectionFailed(error); });
}

void ClientList::reportDown(int reason)
{
    standing_ = false;
    reportEach(true, false,
               [reason](ClientInterface& client) { client.onServiceDisconnected(reason); });
}

void ClientList::reportStanding()
{
    if (standing_)
        reportEach(false, true, [](ClientInterface& client) { client.onServiceConnected(); });
}

template <typename Report>
void ClientList::reportEach(bool from, bool to, Report report)
{
    std::uint64_t last = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        last = lastSerial_;
    }
    std::uint64_t serial = 0;
    while (ClientInterface* const client = next(serial, last, from, to))
        call(*client, report);
}

ClientInterface* ClientList::next(std::uint64_t& serial, std::uint64_t last, bool from, bool to)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Entry& each : entries_) {
        if (each.serial <= serial || each.serial > last || each.told != from)
            continue;
        serial = each.serial;
        each.told = to;
        return each.client;
    }
    return nullptr;
}

template <typename Report>
void ClientList::call(ClientInterface& client, Report report)
{
    // Asked for beforehand: the client may be gone when an exception arrives.
    const char* const name = typeid(client).name();
    const auto reportException = [&](const char* what) {
        ++exceptions_;
        log(logTrouble, "fabric-host: exception out of a connection report to %s: %s\n", name,
            what);
    };
    Running here = {&client, nullptr};
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        here.outer = std::exchange(running_, &here);
    }
    callGuarded([&] { report(client); }, reportException);
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = here.outer;
    left_.notify_all();
}

} // namespace host
} // namespace fabric
