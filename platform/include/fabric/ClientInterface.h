#ifndef FABRIC_CLIENT_INTERFACE_H
#define FABRIC_CLIENT_INTERFACE_H

#include <fabric/Export.h>

namespace fabric {

/// How the middleware reports the connection to a service. Called on the application's dispatch
/// thread, in order with the messages.
class FABRIC_API ClientInterface
{
public:
    /// The service can be reached: register handlers now.
    virtual void onServiceConnected() = 0;
    /// The service could not be reached; the middleware's error number tells why.
    virtual void onServiceConnectionFailed(int reason) = 0;
    /// The service is gone; nothing arrives until onServiceConnected().
    virtual void onServiceDisconnected(int reason) = 0;

protected:
    // Not virtual: the middleware's table of this class holds the three reports and nothing else.
    ~ClientInterface() {}
};

} // namespace fabric

#endif
