#ifndef CHRONAL_MESSAGE_RECORDS_H
#define CHRONAL_MESSAGE_RECORDS_H

#include <cstdint>

#include <chronal/Export.h>
#include <chronal/ReferenceTimeId.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

/// The payload records exchanged with the time service, one structure per record, and the
/// byte-order table of each.
///
/// Layout: on targets with 4-byte pointers sizes and offsets are those of the service's own
/// records. With 8-byte pointers names, types and order are the same, and a record that holds no
/// string keeps its layout. A sender builds a record in zero-filled memory and copies a caller's
/// times whole, so the padding of such a time is the caller's and all other padding is zero.
/// Strings belong to the message (see nubDeserString_t).

/// A command without arguments.
struct chronalCmdDummy_t
{
    std::int32_t dummy; ///< always 0
};

/// Notification of a daylight-saving change.
struct chronalMsgDST_t
{
    std::int32_t dst;
};

/// Notification of a broadcast (digital TV) time.
struct chronalMsgDtvTime_t
{
    nubOsalTime_struct dtvTime;
};

/// The time zone: set by a command, told by a reply or notification.
struct chronalMsgTimezone_t
{
    nubDeserString_t timezone;
    nubOsalTime_struct time; ///< accompanies the zone in a reply or notification; 0 in the command
};

/// Automatic time on or off.
struct chronalMsgAutoTime_t
{
    std::int32_t autoTime; ///< 1 or 0
};

/// NTP configuration.
struct chronalMsgNtpData_t
{
    nubDeserString_t text;
    std::int32_t flag; ///< 1 or 0
};

/// The date-and-time settings: set by two commands, told by a reply.
struct chronalMsgDateTime_t
{
    nubOsalTime_struct time0; ///< 0 in the commands
    nubOsalTime_struct time1;
    nubOsalTime_struct time2;
    nubOsalTime_struct time3;
    nubOsalTime_struct time4;
    std::int32_t value;
    nubDeserString_t text;
    std::int32_t flag1;              ///< truth value; -1 when the settings are set
    std::int32_t flag2;              ///< truth value; -1 when the settings are set
    std::int32_t timezoneSyncEnable; ///< truth value; travels unchanged
};

/// The result of a command; also carried, as 0, by two fetch commands.
struct chronalMsgReplyResult_t
{
    std::int32_t result;
};

/// The time replies and the time notifications.
struct chronalMsgReplyTime_t
{
    chronal::referenceTimeId_enum refTimeId;
    nubOsalTime_struct utcTime;
    nubOsalTime_struct utcDeviation; ///< span from UTC to local time, or a deviation marker
    nubOsalTime_struct localTime;
    std::int32_t flag;
    std::int32_t value;
};

/// Asks for UTC and local time at a given time.
struct chronalMsgCmdTimeAtData_t
{
    nubOsalTime_struct time;
    std::int32_t isUtc; ///< 1 when `time` is UTC, 0 when it is local
};

/// The reference-time commands that carry times.
struct chronalMsgCmdRefTimeData_t
{
    chronal::referenceTimeId_enum refTimeId;
    nubOsalTime_struct time1;
    std::int32_t value;
    nubOsalTime_struct time2;
    nubOsalTime_struct time3;
    nubOsalTime_struct time4;
};

/// The reference-time commands that name only a source.
struct chronalMsgCmdRefTimeId_t
{
    chronal::referenceTimeId_enum refTimeId;
};

// Constant data, named after the records. Their names are what the middleware's tools look for.
extern "C" {
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalCmdDummy_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgDST_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgDtvTime_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgTimezone_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgAutoTime_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgNtpData_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgDateTime_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgReplyResult_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgReplyTime_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgCmdTimeAtData_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgCmdRefTimeData_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_chronalMsgCmdRefTimeId_t;
extern CHRONAL_API const nubEndianTable_t __nub_EndianTable_nubOsalTime_t;
}

#endif
