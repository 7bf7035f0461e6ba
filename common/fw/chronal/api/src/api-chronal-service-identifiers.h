#ifndef API_CHRONAL_SERVICE_IDENTIFIERS_H
#define API_CHRONAL_SERVICE_IDENTIFIERS_H

#include <cstdint>

/// The numbers that identify messages of the time service and debug lines of the library.
namespace chronal::detail {

/// The subject of a message.
enum ResourceId : std::uint32_t
{
    resourceResult = 31032007,
    resourceRefTime = 31032008,
    resourceCurrentTime = 31032009,
    resourceDeviation = 31032010,
    resourceDaylightSavingInfo = 31032011,
    resourceTimezoneSync = 31032012,
    resourceDateTimeSettings = 31032013,
    resourceTimezone = 31032014,
    resourceNtp = 31032015,
    resourceAutoTime = 31032016,
    resourceTimeInit = 31032017,
    resourceDtvTime = 31032018,
    resourceRefLocalTime = 31032019,
    resourceDst = 31032020
};

/// What a message does with its subject.
enum OperationId : std::uint32_t
{
    operationSet = 26032007,
    operationFetch = 26032008,
    operationSubscribe = 26032009,
    operationStart = operationSubscribe, ///< for NTP
    operationUnsubscribe = 26032010,
    operationLock = 26032011,
    operationUnlock = 26032012,
    operationAt = 26032013,
    operationInfo = 26032014,
    operationInit = operationInfo ///< for the time
};

enum MessageKind : std::uint8_t
{
    kindCommand = 0,
    kindNotification = 1,
    kindReply = 2
};

/// Category in the upper, level in the lower 16 bits.
enum DebugCode : std::uint32_t
{
    debugConnectionError = 0x050BB8,
    debugConnection = 0x051388,
    debugCommandError = 0xCB0BB8,
    debugCommand = 0xCB0FA0
};

} // namespace chronal::detail

#endif
