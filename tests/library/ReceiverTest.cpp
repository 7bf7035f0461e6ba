#include "Desk.h"
#include "Interposed.h"
#include "ReceiverRows.h"

namespace {

using desk::BareAdapter;
using desk::RecordingAdapter;
using fabric::SerializableMessageData;
using fabric::SerializableMessageEvent;
using ::testing::ElementsAre;

using Data = boost::shared_ptr<SerializableMessageData>;

SerializableMessageEvent eventOf(const Data& data) { return {{1, 2, 3, 2}, {-1, 9}, data}; }

class ReceiverOf : public ::testing::TestWithParam<ReceiverRow>
{
protected:
    template <typename Adapter>
    int receive(Adapter& adapter, const Data& data)
    {
        SerializableMessageEvent event = eventOf(data);
        event.ids = {7, 9};
        interposed::tzsetCalls = 0;
        const int result = (adapter.*GetParam().receiver)(event);
        EXPECT_EQ(interposed::tzsetCalls, GetParam().tzsetCalls);
        return result;
    }

    desk::Desk<RecordingAdapter> recording;
    desk::Desk<BareAdapter> bare;
};

TEST_P(ReceiverOf, DecodesTheRecordIntoItsCallback)
{
    const Data data = GetParam().data();
    EXPECT_EQ(receive(recording.adapter, data), 0);
    EXPECT_THAT(recording.adapter.calls, ElementsAre(GetParam().call));
    EXPECT_EQ(data.use_count(), 1);
}

TEST_P(ReceiverOf, ReturnsZeroWhenNobodyListens)
{
    const Data data = GetParam().data();
    EXPECT_EQ(receive(bare.adapter, data), 0);
    EXPECT_EQ(data.use_count(), 1);
}

TEST_P(ReceiverOf, CallsNothingForAnEventWithoutRecord)
{
    EXPECT_EQ(receive(recording.adapter, Data()), 0);
    EXPECT_EQ(receive(recording.adapter, Data(new SerializableMessageData(
                                             nullptr, 0, &__nub_EndianTable_chronalCmdDummy_t))),
              0);
    EXPECT_THAT(recording.adapter.calls, ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(All, ReceiverOf, ::testing::ValuesIn(receiverRows));

/// Looks at the payload from inside a callback, and throws.
class ThrowingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    const Data* data = nullptr;
    long ownersDuringTheCall = 0;

protected:
    void onReplyTimezoneInfo(const fabric::MsgIds&, const std::string&,
                             const nubOsalTime_struct&) override
    {
        ownersDuringTheCall = data->use_count();
        throw std::string("from the callback");
    }
};

TEST(Receiver, HoldsThePayloadForTheCallAndPassesItsExceptionOn)
{
    desk::Desk<ThrowingAdapter> desk;
    const Data data = zoneOf("a zone name that needs memory", 30, 29);
    const SerializableMessageEvent event = eventOf(data);
    desk.adapter.data = &data;
    EXPECT_THROW(desk.adapter.callReplyTimezoneInfo(event), std::string);
    EXPECT_EQ(desk.adapter.ownersDuringTheCall, 3);
    EXPECT_EQ(data.use_count(), 2);
}

TEST(Receiver, KeepsZeroBytesInsideAString)
{
    desk::Desk<RecordingAdapter> desk;
    const SerializableMessageEvent event = eventOf(zoneOf("a\0b", 4, 3));
    desk.adapter.callReplyTimezoneInfo(event);
    using namespace std::string_literals;
    EXPECT_THAT(desk.adapter.calls, ElementsAre("onReplyTimezoneInfo [0/0] \"a\0b\" {7 8}"s));
}

} // namespace
