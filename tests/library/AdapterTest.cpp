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

Data zone(std::uint32_t length, char* chars)
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

/// The messages of one identity, with the arguments that their callback has to get.
struct Receiver
{
    std::string identity;
    std::string callback;
    std::function<chronal::UserAdapter*(Desk&)> create; ///< an adapter that overrides it alone
    std::vector<std::pair<Data, std::string>> messages;
    std::string before = ""; ///< the notes before that of the callback
};

#define ON(callback, parameters, ...)                                                              \
#callback, [](Desk& desk) -> chronal::UserAdapter* {                                           \
        struct Noting : BareAdapter                                                                \
        {                                                                                          \
            using BareAdapter::BareAdapter;                                                        \
            void callback parameters override { note(#callback, ids, __VA_ARGS__); }               \
        };                                                                                         \
        return new Noting(desk, desk.component);                                                   \
    }
#define TWO "{10 1} {-30 2000000}"
#define ALL "{-360001 0} " TWO

// In the order of the registrations.
// clang-format off
const Receiver receivers[] = {
    {"component 31032008 26032014 2", ON(onReplyTimeRefInfo, (Ids ids, Time a, Time b, Time c,
      Source d, bool e, int f), a, b, c, d.id, e, f),
     {{times(4, 2, -4), ALL " 4 true -4"}, {times(-9, 0, 0), ALL " -9 false 0"}}},
    {"component 31032008 26032013 2", ON(onReplyTimeRefAt, (Ids ids, Time a, Time b, Source c), a,
      b, c.id), {{times(4, 2, -4), TWO " 4"}}},
    {"component 31032010 26032013 2", ON(onReplyTimeAt, (Ids ids, Time a, Time b), a, b),
     {{times(4, 2, -4), TWO}}},
    {"component 31032010 26032014 2", ON(onReplyUtcDeviationInfo, (Ids ids, Time a, Time b, Time c,
      Source d), a, b, c, d.id), {{times(4, 2, -4), ALL " 4"}}},
    {"component 31032007 26032014 2", ON(onReplyResult, (Ids ids, int a), a),
     {{dataOf(chronalMsgReplyResult_t{-3}), "-3"}}},
    {"component 31032013 26032014 2", ON(onReplyDateTimeSettingsInfo, (Ids ids, Time a, Time b,
      Time c, Time d, Time e, const int& f, Text g, const bool& h, const bool& i, const bool& j),
      a, b, c, d, e, f, shown(g), h, i, j),
     {{settings(-1, 0, 5), "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 4:a.bc true false true"},
      {settings(0, INT32_MIN, 0), "{1 0} {2 0} {3 0} {4 0} {5 -6} 42 4:a.bc false true false"}}},
    {"component 31032014 26032014 2", ON(onReplyTimezoneInfo, (Ids ids, Text a, Time b), shown(a),
      b), {{zone(5, text), "5:a.bcd {7 8}"}, {zone(0, text), "0: {7 8}"}, {zone(9, nullptr), "0: {7 8}"}}},
    {"application 31032009 26032014 1", ON(onNotifyCurrentTime, (Ids ids, Time a, Time b, Time c,
      int d, int e), a, b, c, d, e), {{times(4, 2, -4), ALL " 2 -4"}}},
    {"application 31032010 26032014 1", ON(onNotifyDeviationChange, (Ids ids, Time a, Time b,
      Time c), a, b, c), {{times(4, 2, -4), ALL}}, "tzset\n"},
    {"application 31032014 26032014 1", ON(onNotifyTimezoneChange, (Ids ids, Text a, Time b),
      shown(a), b), {{zone(3, text), "3:a.b {7 8}"}}, "tzset\n"},
    {"application 31032018 26032014 1", ON(onNotifyDtvTimeChange, (Ids ids, Time a), a),
     {{dataOf(chronalMsgDtvTime_t{{-1, -2}}), "{-1 -2}"}}},
    {"application 31032020 26032014 1", ON(onNotifyDSTChange, (Ids ids, int a), a),
     {{dataOf(chronalMsgDST_t{77}), "77"}}},
};
// clang-format on

class Adapter : public ::testing::Test, public Desk
{
protected:
    void connect(const Receiver& row)
    {
        adapter.reset(row.create(*this));
        attach();
        adapter->onServiceConnected();
    }
    /// Passes a message to the handler of the row's identity, and returns the notes of it.
    std::string receive(const Receiver& row, const Data& data)
    {
        const fabric::SerializableMessageEvent event({1, 2, 3, 2}, {-1, 9}, data);
        received = &event;
        return during([&] { EXPECT_EQ(handlers.at(row.identity).boundCaller().invoke(event), 0); });
    }
};

TEST_F(Adapter, RegistersItsReceiversInOrder)
{
    std::string expected = "line 332680 onServiceConnected(): Called.\n";
    for (const Receiver& row : receivers)
        expected += words("getServiceId\n" + row.identity, "of", serviceId++, "flags 0\n");
    serviceId = 500;
    attach();
    fabric::ClientInterface& client = *adapter;
    EXPECT_EQ(during([&] { client.onServiceConnected(); }), expected);
}

TEST_F(Adapter, CallsOnlyTheCallbackThatTheApplicationOverrides)
{
    for (const Receiver& overridden : receivers) {
        connect(overridden);
        for (const Receiver& row : receivers)
            for (const auto& [data, arguments] : row.messages) {
                const std::string call = words(row.callback, arguments + '\n');
                EXPECT_EQ(receive(row, data), row.before + (&row == &overridden ? call : ""));
            }
    }
}

TEST_F(Adapter, CallsNothingWithoutARecord)
{
    const Data noPayload(new fabric::SerializableMessageData(nullptr, 0, nullptr));
    for (const Receiver& row : receivers) {
        connect(row);
        EXPECT_EQ(receive(row, nullptr) + receive(row, noPayload), row.before + row.before);
    }
}

TEST_F(Adapter, PassesOnWhatACallbackThrows)
{
    for (const Receiver& row : receivers) {
        connect(row);
        onNote = [&](const std::string& call) { call == "tzset" ? void() : throw call; };
        const Data& data = row.messages.front().first;
        EXPECT_THROW(receive(row, data), std::string);
        EXPECT_EQ(data.use_count(), 1);
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
    linesWanted = false;
    expect("", 0, [&] { adapter->onServiceConnected(); });
    linesWanted = true;
    expect("", 0, [&] { adapter->setServiceInterface(nullptr); });
    expect("", 0, [&] { attach(); });
    expect(already, 0, [&] { attach(); });
    expect(already, 0, [&] { adapter->setServiceInterface(nullptr); });
    adapter->onServiceConnected();
    adapter->onServiceConnected();
    expect("line 330680 onServiceConnectionFailed(): Called: Reason is -5.\n", 24,
           [&] { adapter->onServiceConnectionFailed(-5); });
    expect(disconnected + "7.\nhandlers left: 0\n", 0, [&] { adapter->onServiceDisconnected(7); });
    expect(disconnected + "0.\n", 0, [&] { adapter->onServiceDisconnected(0); });
    expect("getServiceId\nsendEvent 1 2 0 -1 77 0 524 31032017 26032014 0 MsgAutoTime 0\n", 0,
           [&] { adapter->cmdTimeInit(ids); });
    linesWanted = false;
    expect("", 0, [&] {
        attach();
        adapter->onServiceConnectionFailed(1);
        adapter->onServiceDisconnected(1);
    });
    adapter->onServiceConnected();
    expect("handlers left: 0\n", 0, [&] { adapter.reset(); });
}

TEST_F(Adapter, KeepsWhatIsRegisteredWhenARegistrationThrows)
{
    attach();
    onNote = [&](const std::string& call) { handlerIds.size() < 2 ? void() : throw call; };
    EXPECT_THROW(adapter->onServiceConnected(), std::string);
    onNote = nullptr;
    EXPECT_EQ(handlerIds.size(), 2U);
    EXPECT_EQ(during([&] { adapter.reset(); }), "handlers left: 0\n");
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

struct Target
{
    int receive(const fabric::SerializableMessageEvent& event) { return event.sender.node - 17; }
};

TEST(Handler, PassesTheEventAndTheResultOn)
{
    Target target;
    const fabric::EventHandler handler(&target, &Target::receive);
    EXPECT_EQ(handler.boundCaller().invoke(fabric::SerializableMessageEvent({}, {9, 1}, nullptr)),
              -8);
}

TEST(Handler, NamesWhatItIsBoundTo)
{
    Desk desk;
    const auto nameOf = [&](chronal::UserAdapter* object) {
        const fabric::EventHandler handler(object, &chronal::UserAdapter::callReplyResult);
        EXPECT_EQ(handler.boundCaller().getObject(), object);
        return words(handler.boundCaller().getClassName(), handler.boundCaller().getMethodName());
    };
    const std::string name = nameOf(desk.adapter.get());
    EXPECT_EQ(name.find(typeid(BareAdapter).name()), 0U) << name;
    EXPECT_NE(name.find("callReplyResult"), std::string::npos) << name;
    desk.symbolsKnown = false;
    EXPECT_EQ(nameOf(nullptr), "fabric::Arg1Method fabric::No name");
}

} // namespace
