#ifndef FABRIC_HOST_CLIENT_LIST_H
#define FABRIC_HOST_CLIENT_LIST_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include <fabric/ClientInterface.h>

namespace fabric::host {

/// The attached clients of one session, and what each has been told of the connection. Reports are
/// made on the dispatch thread only, with no lock held; a client may attach and detach any client
/// from inside.
class ClientList
{
public:
    /// Any thread; ignores a client that is in the list. reportToNewClients() has to follow on the
    /// dispatch thread. Throws std::bad_alloc; the list is unchanged then.
    void attach(ClientInterface& client);

    /// Detaching, in three steps: begin, have detachLeaving() called on the dispatch thread, which
    /// tells the client that the connection is gone if it has been told that it stands, and, on
    /// another thread, wait for that and for a report that is running. beginDetach() is false when
    /// there is nothing to wait for.
    bool beginDetach(ClientInterface& client) noexcept;
    void detachLeaving();
    void awaitDetached(ClientInterface& client) noexcept;

    /// On the dispatch thread.
    void detachAll();

    /// The dispatch thread ends, in whatever way: nobody waits for it any longer.
    void dispatchEnded() noexcept;

    void reportUp();
    void reportFailed(int error);
    void reportDown(int reason);

    /// Tells the clients that were attached to a connection that stands already.
    void reportToNewClients();

    /// Out of reports, so far. Any thread.
    std::uint64_t exceptions() const noexcept { return exceptions_; }

private:
    struct Entry
    {
        ClientInterface* client;
        std::uint64_t serial; // ascending, so that a list that changes can be walked
        bool notified;        // that the connection stands
        bool leaving;         // is being detached
    };
    using Entries = std::vector<Entry>;

    /// A report that is being made; one may be made inside another.
    struct Running
    {
        const ClientInterface* client;
        const Running* outer;
    };

    /// With the mutex held.
    Entries::iterator find(const ClientInterface& client) noexcept;
    bool isRunning(const ClientInterface& client) const noexcept;

    /// Calls `report` with each client whose `notified` is `from`, having made it `to`.
    template <typename Report>
    void reportEach(bool from, bool to, Report report);

    /// Entered and left with the lock held, which is given up during the call.
    template <typename Report>
    void call(std::unique_lock<std::mutex>& lock, ClientInterface& client, Report report);

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
