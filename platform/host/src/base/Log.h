#ifndef FABRIC_HOST_LOG_H
#define FABRIC_HOST_LOG_H

#include <cstdint>

namespace fabric::host {

/// Levels of the host platform's own debug lines.
enum LogLevel : std::uint32_t
{
    logError = 3000,
    logInfo = 4000,
    logMessage = 5000
};

/// Writes a debug line of the host platform's category, 204, if the level is wanted. Any thread;
/// keeps errno.
void log(LogLevel level, const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

} // namespace fabric::host

#endif
