#include "Desk.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>

namespace {

using desk::adapterLine;
using desk::BareAdapter;
using desk::DebugLines;
using desk::RecordingAdapter;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::Return;

struct Registered
{
    std::string where;
    fabric::MsgMeta key;
    int flags;
    fabric::EventHandler handler;
};

/// A desk whose middleware writes down the registrations and gives out ids from 100 on.
template <typename Adapter>
struct Reception : desk::Desk<Adapter>
{
    Reception()
    {
        const auto record = [this](const char* where) {
            return [this, where](const fabric::MsgMeta& key, int flags,
                                 const fabric::EventHandler& handler) {
                registered.push_back({where, key, flags, handler});
                return 99 + static_cast<int>(registered.size());
            };
        };
        ON_CALL(this->component, addEventHandler).WillByDefault(record("component"));
        ON_CALL(this->application, addEventHandler).WillByDefault(record("application"));
        EXPECT_CALL(this->component, addEventHandler).Times(::testing::AnyNumber());
        EXPECT_CALL(this->application, addEventHandler).Times(::testing::AnyNumber());
    }

    std::vector<Registered> registered;
};

struct RegistrationRow
{
    const char* where;
    std::uint32_t resourceId;
    std::uint32_t operationId;
    int kind;
    const char* callback;
};

const RegistrationRow registrationRows[] = {
    {"component", 31032008, 26032014, 2, "onReplyTimeRefInfo"},
    {"component", 31032008, 26032013, 2, "onReplyTimeRefAt"},
    {"component", 31032010, 26032013, 2, "onReplyTimeAt"},
    {"component", 31032010, 26032014, 2, "onReplyUtcDeviationInfo"},
    {"component", 31032007, 26032014, 2, "onReplyResult"},
    {"component", 31032013, 26032014, 2, "onReplyDateTimeSettingsInfo"},
    {"component", 31032014, 26032014, 2, "onReplyTimezoneInfo"},
    {"application", 31032009, 26032014, 1, "onNotifyCurrentTime"},
    {"application", 31032010, 26032014, 1, "onNotifyDeviationChange"},
    {"application", 31032014, 26032014, 1, "onNotifyTimezoneChange"},
    {"application", 31032018, 26032014, 1, "onNotifyDtvTimeChange"},
    {"application", 31032020, 26032014, 1, "onNotifyDSTChange"},
};

TEST(Adapter, RegistersTwelveReceiversInOrder)
{
    Reception<RecordingAdapter> desk;
    std::uint32_t serviceId = 500;
    EXPECT_CALL(desk.service, getServiceId).Times(12).WillRepeatedly([&] { return serviceId++; });
    desk.adapter.setServiceInterface(&desk.service);
    static_cast<fabric::ClientInterface&>(desk.adapter).onServiceConnected();

    ASSERT_EQ(desk.registered.size(), std::size(registrationRows));
    for (std::size_t i = 0; i < desk.registered.size(); ++i) {
        const RegistrationRow& row = registrationRows[i];
        const Registered& actual = desk.registered[i];
        SCOPED_TRACE(row.callback);
        EXPECT_EQ(actual.where, row.where);
        EXPECT_EQ(actual.flags, 0);
        EXPECT_EQ(actual.key.serviceId, 500 + i) << "asked anew for each row";
        EXPECT_EQ(actual.key.resourceId, row.resourceId);
        EXPECT_EQ(actual.key.operationId, row.operationId);
        EXPECT_EQ(actual.key.kind, row.kind);

        // The copy that the middleware keeps leads to the receiver of that row.
        const auto data = fabric::SerializableMessageData::create(
            sizeof(chronalMsgDateTime_t), __nub_EndianTable_chronalMsgDateTime_t);
        const fabric::SerializableMessageEvent event({}, {}, data);
        EXPECT_EQ(actual.handler.boundCaller().invoke(event), 0);
        EXPECT_THAT(desk.adapter.calls.back(),
                    ::testing::StartsWith(row.callback + std::string(" ")));
        EXPECT_EQ(actual.handler.boundCaller().getObject(),
                  static_cast<chronal::UserAdapter*>(&desk.adapter));
    }
    for (int id = 100; id < 112; ++id)
        EXPECT_CALL(desk.component, removeEventHandler(id));
}

TEST(Adapter, KeepsAllRegistrationsUntilDisconnected)
{
    Reception<BareAdapter> desk;
    EXPECT_CALL(desk.service, getServiceId).Times(24);
    desk.adapter.setServiceInterface(&desk.service);
    DebugLines debug;
    desk.adapter.onServiceConnected();
    desk.adapter.onServiceConnected();
    desk.adapter.onServiceConnectionFailed(-5);
    EXPECT_EQ(desk.registered.size(), 24U);

    std::size_t linesWhenRemoving = 0;
    EXPECT_CALL(desk.component, removeEventHandler(_)).Times(24).WillRepeatedly([&](int) {
        linesWhenRemoving = debug.lines.size();
    });
    desk.adapter.onServiceDisconnected(7);
    EXPECT_EQ(linesWhenRemoving, 4U) << "the line comes first";
    ::testing::Mock::VerifyAndClearExpectations(&desk.component);
    desk.adapter.onServiceDisconnected(0);

    EXPECT_THAT(
        debug.lines,
        ElementsAre(adapterLine("51388", "onServiceConnected", "Called."),
                    adapterLine("51388", "onServiceConnected", "Called."),
                    adapterLine("50bb8", "onServiceConnectionFailed", "Called: Reason is -5."),
                    adapterLine("50bb8", "onServiceDisconnected", "Called: Reason is 7."),
                    adapterLine("50bb8", "onServiceDisconnected", "Called: Reason is 0.")));
}

TEST(Adapter, RegistersNothingWithoutAServiceInterface)
{
    desk::Desk<BareAdapter> desk;
    DebugLines debug;
    desk.adapter.onServiceConnected();
    EXPECT_THAT(debug.lines, ElementsAre(adapterLine("51388", "onServiceConnected", "Called.")));
}

TEST(Adapter, KeepsWhatIsRegisteredWhenARegistrationThrows)
{
    desk::Desk<BareAdapter> desk;
    desk.adapter.setServiceInterface(&desk.service);
    EXPECT_CALL(desk.service, getServiceId).Times(2);
    EXPECT_CALL(desk.component, addEventHandler)
        .WillOnce(Return(31))
        .WillOnce([](const fabric::MsgMeta&, int, const fabric::EventHandler&) -> int { throw 3; });
    EXPECT_THROW(desk.adapter.onServiceConnected(), int);
    EXPECT_CALL(desk.component, removeEventHandler(31));
}

TEST(Adapter, KeepsItsFirstServiceInterface)
{
    desk::Desk<BareAdapter> desk;
    ::testing::StrictMock<desk::MockService> other;
    DebugLines debug;
    desk.adapter.setServiceInterface(nullptr);
    desk.adapter.setServiceInterface(&desk.service);
    EXPECT_THAT(debug.lines, ElementsAre());
    for (fabric::ServiceInterface* late : {static_cast<fabric::ServiceInterface*>(&other),
                                           static_cast<fabric::ServiceInterface*>(&desk.service),
                                           static_cast<fabric::ServiceInterface*>(nullptr)}) {
        desk.adapter.setServiceInterface(late);
        EXPECT_THAT(debug.lines, ElementsAre(adapterLine("50bb8", "setServiceInterface",
                                                         "Interface pointer already setup.")));
        debug.lines.clear();
    }
    EXPECT_EQ(pthread_mutex_trylock(&desk.holder.mutex), 0) << "the mutex is free again";
    pthread_mutex_unlock(&desk.holder.mutex);

    EXPECT_CALL(desk.service, getServiceId);
    EXPECT_CALL(desk.application, sendEvent)
        .WillOnce([](fabric::MsgIds&, int, fabric::SerializableMessageEvent* sent) {
            delete sent;
            return 0;
        });
    fabric::MsgIds ids = {};
    desk.adapter.cmdTimeInit(ids);
}

TEST(Adapter, WritesItsSecondHandOverLineWithTheMutexHeld)
{
    desk::Desk<BareAdapter> desk;
    desk.adapter.setServiceInterface(&desk.service);
    int heldDuringTheLine = 0;
    fabric::host::setDebugSwitches("5:3000");
    fabric::host::setDebugSink([&](std::uint32_t, const std::string&) {
        heldDuringTheLine = pthread_mutex_trylock(&desk.holder.mutex);
    });
    desk.adapter.setServiceInterface(&desk.service);
    fabric::host::setDebugSink(nullptr);
    fabric::host::setDebugSwitches("");
    EXPECT_EQ(heldDuringTheLine, EBUSY);
}

// ------------------------------------------------------------------- the binary interface ---

const void* const* tableOf(const void* object)
{
    const void* const* table;
    std::memcpy(&table, object, sizeof(table));
    return table;
}

/// An application with a virtual function of its own, which comes after the adapter's.
class ExtendedAdapter : public RecordingAdapter
{
public:
    using RecordingAdapter::RecordingAdapter;
    virtual int ownFunction() { return 12; }
};

TEST(AdapterTable, HoldsTheLibrarysDefaultsForAnApplicationInAnotherBinary)
{
    desk::Desk<BareAdapter> desk;
    const auto* const library =
        static_cast<const void* const*>(dlsym(RTLD_DEFAULT, "_ZTVN7chronal11UserAdapterE"));
    ASSERT_NE(library, nullptr);
    for (std::size_t slot = 5; slot <= 16; ++slot)
        EXPECT_EQ(tableOf(&desk.adapter)[slot], library[2 + slot]) << slot;
}

TEST(AdapterObject, HasItsBasesAndFieldsInOrder)
{
    desk::Desk<BareAdapter> desk;
    desk.adapter.setServiceInterface(&desk.service);
    chronal::UserAdapter* const adapter = &desk.adapter;
    const auto* const start = reinterpret_cast<const char*>(adapter);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<fabric::StatePart*>(adapter)), start);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<fabric::ClientInterface*>(adapter)),
              start + sizeof(fabric::StatePart));
    const std::size_t fields = sizeof(fabric::StatePart) + sizeof(fabric::ClientInterface) +
                               sizeof(fabric::EventHandlerIdSet);
    const void* pointers[3];
    ASSERT_EQ(sizeof(chronal::UserAdapter), fields + sizeof(pointers));
    std::memcpy(pointers, start + fields, sizeof(pointers));
    EXPECT_THAT(pointers, ElementsAre(static_cast<fabric::AbstractApplication*>(&desk.application),
                                      static_cast<fabric::AbstractComponent*>(&desk.component),
                                      static_cast<fabric::ServiceInterface*>(&desk.service)));
}

TEST(AdapterObject, CallsAnApplicationsOwnVirtualFunction)
{
    desk::Desk<ExtendedAdapter> desk;
    EXPECT_EQ(desk.adapter.ownFunction(), 12);
    EXPECT_THAT(desk.adapter.calls, ElementsAre());
}

} // namespace
