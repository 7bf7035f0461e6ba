#ifndef FABRIC_CLIENT_INTERFACE_H
#define FABRIC_CLIENT_INTERFACE_H

#include <fabric/Export.h>

namespace fabric {

/// Receives the middleware's reports of the connection to a service. They come on the dispatch
/// thread of the application, in order with the messages.
class FABRIC_API ClientInterface
{
public:
    /// The service can be reached. This is the time to register handlers.
    virtual void onServiceConnected() = 0;
    /// The service cannot be reached; `reason` is an error number of the middleware.
    virtual void onServiceConnectionFailed(int reason) = 0;
    /// The connection has ended. No message arrives until onServiceConnected().
    virtual void onServiceDisconnected(int reason) = 0;

protected:
    // Not virtual: the middleware expects only the three reports in the virtual table.
    ~ClientInterface() {}
};

} // namespace fabric

#endif
