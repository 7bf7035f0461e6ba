#ifndef FABRIC_HOST_CLIENT_LIST_H
#define FABRIC_HOST_CLIENT_LIST_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include <fabric/ClientInterface.h>

#include "../base/Loop.h"

namespace fabric::host {

/// Keeps the clients of one session and reports the connection to them. Reports run on the dispatch
/// thread without a lock held; a client may attach and detach any client inside one.
class ClientList
{
public:
    /// Schedules `changed` when reportToNewClients() or detachLeaving() has something to do.
    explicit ClientList(LoopTask& changed) : changed_(changed) {}

    /// Ignores a client that is in the list. Throws std::bad_alloc, leaving the list unchanged.
    /// Thread-safe.
    void attach(ClientInterface& client);

    /// Ignores a client that is not in the list. Otherwise notifies it that the connection is down
    /// if it knew it to be up, and waits for that and for a running report, except on the dispatch
    /// thread. Thread-safe.
    void detach(ClientInterface& client, bool onDispatchThread);

    /// Detaches the clients for which other threads wait, or all. Called on the dispatch thread.
    void detachLeaving(bool all);

    /// Releases the threads in detach(), since the dispatch thread is ending.
    void dispatchEnded() noexcept;

    void reportUp();
    void reportFailed(int error);
    void reportDown(int reason);

    /// Notifies clients that were attached while the connection was up.
    void reportToNewClients();

    /// Returns the number of exceptions from reports so far. Thread-safe.
    std::uint64_t exceptions() const noexcept { return exceptions_; }

private:
    struct Entry
    {
        ClientInterface* client;
        std::uint64_t serial; // ascending, so that a changing list can be walked
        bool notified;        // that the connection is up
        bool leaving;         // is being detached
    };
    using Entries = std::vector<Entry>;

    /// A running report. Reports nest when a client detaches another inside one.
    struct Running
    {
        const ClientInterface* client;
        const Running* outer;
    };

    /// These two need the mutex held.
    Entries::iterator find(const ClientInterface& client) noexcept;
    bool isRunning(const ClientInterface& client) const noexcept;

    /// Sets `notified` to `to` for each client where it is `from`, and calls `report` with it.
    template <typename Report>
    void reportEach(bool from, bool to, Report report);

    /// Needs the lock held and releases it during the call.
    template <typename Report>
    void call(std::unique_lock<std::mutex>& lock, ClientInterface& client, Report report);

    LoopTask& changed_;
    std::mutex mutex_;
    std::condition_variable left_;
    Entries entries_;
    std::uint64_t lastSerial_ = 0;
    const Running* running_ = nullptr; // the innermost
    bool ended_ = false;
    bool connected_ = false; // dispatch thread only
    std::atomic<std::size_t> exceptions_{0};
};

} // namespace fabric::host

#endif
