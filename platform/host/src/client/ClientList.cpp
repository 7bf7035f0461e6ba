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
    changed_.schedule();
}

void ClientList::detach(ClientInterface& client, bool onDispatchThread)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (const auto found = find(client); found != entries_.end())
        found->leaving = true;
    if (onDispatchThread) {
        lock.unlock();
        return detachLeaving(false);
    }
    changed_.schedule();
    left_.wait(lock, [&] {
        const auto found = find(client);
        const bool leaving = found != entries_.end() && found->leaving;
        return ended_ || (!leaving && !isRunning(client));
    });
}

void ClientList::detachLeaving(bool all)
{
    std::unique_lock<std::mutex> lock(mutex_);
    const auto leaves = [all](const Entry& each) { return each.leaving || all; };
    for (;;) {
        const auto found = std::find_if(entries_.begin(), entries_.end(), leaves);
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

void ClientList::dispatchEnded() noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    left_.notify_all();
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
    const Running here = {&client, running_};
    running_ = &here;
    callUnlocked(
        lock, [&] { callGuarded([&] { report(client); }, reportException); },
        [&] {
            running_ = here.outer;
            left_.notify_all();
        });
}

} // namespace fabric::host
