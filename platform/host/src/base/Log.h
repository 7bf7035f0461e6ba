#ifndef FABRIC_HOST_LOG_H
#define FABRIC_HOST_LOG_H

#include <cstdint>

namespace fabric::host {

enum LogLevel : std::uint32_t
{
    logError = 3000,
    logInfo = 4000,
    logMessage = 5000
};

/// Writes a debug line in the host platform's category, 204, if its level is enabled. Thread-safe;
/// preserves errno.
void log(LogLevel level, const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

} // namespace fabric::host

#endif
