#ifndef FABRIC_HOST_CLIENT_LIST_H
#define FABRIC_HOST_CLIENT_LIST_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include <fabric/ClientInterface.h>

namespace fabric {
namespace host {

/// The attached clients of one session, and what each has been told of the connection. Reports are
/// made on the dispatch thread only, with no lock held; a client may attach and detach any client
/// from inside.
class ClientList
{
public:
    /// Any thread; ignores a client that is in the list. Whoever calls it sees to it that
    /// reportStanding() is called afterwards.
    void attach(ClientInterface& client);

    /// Takes the client out and tells it that the connection is gone, if it has been told that it
    /// stands. On the dispatch thread.
    void detach(ClientInterface& client);
    void detachAll();

    void reportUp();
    void reportFailed(int error);
    void reportDown(int reason);

    /// Tells those who have been attached to a connection that stands already.
    void reportStanding();

    /// Out of reports, so far. Any thread.
    std::uint64_t exceptions() const noexcept { return exceptionsCaught; }

private:
    struct Entry
    {
        ClientInterface* client;
        std::uint64_t serial; // ascending, so that a list that changes can be walked
        bool told;            // that the connection stands
    };

    /// Calls `report` with each client whose `told` is `from`, having made it `to`.
    template <typename Report>
    void reportEach(bool from, bool to, Report report);
    ClientInterface* next(std::uint64_t& serial, std::uint64_t last, bool from, bool to);

    template <typename Report>
    void call(ClientInterface& client, Report report);

    std::mutex mutex;
    std::vector<Entry> entries;
    std::uint64_t lastSerial = 0;
    bool standing = false; // dispatch thread only
    std::atomic<std::size_t> exceptionsCaught{0};
};

} // namespace host
} // namespace fabric

#endif
