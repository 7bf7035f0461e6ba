#ifndef FABRIC_EXPORT_H
#define FABRIC_EXPORT_H

/// Marks what the middleware's library defines, so that a library that is built with hidden
/// visibility does not hide it.
#define FABRIC_API __attribute__((visibility("default")))

#endif
