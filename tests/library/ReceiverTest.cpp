#include "Desk.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using chronal::UserAdapter;
using desk::BareAdapter;
using desk::RecordingAdapter;
using fabric::SerializableMessageData;
using fabric::SerializableMessageEvent;
using ::testing::ElementsAre;

using Data = boost::shared_ptr<SerializableMessageData>;

template <typename Record>
Data dataOf(const Record& record, const nubEndianTable_t& table)
{
    Data data = SerializableMessageData::create(sizeof(Record), table);
    std::memcpy(data->payload, &record, sizeof(Record));
    return data;
}

#define DATA(record, ...) dataOf(record{__VA_ARGS__}, __nub_EndianTable_##record)

/// A string field of the given length over these characters, which need not be as many.
nubDeserString_t stringOf(const std::string& characters, std::uint32_t length)
{
    auto* const chars = static_cast<char*>(std::malloc(characters.size() + 1));
    std::memcpy(chars, characters.c_str(), characters.size() + 1);
    return {length, chars};
}

Data settings(std::int32_t flag1, std::int32_t flag2, std::int32_t sync)
{
    return DATA(chronalMsgDateTime_t, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, -6}, 42,
                stringOf("pool", 4), flag1, flag2, sync);
}

Data zone(nubDeserString_t name) { return DATA(chronalMsgTimezone_t, name, {7, 8}); }

const Data times = DATA(chronalMsgReplyTime_t, chronal::referenceTimeTeletext, {10, 1},
                        {-360001, 0}, {-30, 2000000}, 2, -4);
const Data noTimes =
    DATA(chronalMsgReplyTime_t, static_cast<chronal::referenceTimeId_enum>(-9), {}, {}, {}, 0, 0);
const std::string withNul("a\0b", 3);

/// One message from the service, and the arguments that its callback has to get.
const struct ReceiverRow
{
    int (UserAdapter::*receiver)(const SerializableMessageEvent&);
    std::string callback;
    Data data;
    std::string arguments;
    std::vector<std::string> callsBefore = {};
} receiverRows[] = {
#define NAMES(message) &UserAdapter::call##message, "on" #message
    {NAMES(ReplyResult), DATA(chronalMsgReplyResult_t, -3), "-3"},
    {NAMES(ReplyTimeRefInfo), times, "{-360001 0} {10 1} {-30 2000000} source 4 true -4"},
    {NAMES(ReplyTimeRefInfo), noTimes, "{0 0} {0 0} {0 0} source -9 false 0"},
    {NAMES(NotifyCurrentTime), times, "{-360001 0} {10 1} {-30 2000000} 2 -4"},
    {NAMES(NotifyDeviationChange), times, "{-360001 0} {10 1} {-30 2000000}", {"tzset"}},
    {NAMES(NotifyTimezoneChange), zone(stringOf("UTC", 3)), "\"UTC\" {7 8}", {"tzset"}},
    {NAMES(ReplyTimeRefAt), times, "{10 1} {-30 2000000} source 4"},
    {NAMES(ReplyTimeAt), times, "{10 1} {-30 2000000}"},
    {NAMES(ReplyUtcDeviationInfo), times, "{-360001 0} {10 1} {-30 2000000} source 4"},
    {NAMES(ReplyDateTimeSettingsInfo), settings(-1, 0, 5),
     "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 \"pool\" true false true"},
    {NAMES(ReplyDateTimeSettingsInfo), settings(0, INT32_MIN, 0),
     "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 \"pool\" false true false"},
    {NAMES(ReplyTimezoneInfo), zone(stringOf("Europe", 5)), "\"Europ\" {7 8}"},
    {NAMES(ReplyTimezoneInfo), zone(stringOf("UTC", 0)), "\"\" {7 8}"},
    {NAMES(ReplyTimezoneInfo), zone(stringOf(withNul, 3)), "\"a\\0b\" {7 8}"},
    {NAMES(ReplyTimezoneInfo), zone({12, nullptr}), "\"\" {7 8}"},
    {NAMES(NotifyDtvTimeChange), DATA(chronalMsgDtvTime_t, {-1, -2}), "{-1 -2}"},
    {NAMES(NotifyDSTChange), DATA(chronalMsgDST_t, 77), "77"},
};

