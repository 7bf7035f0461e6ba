#ifndef CHRONAL_MESSAGE_RECORDS_H
#define CHRONAL_MESSAGE_RECORDS_H

#include <cstdint>

#include <chronal/Export.h>
#include <chronal/ReferenceTimeId.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

/// The payload records that are exchanged with the time service, and the byte-order table of each.
///
/// On targets with 4-byte pointers, the records have the sizes and offsets of the service's own.
/// With 8-byte pointers, the members have the same names, types and order, and a record without
/// strings has the same layout too. A command fills a record in zero-filled memory and copies times
/// whole: the padding of a time is that of the caller's time, all other padding is zero. Strings
/// belong to the message (see nubDeserString_t).

/// Command without arguments.
struct chronalCmdDummy_t
{
    std::int32_t dummy; ///< always 0
};

/// Notification of a daylight-saving change.
struct chronalMsgDST_t
{
    std::int32_t dst; ///< 1 if daylight saving time has begun, 0 if it has ended
};

/// Notification of a broadcast (digital TV) time.
struct chronalMsgDtvTime_t
{
    nubOsalTime_struct dtvTime; ///< UTC
};

/// The time zone: set by a command, reported by a reply and a notification.
struct chronalMsgTimezone_t
{
    nubDeserString_t timezone; ///< a name such as "Europe/Berlin"
    nubOsalTime_struct time;   ///< the time of the reply or notification; 0 in the command
};

/// Command that switches automatic time. cmdTimeInit() sends this record, too, with 0.
struct chronalMsgAutoTime_t
{
    std::int32_t autoTime; ///< 1 or 0
};

/// Command that configures NTP.
struct chronalMsgNtpData_t
{
    nubDeserString_t text; ///< the server
    std::int32_t flag;     ///< 1 to use NTP, or 0
};

/// The date-and-time settings: set by two commands, reported by a reply.
struct chronalMsgDateTime_t
{
    nubOsalTime_struct time0;        ///< 0 in the commands
    nubOsalTime_struct time1;        ///< stored with the settings
    nubOsalTime_struct time2;        ///< likewise
    nubOsalTime_struct time3;        ///< likewise
    nubOsalTime_struct time4;        ///< likewise
    std::int32_t value;              ///< likewise
    nubDeserString_t text;           ///< the NTP server
    std::int32_t flag1;              ///< true if not 0; -1 from cmdDateTimeSettingsSet()
    std::int32_t flag2;              ///< true if not 0; -1 from cmdDateTimeSettingsSet()
    std::int32_t timezoneSyncEnable; ///< true if not 0; sent unchanged
};

/// The result of a command. Two fetch commands send this record, too, with 0.
struct chronalMsgReplyResult_t
{
    std::int32_t result; ///< 0, or a negative error number
};

/// Replies and notifications that report times.
struct chronalMsgReplyTime_t
{
    chronal::referenceTimeId_enum refTimeId; ///< the source, if the message is about one
    nubOsalTime_struct utcTime;              ///< UTC
    nubOsalTime_struct utcDeviation;         ///< local time minus UTC, or a deviation marker
    nubOsalTime_struct localTime;            ///< UTC plus the deviation
    std::int32_t flag;                       ///< 1 if the source has a time
    std::int32_t value;                      ///< the number with which the source was set
};

/// Command that asks for a time in UTC and in local time.
struct chronalMsgCmdTimeAtData_t
{
    nubOsalTime_struct time; ///< the time to convert
    std::int32_t isUtc;      ///< 1 if `time` is UTC, 0 if it is local time
};

/// Commands that pass a source and times.
struct chronalMsgCmdRefTimeData_t
{
    chronal::referenceTimeId_enum refTimeId; ///< the source
    nubOsalTime_struct time1;                ///< the first argument of the command
    std::int32_t value;                      ///< kept with the source
    nubOsalTime_struct time2;                ///< the second argument, or 0
    nubOsalTime_struct time3;                ///< the third argument, or 0
    nubOsalTime_struct time4;                ///< the fourth argument, or 0
};

/// Commands that pass only a source.
struct chronalMsgCmdRefTimeId_t
{
    chronal::referenceTimeId_enum refTimeId; ///< the source
};

// The tables are constant data, named after the records.
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
