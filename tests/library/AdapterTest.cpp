#include "Desk.h"

#include <cstring>

namespace {

using Ids = const fabric::MsgIds&;
using Time = const nubOsalTime_struct&;
using Source = const chronal::ReferenceTimeId&;
using Text = const std::string&;

const fabric::SerializableMessageEvent* received; ///< while it is delivered

template <typename... Arguments>
void note(const char* callback, Ids ids, const Arguments&... arguments)
{
    Desk::note(words(callback, arguments...));
    EXPECT_EQ(&ids, &received->ids);
    EXPECT_EQ(received->data.use_count(), 3) << "the row, the event and the receiver";
}

/// Defines an adapter that overrides one callback, which it notes with its arguments.
#define NOTING(callback, parameters, ...)                                                          \
    struct callback##Noting : BareAdapter                                                          \
    {                                                                                              \
        using BareAdapter::BareAdapter;                                                            \
        void callback parameters override { note(#callback, ids, __VA_ARGS__); }                   \
    };
// clang-format off
NOTING(onReplyResult, (Ids ids, int a), a)
NOTING(onReplyTimeRefInfo, (Ids ids, Time a, Time b, Time c, Source d, bool e, int f),
       a, b, c, d.id, e, f)
NOTING(onReplyTimeRefAt, (Ids ids, Time a, Time b, Source c), a, b, c.id)
NOTING(onReplyTimeAt, (Ids ids, Time a, Time b), a, b)
NOTING(onReplyUtcDeviationInfo, (Ids ids, Time a, Time b, Time c, Source d), a, b, c, d.id)
NOTING(onReplyDateTimeSettingsInfo, (Ids ids, Time a, Time b, Time c, Time d, Time e, const int& f,
                                     Text g, const bool& h, const bool& i, const bool& j),
       a, b, c, d, e, f, shown(g), h, i, j)
NOTING(onReplyTimezoneInfo, (Ids ids, Text a, Time b), shown(a), b)
NOTING(onNotifyCurrentTime, (Ids ids, Time a, Time b, Time c, int d, int e), a, b, c, d, e)
NOTING(onNotifyDeviationChange, (Ids ids, Time a, Time b, Time c), a, b, c)
NOTING(onNotifyTimezoneChange, (Ids ids, Text a, Time b), shown(a), b)
NOTING(onNotifyDtvTimeChange, (Ids ids, Time a), a)
NOTING(onNotifyDSTChange, (Ids ids, int a), a)
// clang-format on

/// A payload without a place for its strings, so that it does not own them.
template <typename Record>
Data dataOf(const Record& record)
{
    const nubEndianTable_t& table = __nub_EndianTable_chronalMsgDST_t;
    const Data data = fabric::SerializableMessageData::create(sizeof(Record), table);
    std::memcpy(data->payload, &record, sizeof(Record));
    return data;
}

char text[] = "a\0bcd";

Data zone(std::uint32_t length, char* chars = text)
{
    return dataOf(chronalMsgTimezone_t{{length, chars}, {7, 8}});
}

Data settings(int flag1, int flag2, int sync)
{
    return dataOf(chronalMsgDateTime_t{
        {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, -6}, 42, {4, text}, flag1, flag2, sync});
}

Data times(int source, int flag, int value)
{
    const auto id = static_cast<chronal::referenceTimeId_enum>(source);
    return dataOf(chronalMsgReplyTime_t{id, {10, 1}, {-360001, 0}, {-30, 2000000}, flag, value});
}

template <typename Adapter>
chronal::UserAdapter* create(Desk& desk)
{
    return new Adapter(desk, desk.component);
}

/// One message from the service, and the call of its callback.
struct ReceiverRow
{
    std::string identity;
    Data data;
    chronal::UserAdapter* (*create)(Desk& desk); ///< an adapter that overrides only the callback
    std::string callback;
    std::string arguments;
    std::string before = ""; ///< the notes before that of the callback
};
const char* const rereading = "tzset\n";

// In the order of the registrations.
// clang-format off
const ReceiverRow receiverRows[] = {
#define ON(callback) &create<callback##Noting>, #callback
#define TWO "{10 1} {-30 2000000}"
#define ALL "{-360001 0} " TWO
    {"component 31032008 26032014 2", times(4, 2, -4), ON(onReplyTimeRefInfo), ALL " 4 true -4"},
    {"component 31032008 26032014 2", times(-9, 0, 0), ON(onReplyTimeRefInfo), ALL " -9 false 0"},
    {"component 31032008 26032013 2", times(4, 2, -4), ON(onReplyTimeRefAt), TWO " 4"},
    {"component 31032010 26032013 2", times(4, 2, -4), ON(onReplyTimeAt), TWO},
    {"component 31032010 26032014 2", times(4, 2, -4), ON(onReplyUtcDeviationInfo), ALL " 4"},
    {"component 31032007 26032014 2", dataOf(chronalMsgReplyResult_t{-3}), ON(onReplyResult), "-3"},
    {"component 31032013 26032014 2", settings(-1, 0, 5), ON(onReplyDateTimeSettingsInfo),
     "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 4:a.bc true false true"},
    {"component 31032013 26032014 2", settings(0, INT32_MIN, 0), ON(onReplyDateTimeSettingsInfo),
     "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 4:a.bc false true false"},
    {"component 31032014 26032014 2", zone(5), ON(onReplyTimezoneInfo), "5:a.bcd {7 8}"},
    {"component 31032014 26032014 2", zone(0), ON(onReplyTimezoneInfo), "0: {7 8}"},
    {"component 31032014 26032014 2", zone(12, nullptr), ON(onReplyTimezoneInfo), "0: {7 8}"},
    {"application 31032009 26032014 1", times(4, 2, -4), ON(onNotifyCurrentTime), ALL " 2 -4"},
    {"application 31032010 26032014 1", times(4, 2, -4), ON(onNotifyDeviationChange), ALL, rereading},
    {"application 31032014 26032014 1", zone(3), ON(onNotifyTimezoneChange), "3:a.b {7 8}",
     rereading},
    {"application 31032018 26032014 1", dataOf(chronalMsgDtvTime_t{{-1, -2}}),
     ON(onNotifyDtvTimeChange), "{-1 -2}"},
    {"application 31032020 26032014 1", dataOf(chronalMsgDST_t{77}), ON(onNotifyDSTChange), "77"},
};
// clang-format on

class Adapter : public ::testing::Test, public Desk
{
protected:
    void connect(const ReceiverRow& row)
    {
        adapter.reset(row.create(*this));
        attach();
        adapter->onServiceConnected();
    }
    /// Passes a message to the handler of the row's identity, and returns the notes of it.
    std::string receive(const ReceiverRow& row, const Data& data)
    {
        const fabric::SerializableMessageEvent event({1, 2, 3, 2}, {-1, 9}, data);
        received = &event;
        return during([&] { EXPECT_EQ(handlers.at(row.identity).boundCaller().invoke(event), 0); });
    }
};

TEST_F(Adapter, RegistersItsReceiversInOrder)
{
    std::string expected = "line 332680 onServiceConnected(): Called.\n";
    std::string last;
    int id = 500;
    for (const ReceiverRow& row : receiverRows)
        if (std::exchange(last, row.identity) != row.identity)
            expected += words("getServiceId\n" + row.identity, "of", id++, "flags 0\n");
    attach();
    fabric::ClientInterface& client = *adapter;
    EXPECT_EQ(during([&] { client.onServiceConnected(); }), expected);
}

TEST_F(Adapter, CallsOnlyTheCallbackThatTheApplicationOverrides)
{
    for (const ReceiverRow& overriding : receiverRows) {
        connect(overriding);
        for (const ReceiverRow& row : receiverRows)
            EXPECT_EQ(receive(row, row.data),
                      row.before + (row.callback == overriding.callback
                                        ? words(row.callback, row.arguments + '\n')
                                        : ""));
    }
}

TEST_F(Adapter, CallsNothingWithoutARecord)
{
    const Data noPayload(new fabric::SerializableMessageData(nullptr, 0, nullptr));
    for (const ReceiverRow& row : receiverRows) {
        connect(row);
        EXPECT_EQ(receive(row, nullptr) + receive(row, noPayload), row.before + row.before);
    }
}

TEST_F(Adapter, PassesOnWhatACallbackThrows)
{
    for (const ReceiverRow& row : receiverRows) {
        connect(row);
        onNote = [&](const std::string& call) {
            if (call != "tzset")
                throw call;
        };
        EXPECT_THROW(receive(row, row.data), std::string);
        EXPECT_EQ(row.data.use_count(), 1);
        onNote = nullptr;
    }
}

TEST_F(Adapter, FollowsItsInterfaceAndItsConnection)
{
    const auto expect = [&](const std::string& expected, std::size_t registered, auto action) {
        EXPECT_EQ(during(action), expected);
        EXPECT_EQ(handlerIds.size(), registered) << "after " << expected;
    };
    const std::string connected = "line 332680 onServiceConnected(): Called.\n";
    const std::string disconnected = "line 330680 onServiceDisconnected(): Called: Reason is ";
    const std::string already =
        "line 330680 setServiceInterface(): Interface pointer already setup. (locked)\n";
    expect(connected, 0, [&] { adapter->onServiceConnected(); });
    expect("", 0, [&] { adapter->setServiceInterface(nullptr); });
    expect("", 0, [&] { attach(); });
    expect(already, 0, [&] { attach(); });
    expect(already, 0, [&] { adapter->setServiceInterface(nullptr); });
    adapter->onServiceConnected();
    adapter->onServiceConnected();
    expect("line 330680 onServiceConnectionFailed(): Called: Reason is -5.\n", 24,
           [&] { adapter->onServiceConnectionFailed(-5); });
    expect(disconnected + "7.\nno handlers left\n", 0, [&] { adapter->onServiceDisconnected(7); });
    expect(disconnected + "0.\n", 0, [&] { adapter->onServiceDisconnected(0); });
    expect("getServiceId\nsendEvent 1 2 0 -1 77 0 524 31032017 26032014 0 MsgAutoTime 0\n", 0,
           [&] { adapter->cmdTimeInit(ids); });
    linesWanted = false;
    expect("", 0, [&] { attach(); });
    expect("", 0, [&] { adapter->onServiceConnectionFailed(1); });
    expect("", 0, [&] { adapter->onServiceDisconnected(1); });
    adapter->onServiceConnected();
    expect("no handlers left\n", 0, [&] { adapter.reset(); });
    adapter = std::make_unique<BareAdapter>(*this, component);
    expect("", 0, [&] { adapter->onServiceConnected(); });
}

TEST_F(Adapter, KeepsWhatIsRegisteredWhenARegistrationThrows)
{
    attach();
    onNote = [&](const std::string& call) {
        if (call != "getServiceId" && !handlerIds.empty())
            throw call;
    };
    EXPECT_THROW(adapter->onServiceConnected(), std::string);
    onNote = nullptr;
    EXPECT_EQ(handlerIds.size(), 1U);
    adapter.reset();
    EXPECT_EQ(handlerIds.size(), 0U);
}

// A mutex that checks for errors is not locked again by the thread that holds it, so the unlocking
// at the end of the hand-over takes away the lock of this test.
TEST_F(Adapter, LocksTheMutexWhenItTakesAServiceInterface)
{
    mutex = pthread_mutex_t PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    pthread_mutex_lock(&mutex);
    attach();
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}

TEST_F(Adapter, HoldsItsBasesAndFieldsInOrder)
{
    attach();
    const fabric::StatePart* const first = adapter.get();
    const fabric::ClientInterface* const second = adapter.get();
    EXPECT_EQ(static_cast<const void*>(second), first + 1);
    const void* last[3];
    std::memcpy(last, reinterpret_cast<const char*>(adapter.get() + 1) - sizeof(last),
                sizeof(last));
    EXPECT_EQ(last[0], static_cast<fabric::AbstractApplication*>(this));
    EXPECT_EQ(last[1], &component);
    EXPECT_EQ(last[2], static_cast<fabric::ServiceInterface*>(this));
}

} // namespace