void PrintTo(const ReceiverRow& row, std::ostream* out) { *out << row.callback; }

class Receiver : public ::testing::TestWithParam<ReceiverRow>,
                 protected desk::Desk<RecordingAdapter>
{
protected:
    /// Passes `data` to the receiver, which has to return 0.
    void receive(UserAdapter& receiver, const Data& data = GetParam().data)
    {
        SerializableMessageEvent event({1, 2, 3, 2}, {-1, 9}, data);
        eventIds_ = &event.ids;
        EXPECT_EQ((receiver.*GetParam().receiver)(event), 0);
    }

    const std::string call_ = GetParam().callback + ' ' + GetParam().arguments;
    const std::vector<std::string>& callsBefore_ = GetParam().callsBefore;
    const long owners_ = GetParam().data.use_count();
    const fabric::MsgIds* eventIds_ = nullptr;
};

TEST_P(Receiver, DecodesTheRecordForItsCallback)
{
    receive(adapter);
    std::vector<std::string> calls = callsBefore_;
    calls.push_back(call_);
    EXPECT_EQ(journal.take(), calls);
}

TEST_P(Receiver, PassesTheEventsOwnIds)
{
    receive(adapter);
    EXPECT_EQ(adapter.lastIds, eventIds_);
}

TEST_P(Receiver, HoldsThePayloadDuringTheCall)
{
    long owners = 0;
    journal.onNote = [&](const std::string& call) {
        if (call == call_)
            owners = GetParam().data.use_count();
    };
    receive(adapter);
    EXPECT_EQ(owners, owners_ + 2) << "the event and the receiver";
    EXPECT_EQ(GetParam().data.use_count(), owners_);
}

TEST_P(Receiver, PassesOnWhatItsCallbackThrows)
{
    journal.onNote = [&](const std::string& call) {
        if (call == call_)
            throw 1;
    };
    EXPECT_THROW(receive(adapter), int);
    EXPECT_EQ(GetParam().data.use_count(), owners_);
}

TEST_P(Receiver, CallsNothingWithoutAnOverride)
{
    BareAdapter bare(application, component);
    receive(bare);
    EXPECT_EQ(journal.take(), callsBefore_);
}

TEST_P(Receiver, CallsNothingWithoutARecord)
{
    for (const Data& empty : {Data(), Data(new SerializableMessageData(nullptr, 0, nullptr))}) {
        receive(adapter, empty);
        EXPECT_EQ(journal.take(), callsBefore_);
    }
}

constexpr std::size_t tableHeader = 2;   ///< offset to top and type information
constexpr std::size_t firstCallback = 5; ///< after two destructors and three reports
constexpr std::size_t callbacks = 12;

const void* const* tableOf(const UserAdapter& object)
{
    const void* const* table;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof(table));
    return table;
}

// The virtual table of an application that overrides one callback differs in one entry from that of
// an application that overrides none. Such a table is made here for each of the callbacks.
TEST_P(Receiver, DependsOnItsOwnOverride)
{
    const BareAdapter bare(application, component);
    const void* const* const full = tableOf(adapter);
    for (std::size_t entry = firstCallback; entry < firstCallback + callbacks; ++entry) {
        const void* made[tableHeader + firstCallback + callbacks];
        std::copy_n(full - tableHeader, std::size(made), made);
        std::copy_n(tableOf(bare) + firstCallback, callbacks, made + tableHeader + firstCallback);
        made[tableHeader + entry] = full[entry];
        const void* const* const table = made + tableHeader;
        std::memcpy(static_cast<void*>(&adapter), &table, sizeof(table));
        receive(adapter);
        std::memcpy(static_cast<void*>(&adapter), &full, sizeof(full));
    }
    EXPECT_THAT(adapter.calls, ElementsAre(call_));
}

INSTANTIATE_TEST_SUITE_P(All, Receiver, ::testing::ValuesIn(receiverRows));

} // namespace
