#include <cstddef>
#include <cstdint>

#include <chronal/MessageRecords.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

// Everything here is constant data: the middleware may read the tables while other libraries are
// still being initialised, and they lie in read-only memory.

// The entry of one member of a record.
#define WORD32(record, field)                                                                      \
    {                                                                                              \
        code(nubEndianWord32, offsetof(record, field)), nubEndianArgument_t(std::uintptr_t(0))     \
    }
#define WORD64(record, field)                                                                      \
    {                                                                                              \
        code(nubEndianWord64, offsetof(record, field)), nubEndianArgument_t(std::uintptr_t(0))     \
    }
#define TIME(record, field)                                                                        \
    {                                                                                              \
        code(nubEndianRecord, offsetof(record, field)), &__nub_EndianTable_nubOsalTime_t           \
    }
#define STRING(record, field)                                                                      \
    {                                                                                              \
        code(nubEndianRecord, offsetof(record, field)), &__nub_EndianTable_nubDeserString_t        \
    }

namespace {

constexpr std::uint32_t code(std::uint32_t kind, std::size_t offset)
{
    return (kind << 16) | static_cast<std::uint32_t>(offset);
}

constexpr nubEndianEntry_t terminator = {0, nubEndianArgument_t(std::uintptr_t(0xffffffff))};

constexpr nubEndianEntry_t entriesOfTime[] = {
    WORD64(nubOsalTime_struct, seconds),
    WORD32(nubOsalTime_struct, microseconds),
    terminator,
};

constexpr nubEndianEntry_t entriesOfCmdDummy[] = {
    WORD32(chronalCmdDummy_t, dummy),
    terminator,
};

constexpr nubEndianEntry_t entriesOfDST[] = {
    WORD32(chronalMsgDST_t, dst),
    terminator,
};

constexpr nubEndianEntry_t entriesOfDtvTime[] = {
    TIME(chronalMsgDtvTime_t, dtvTime),
    terminator,
};

constexpr nubEndianEntry_t entriesOfTimezone[] = {
    STRING(chronalMsgTimezone_t, timezone),
    TIME(chronalMsgTimezone_t, time),
    terminator,
};

constexpr nubEndianEntry_t entriesOfAutoTime[] = {
    WORD32(chronalMsgAutoTime_t, autoTime),
    terminator,
};

constexpr nubEndianEntry_t entriesOfNtpData[] = {
    STRING(chronalMsgNtpData_t, text),
    WORD32(chronalMsgNtpData_t, flag),
    terminator,
};

constexpr nubEndianEntry_t entriesOfDateTime[] = {
    TIME(chronalMsgDateTime_t, time0),
    TIME(chronalMsgDateTime_t, time1),
    TIME(chronalMsgDateTime_t, time2),
    TIME(chronalMsgDateTime_t, time3),
    TIME(chronalMsgDateTime_t, time4),
    WORD32(chronalMsgDateTime_t, value),
    STRING(chronalMsgDateTime_t, text),
    WORD32(chronalMsgDateTime_t, flag1),
    WORD32(chronalMsgDateTime_t, flag2),
    WORD32(chronalMsgDateTime_t, timezoneSyncEnable),
    terminator,
};

constexpr nubEndianEntry_t entriesOfReplyResult[] = {
    WORD32(chronalMsgReplyResult_t, result),
    terminator,
};

constexpr nubEndianEntry_t entriesOfReplyTime[] = {
    WORD32(chronalMsgReplyTime_t, refTimeId),
    TIME(chronalMsgReplyTime_t, utcTime),
    TIME(chronalMsgReplyTime_t, utcDeviation),
    TIME(chronalMsgReplyTime_t, localTime),
    WORD32(chronalMsgReplyTime_t, flag),
    WORD32(chronalMsgReplyTime_t, value),
    terminator,
};

constexpr nubEndianEntry_t entriesOfCmdTimeAtData[] = {
    TIME(chronalMsgCmdTimeAtData_t, time),
    WORD32(chronalMsgCmdTimeAtData_t, isUtc),
    terminator,
};

constexpr nubEndianEntry_t entriesOfCmdRefTimeData[] = {
    WORD32(chronalMsgCmdRefTimeData_t, refTimeId),
    TIME(chronalMsgCmdRefTimeData_t, time1),
    TIME(chronalMsgCmdRefTimeData_t, time2),
    WORD32(chronalMsgCmdRefTimeData_t, value),
    TIME(chronalMsgCmdRefTimeData_t, time3),
    TIME(chronalMsgCmdRefTimeData_t, time4),
    terminator,
};

constexpr nubEndianEntry_t entriesOfCmdRefTimeId[] = {
    WORD32(chronalMsgCmdRefTimeId_t, refTimeId),
    terminator,
};

} // namespace

constexpr nubEndianTable_t __nub_EndianTable_nubOsalTime_t = {sizeof(nubOsalTime_struct),
                                                              entriesOfTime};
constexpr nubEndianTable_t __nub_EndianTable_chronalCmdDummy_t = {sizeof(chronalCmdDummy_t),
                                                                  entriesOfCmdDummy};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgDST_t = {sizeof(chronalMsgDST_t),
                                                                entriesOfDST};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgDtvTime_t = {sizeof(chronalMsgDtvTime_t),
                                                                    entriesOfDtvTime};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgTimezone_t = {sizeof(chronalMsgTimezone_t),
                                                                     entriesOfTimezone};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgAutoTime_t = {sizeof(chronalMsgAutoTime_t),
                                                                     entriesOfAutoTime};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgNtpData_t = {sizeof(chronalMsgNtpData_t),
                                                                    entriesOfNtpData};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgDateTime_t = {sizeof(chronalMsgDateTime_t),
                                                                     entriesOfDateTime};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgReplyResult_t = {
    sizeof(chronalMsgReplyResult_t), entriesOfReplyResult};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgReplyTime_t = {sizeof(chronalMsgReplyTime_t),
                                                                      entriesOfReplyTime};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgCmdTimeAtData_t = {
    sizeof(chronalMsgCmdTimeAtData_t), entriesOfCmdTimeAtData};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgCmdRefTimeData_t = {
    sizeof(chronalMsgCmdRefTimeData_t), entriesOfCmdRefTimeData};
constexpr nubEndianTable_t __nub_EndianTable_chronalMsgCmdRefTimeId_t = {
    sizeof(chronalMsgCmdRefTimeId_t), entriesOfCmdRefTimeId};
