#include "Desk.h"
#include "Interposed.h"

#include <cstring>
#include <memory>

namespace {

using fabric::Event;
using fabric::EventHandler;
using fabric::SerializableMessageData;
using fabric::SerializableMessageEvent;

constexpr std::size_t word = sizeof(void*);

class Envelope : public ::testing::Test
{
protected:
    Envelope() { interposed::releases = &releases; }
    ~Envelope() override { interposed::releases = nullptr; }

    std::vector<interposed::Release> releases;
};

TEST_F(Envelope, ReleasesItsPayloadThroughTheMiddlewareOnce)
{
    const nubEndianTable_t& table = __nub_EndianTable_chronalMsgTimezone_t;
    auto data = SerializableMessageData::create(sizeof(chronalMsgTimezone_t), table);
    void* const payload = data->payload;
    {
        const SerializableMessageEvent event({1, 2, 3, 0}, {-1, 4}, data);
        data.reset();
        EXPECT_TRUE(releases.empty()) << "the event is an owner too";
    }
    ASSERT_EQ(releases.size(), 1U);
    const interposed::Release& release = releases[0];
    EXPECT_EQ(release.word, 0U);
    EXPECT_EQ(release.release.serviceId, 0xFFFFFFFFU);
    EXPECT_EQ(release.release.resourceId, 0U);
    EXPECT_EQ(release.release.operationId, 0U);
    EXPECT_EQ(release.release.kind, 0xFF);
    EXPECT_EQ(release.table, &table);
    EXPECT_EQ(release.payload, payload);
}

TEST_F(Envelope, ReleasesANullPayloadToo)
{
    {
        const SerializableMessageData data(nullptr, 17, &__nub_EndianTable_chronalCmdDummy_t);
    }
    ASSERT_EQ(releases.size(), 1U);
    EXPECT_EQ(releases[0].word, 17U);
    EXPECT_EQ(releases[0].payload, nullptr);
}

TEST_F(Envelope, OutlivesAMiddlewareThatDestroysTheEventAtOnce)
{
    desk::Desk<desk::BareAdapter> desk;
    desk.adapter.setServiceInterface(&desk.service);
    EXPECT_CALL(desk.service, getServiceId);
    EXPECT_CALL(desk.application, sendEvent)
        .WillOnce([this](fabric::MsgIds&, int, SerializableMessageEvent* event) {
            delete event;
            EXPECT_TRUE(releases.empty()) << "the command still holds the payload";
            return 0;
        });
    fabric::MsgIds ids = {};
    desk.adapter.cmdTimezoneSet(ids, "Europe/Berlin");
    EXPECT_EQ(releases.size(), 1U);
}

// --------------------------------------------------------------------------- handler objects ---

class Target : public desk::BareAdapter
{
public:
    using BareAdapter::BareAdapter;

    int receive(const SerializableMessageEvent& event)
    {
        received = &event;
        return -17;
    }

    const SerializableMessageEvent* received = nullptr;
};

class MoreDerivedTarget : public Target
{
public:
    using Target::Target;
};

class Handler : public ::testing::Test
{
protected:
    ~Handler() override { interposed::symbolsAreUnknown = false; }

    desk::Desk<MoreDerivedTarget> desk;
    Target* target = &desk.adapter;
    SerializableMessageEvent event{{}, {}, nullptr};
};

TEST_F(Handler, PassesTheEventAndTheResultThrough)
{
    const EventHandler handler(target, &Target::receive);
    EXPECT_EQ(handler.boundCaller().invoke(event), -17);
    EXPECT_EQ(target->received, &event);
    EXPECT_EQ(handler.boundCaller().getObject(), target);
}

TEST_F(Handler, IsIndependentOfTheOneItIsCopiedFrom)
{
    auto original = std::make_unique<EventHandler>(target, &Target::receive);
    const EventHandler copy(*original);
    EventHandler assigned(static_cast<Target*>(nullptr), &Target::receive);
    assigned = *original;
    std::memset(static_cast<void*>(original.get()), 0xA5, sizeof(*original));
    ::operator delete(original.release());

    for (const EventHandler* handler : {&copy, static_cast<const EventHandler*>(&assigned)}) {
        target->received = nullptr;
        const auto* const caller = reinterpret_cast<const char*>(&handler->boundCaller());
        EXPECT_EQ(caller, reinterpret_cast<const char*>(handler) + 2 * word);
        EXPECT_EQ(handler->boundCaller().invoke(event), -17);
        EXPECT_EQ(target->received, &event);
    }
}

TEST_F(Handler, NamesTheDynamicTypeAndTheMethod)
{
    const EventHandler handler(target, &Target::receive);
    EXPECT_EQ(handler.boundCaller().getClassName(), typeid(MoreDerivedTarget).name());
    const EventHandler adapterHandler(static_cast<chronal::UserAdapter*>(target),
                                      &chronal::UserAdapter::callReplyResult);
    EXPECT_THAT(adapterHandler.boundCaller().getMethodName(),
                ::testing::HasSubstr("callReplyResult"));
}

TEST_F(Handler, FallsBackWhenItCannotTellAName)
{
    const EventHandler handler(static_cast<Target*>(nullptr), &Target::receive);
    EXPECT_EQ(handler.boundCaller().getClassName(), "fabric::Arg1Method");
    EXPECT_EQ(handler.boundCaller().getObject(), nullptr);
    interposed::symbolsAreUnknown = true;
    EXPECT_EQ(handler.boundCaller().getMethodName(), "fabric::No name");
}

} // namespace
