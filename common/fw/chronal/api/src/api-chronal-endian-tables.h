#ifndef API_CHRONAL_ENDIAN_TABLES_H
#define API_CHRONAL_ENDIAN_TABLES_H

#include <chronal/MessageRecords.h>

namespace chronal::detail {

/// Returns the table of a record that commands send.
template <typename Record>
const nubEndianTable_t& endianTableOf();

// clang-format off
template <> inline const nubEndianTable_t& endianTableOf<chronalCmdDummy_t>() { return __nub_EndianTable_chronalCmdDummy_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgTimezone_t>() { return __nub_EndianTable_chronalMsgTimezone_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgAutoTime_t>() { return __nub_EndianTable_chronalMsgAutoTime_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgNtpData_t>() { return __nub_EndianTable_chronalMsgNtpData_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgDateTime_t>() { return __nub_EndianTable_chronalMsgDateTime_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgReplyResult_t>() { return __nub_EndianTable_chronalMsgReplyResult_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgCmdTimeAtData_t>() { return __nub_EndianTable_chronalMsgCmdTimeAtData_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgCmdRefTimeData_t>() { return __nub_EndianTable_chronalMsgCmdRefTimeData_t; }
template <> inline const nubEndianTable_t& endianTableOf<chronalMsgCmdRefTimeId_t>() { return __nub_EndianTable_chronalMsgCmdRefTimeId_t; }
// clang-format on

} // namespace chronal::detail

#endif
