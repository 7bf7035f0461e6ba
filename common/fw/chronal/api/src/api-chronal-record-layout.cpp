// Asserts that the records have the layout of the time service. This file produces no code. A build
// that breaks the layout fails here, and the error names the member.

#include <cstddef>

#include <chronal/MessageRecords.h>
#include <chronal/ReferenceTimeId.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

namespace {

constexpr bool deviceWidth = sizeof(void*) == 4;

// A string contains a pointer, so a record that holds one has the layout of the service only if
// pointers have 4 bytes.
constexpr bool withString = deviceWidth;
constexpr bool anyWidth = true;

} // namespace

#define RECORD(record, where, size, alignment)                                                     \
    static_assert(!(where) || (sizeof(record) == (size) && alignof(record) == (alignment)),        \
                  #record ": the time service expects this record with another size or alignment")
#define FIELD(record, where, field, offset)                                                        \
    static_assert(!(where) || offsetof(record, field) == (offset),                                 \
                  #record "::" #field ": the time service expects this member at another offset")

static_assert(sizeof(chronal::referenceTimeId_enum) == 4 && sizeof(chronal::ReferenceTimeId) == 4,
              "records hold a source as one 32-bit word");

RECORD(nubOsalTime_struct, anyWidth, 16, 8);
FIELD(nubOsalTime_struct, anyWidth, seconds, 0x00);
FIELD(nubOsalTime_struct, anyWidth, microseconds, 0x08);

RECORD(nubDeserString_t, withString, 8, 4);
FIELD(nubDeserString_t, withString, length, 0x00);
FIELD(nubDeserString_t, withString, chars, 0x04);

RECORD(nubEndianTable_t, deviceWidth, 8, 4);
FIELD(nubEndianTable_t, deviceWidth, size, 0x00);
FIELD(nubEndianTable_t, deviceWidth, entries, 0x04);

RECORD(nubEndianEntry_t, deviceWidth, 8, 4);
FIELD(nubEndianEntry_t, deviceWidth, code, 0x00);
FIELD(nubEndianEntry_t, deviceWidth, argument, 0x04);

RECORD(chronalCmdDummy_t, anyWidth, 4, 4);
FIELD(chronalCmdDummy_t, anyWidth, dummy, 0x00);

RECORD(chronalMsgDST_t, anyWidth, 4, 4);
FIELD(chronalMsgDST_t, anyWidth, dst, 0x00);

RECORD(chronalMsgDtvTime_t, anyWidth, 16, 8);
FIELD(chronalMsgDtvTime_t, anyWidth, dtvTime, 0x00);

RECORD(chronalMsgTimezone_t, withString, 24, 8);
FIELD(chronalMsgTimezone_t, withString, timezone, 0x00);
FIELD(chronalMsgTimezone_t, withString, time, 0x08);

RECORD(chronalMsgAutoTime_t, anyWidth, 4, 4);
FIELD(chronalMsgAutoTime_t, anyWidth, autoTime, 0x00);

RECORD(chronalMsgNtpData_t, withString, 12, 4);
FIELD(chronalMsgNtpData_t, withString, text, 0x00);
FIELD(chronalMsgNtpData_t, withString, flag, 0x08);

RECORD(chronalMsgDateTime_t, withString, 104, 8);
FIELD(chronalMsgDateTime_t, withString, time0, 0x00);
FIELD(chronalMsgDateTime_t, withString, time1, 0x10);
FIELD(chronalMsgDateTime_t, withString, time2, 0x20);
FIELD(chronalMsgDateTime_t, withString, time3, 0x30);
FIELD(chronalMsgDateTime_t, withString, time4, 0x40);
FIELD(chronalMsgDateTime_t, withString, value, 0x50);
FIELD(chronalMsgDateTime_t, withString, text, 0x54);
FIELD(chronalMsgDateTime_t, withString, flag1, 0x5C);
FIELD(chronalMsgDateTime_t, withString, flag2, 0x60);
FIELD(chronalMsgDateTime_t, withString, timezoneSyncEnable, 0x64);

RECORD(chronalMsgReplyResult_t, anyWidth, 4, 4);
FIELD(chronalMsgReplyResult_t, anyWidth, result, 0x00);

RECORD(chronalMsgReplyTime_t, anyWidth, 64, 8);
FIELD(chronalMsgReplyTime_t, anyWidth, refTimeId, 0x00);
FIELD(chronalMsgReplyTime_t, anyWidth, utcTime, 0x08);
FIELD(chronalMsgReplyTime_t, anyWidth, utcDeviation, 0x18);
FIELD(chronalMsgReplyTime_t, anyWidth, localTime, 0x28);
FIELD(chronalMsgReplyTime_t, anyWidth, flag, 0x38);
FIELD(chronalMsgReplyTime_t, anyWidth, value, 0x3C);

RECORD(chronalMsgCmdTimeAtData_t, anyWidth, 24, 8);
FIELD(chronalMsgCmdTimeAtData_t, anyWidth, time, 0x00);
FIELD(chronalMsgCmdTimeAtData_t, anyWidth, isUtc, 0x10);

RECORD(chronalMsgCmdRefTimeData_t, anyWidth, 80, 8);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, refTimeId, 0x00);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, time1, 0x08);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, time2, 0x20);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, value, 0x18);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, time3, 0x30);
FIELD(chronalMsgCmdRefTimeData_t, anyWidth, time4, 0x40);

RECORD(chronalMsgCmdRefTimeId_t, anyWidth, 4, 4);
FIELD(chronalMsgCmdRefTimeId_t, anyWidth, refTimeId, 0x00);
