#include "ClientList.h"

#include <algorithm>
#include <typeinfo>

#include "../base/Guarded.h"
#include "../base/Log.h"

namespace fabric::host {

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
        const auto found = std::find_if(entries_.begin(), entries_.end(), leaving);
        if (found == entries_.end())
            return;
        const Entry entry = *found;
        entries_.erase(found);
        if (entry.notified)
            call(lock, *entry.client,
                 [](ClientInterface& client) { client.onServiceDisconnected(0); });
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
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (Entry& each : entries_)
            each.leaving = true;
    }
    detachLeaving();
}

void ClientList::reportUp()
{
    connected_ = true;
    reportToNewClients();
}

void ClientList::reportFailed(int error)
{
    reportEach(false, false,
               [error](ClientInterface& client) { client.onServiceConnectionFailed(error); });
}

void ClientList::reportDown(int reason)
{
    connected_ = false;
    reportEach(true, false,
               [reason](ClientInterface& client) { client.onServiceDisconnected(reason); });
}

void ClientList::reportToNewClients()
{
    if (connected_)
        reportEach(false, true, [](ClientInterface& client) { client.onServiceConnected(); });
}

template <typename Report>
void ClientList::reportEach(bool from, bool to, Report report)
{
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t last = lastSerial_; // leaves out clients attached meanwhile
    std::uint64_t serial = 0;
    const auto isNext = [&](const Entry& each) {
        return each.serial > serial && each.serial <= last && each.notified == from;
    };
    for (;;) {
        const auto found = std::find_if(entries_.begin(), entries_.end(), isNext);
        if (found == entries_.end())
            return;
        serial = found->serial;
        found->notified = to;
        call(lock, *found->client, report);
    }
}

template <typename Report>
void ClientList::call(std::unique_lock<std::mutex>& lock, ClientInterface& client, Report report)
{
    // Read beforehand, since the client may be destroyed when its callback throws.
    const char* const name = typeid(client).name();
    const auto reportException = [&](const char* what) {
        ++exceptions_;
        log(logError, "fabric-host: exception from a connection report to %s: %s\n", name, what);
    };
    struct Call
    {
        ~Call()
        {
            lock.lock();
            list.running_ = here.outer;
            list.left_.notify_all();
        }
        ClientList& list;
        std::unique_lock<std::mutex>& lock;
        const Running here;
    } const call = {*this, lock, {&client, running_}};
    running_ = &call.here;
    lock.unlock();
    callGuarded([&] { report(client); }, reportException);
}

} // namespace fabric::host
