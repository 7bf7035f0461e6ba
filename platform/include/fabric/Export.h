#ifndef FABRIC_EXPORT_H
#define FABRIC_EXPORT_H

/// Marks what the middleware's library defines, so that a library built with hidden visibility
/// still reaches it across the binary boundary.
#define FABRIC_API __attribute__((visibility("default")))

#endif
