#include "ReceiverRows.h"

#include <cstdlib>
#include <cstring>

using chronal::UserAdapter;
using fabric::SerializableMessageData;

namespace {

using Data = boost::shared_ptr<SerializableMessageData>;

template <typename Record>
Data dataOf(const Record& record, const nubEndianTable_t& table)
{
    Data data = SerializableMessageData::create(sizeof(Record), table);
    std::memcpy(data->payload, &record, sizeof(Record));
    return data;
}

#define DATA(record, ...) dataOf(record{__VA_ARGS__}, __nub_EndianTable_##record)

/// A string field of the given length over these characters.
nubDeserString_t stringOf(const char* characters, std::size_t size, std::uint32_t length)
{
    auto* const chars = static_cast<char*>(std::malloc(size));
    std::memcpy(chars, characters, size);
    return {length, chars};
}

constexpr auto ttx = chronal::referenceTimeTeletext;
constexpr auto strange = static_cast<chronal::referenceTimeId_enum>(-9);

Data replyTime()
{
    return DATA(chronalMsgReplyTime_t, ttx, {10, 1}, {-360001, 0}, {-30, 2000000}, 2, -4);
}

Data settings(std::int32_t flag1, std::int32_t flag2, std::int32_t sync)
{
    return DATA(chronalMsgDateTime_t, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, -6}, 42,
                stringOf("pool", 5, 4), flag1, flag2, sync);
}

Data zone(nubDeserString_t name) { return DATA(chronalMsgTimezone_t, name, {7, 8}); }

} // namespace

Data zoneOf(const char* characters, std::size_t size, std::uint32_t length)
{
    return zone(stringOf(characters, size, length));
}

const std::vector<ReceiverRow> receiverRows = {
    {&UserAdapter::callReplyResult, [] { return DATA(chronalMsgReplyResult_t, -3); },
     "onReplyResult [7/9] -3",
     "000000280102030401d982c7018d378e02010000ffffffff000000030000000700000009"
     "fffffffd"},
    {&UserAdapter::callReplyTimeRefInfo, replyTime,
     "onReplyTimeRefInfo [7/9] {-360001 0} {10 1} {-30 2000000} source 4 true -4",
     "000000540102030401d982c8018d378e02010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc"},
    {&UserAdapter::callReplyTimeRefInfo,
     [] { return DATA(chronalMsgReplyTime_t, strange, {}, {}, {}, 0, 0); },
     "onReplyTimeRefInfo [7/9] {0 0} {0 0} {0 0} source -9 false 0",
     "000000540102030401d982c8018d378e02010000ffffffff000000030000000700000009"
     "fffffff70000000000000000000000000000000000000000000000000000000000000000"
     "000000000000000000000000"},
    {&UserAdapter::callNotifyCurrentTime, replyTime,
     "onNotifyCurrentTime [7/9] {-360001 0} {10 1} {-30 2000000} 2 -4",
     "000000540102030401d982c9018d378e01010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc"},
    {&UserAdapter::callNotifyDeviationChange, replyTime,
     "onNotifyDeviationChange [7/9] {-360001 0} {10 1} {-30 2000000}",
     "000000540102030401d982ca018d378e01010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc",
     1},
    {&UserAdapter::callNotifyTimezoneChange, [] { return zone(stringOf("UTC", 4, 3)); },
     "onNotifyTimezoneChange [7/9] \"UTC\" {7 8}",
     "000000370102030401d982ce018d378e01010000ffffffff000000030000000700000009"
     "00000003555443000000000000000700000008",
     1},
    {&UserAdapter::callReplyTimeRefAt, replyTime,
     "onReplyTimeRefAt [7/9] {10 1} {-30 2000000} source 4",
     "000000540102030401d982c8018d378d02010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc"},
    {&UserAdapter::callReplyTimeAt, replyTime, "onReplyTimeAt [7/9] {10 1} {-30 2000000}",
     "000000540102030401d982ca018d378d02010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc"},
    {&UserAdapter::callReplyUtcDeviationInfo, replyTime,
     "onReplyUtcDeviationInfo [7/9] {-360001 0} {10 1} {-30 2000000} source 4",
     "000000540102030401d982ca018d378e02010000ffffffff000000030000000700000009"
     "00000004000000000000000a00000001fffffffffffa81bf00000000ffffffffffffffe2"
     "001e848000000002fffffffc"},
    {&UserAdapter::callReplyDateTimeSettingsInfo, [] { return settings(-1, 0, 5); },
     "onReplyDateTimeSettingsInfo [7/9] {1 0} {2 0} {3 0} {4 0} {5 -6} 42 \"pool\" true false "
     "true",
     "000000780102030401d982cd018d378e02010000ffffffff000000030000000700000009"
     "000000000000000100000000000000000000000200000000000000000000000300000000"
     "0000000000000004000000000000000000000005fffffffa0000002a00000004706f6f6c"
     "ffffffff0000000000000005"},
    {&UserAdapter::callReplyDateTimeSettingsInfo, [] { return settings(0, INT32_MIN, 0); },
     "onReplyDateTimeSettingsInfo [7/9] {1 0} {2 0} {3 0} {4 0} {5 -6} 42 \"pool\" false true "
     "false",
     "000000780102030401d982cd018d378e02010000ffffffff000000030000000700000009"
     "000000000000000100000000000000000000000200000000000000000000000300000000"
     "0000000000000004000000000000000000000005fffffffa0000002a00000004706f6f6c"
     "000000008000000000000000"},
    {&UserAdapter::callReplyTimezoneInfo, [] { return zone(stringOf("Europe", 6, 5)); },
     "onReplyTimezoneInfo [7/9] \"Europ\" {7 8}",
     "000000390102030401d982ce018d378e02010000ffffffff000000030000000700000009"
     "000000054575726f70000000000000000700000008"},
    {&UserAdapter::callReplyTimezoneInfo, [] { return zone(stringOf("UTC", 4, 0)); },
     "onReplyTimezoneInfo [7/9] \"\" {7 8}",
     "000000340102030401d982ce018d378e02010000ffffffff000000030000000700000009"
     "00000000000000000000000700000008"},
    {&UserAdapter::callReplyTimezoneInfo,
     [] {
         return zone({12, nullptr});
     },
     "onReplyTimezoneInfo [7/9] \"\" {7 8}", nullptr},
    {&UserAdapter::callNotifyDtvTimeChange,
     [] {
         return DATA(chronalMsgDtvTime_t, {-1, -2});
     },
     "onNotifyDtvTimeChange [7/9] {-1 -2}",
     "000000300102030401d982d2018d378e01010000ffffffff000000030000000700000009"
     "fffffffffffffffffffffffe"},
    {&UserAdapter::callNotifyDSTChange, [] { return DATA(chronalMsgDST_t, 77); },
     "onNotifyDSTChange [7/9] 77",
     "000000280102030401d982d4018d378e01010000ffffffff000000030000000700000009"
     "0000004d"},
};
