#include "ClientList.h"

#include <algorithm>
#include <typeinfo>

#include "Contained.h"
#include "Log.h"

namespace fabric {
namespace host {

void ClientList::attach(ClientInterface& client)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const bool attached = std::any_of(entries.begin(), entries.end(),
                                      [&](const Entry& each) { return each.client == &client; });
    if (!attached)
        entries.push_back({&client, ++lastSerial, false});
}

void ClientList::detach(ClientInterface& client)
{
    bool told = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = std::find_if(entries.begin(), entries.end(),
                                        [&](const Entry& each) { return each.client == &client; });
        if (found == entries.end())
            return;
        told = found->told;
        entries.erase(found);
    }
    if (told)
        call(client, [](ClientInterface& gone) { gone.onServiceDisconnected(0); });
}

void ClientList::detachAll()
{
    reportDown(0);
    const std::lock_guard<std::mutex> lock(mutex);
    entries.clear();
}

void ClientList::reportUp()
{
    standing = true;
    reportStanding();
}

void ClientList::reportFailed(int error)
{
    reportEach(false, false,
               [error](ClientInterface& client) { client.onServiceConnectionFailed(error); });
}

void ClientList::reportDown(int reason)
{
    standing = false;
    reportEach(true, false,
               [reason](ClientInterface& client) { client.onServiceDisconnected(reason); });
}

void ClientList::reportStanding()
{
    if (standing)
        reportEach(false, true, [](ClientInterface& client) { client.onServiceConnected(); });
}

template <typename Report>
void ClientList::reportEach(bool from, bool to, Report report)
{
    std::uint64_t last = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        last = lastSerial;
    }
    std::uint64_t serial = 0;
    while (ClientInterface* const client = next(serial, last, from, to))
        call(*client, report);
}

ClientInterface* ClientList::next(std::uint64_t& serial, std::uint64_t last, bool from, bool to)
{
    const std::lock_guard<std::mutex> lock(mutex);
    for (Entry& each : entries) {
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
        ++exceptionsCaught;
        log(logTrouble, "fabric-host: exception out of a connection report to %s: %s\n", name,
            what);
    };
    contained([&] { report(client); }, reportException);
}

} // namespace host
} // namespace fabric
