#ifndef FABRIC_HOST_STREAM_LINK_H
#define FABRIC_HOST_STREAM_LINK_H

#include <functional>
#include <memory>

#include <fabric-host/Link.h>

#include "FrameStream.h"

namespace fabric::host {

/// Connects to a service. Throws std::bad_alloc or std::system_error.
using Connector = std::function<std::shared_ptr<FrameStream>(boost::asio::io_context& loop)>;

/// Creates a link over the streams of a connector. A link that `reconnects` does so for as long as
/// it is open.
std::unique_ptr<Link> newStreamLink(Connector connector, bool reconnects);

} // namespace fabric::host

#endif
