#ifndef FABRIC_HOST_INBOX_H
#define FABRIC_HOST_INBOX_H

#include <cstddef>
#include <cstdint>

#include <fabric-host/Link.h>

#include "WorkQueue.h"

namespace fabric {

class ClientInterface;

namespace host {

/// A client to be detached on behalf of a thread that waits for it.
struct DetachRequest
{
    ClientInterface& client;
    bool done;
};

/// One thing for the dispatch thread to do.
struct InboxItem
{
    enum Kind
    {
        frame,    ///< deliver `bytes`
        up,       ///< report `connection`; the frames from here on are of it
        failed,   ///< report the failure, with `reason`
        down,     ///< report the end, with `reason`
        standing, ///< report to those attached meanwhile
        detach    ///< carry out `request`
    };

    Kind kind;
    int reason;
    std::uint32_t connection;
    FrameBytes bytes;
    DetachRequest* request;
};

typedef WorkQueue<InboxItem> Inbox;

} // namespace host
} // namespace fabric

#endif
