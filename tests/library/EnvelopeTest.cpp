#include "Desk.h"

#include <cstring>
#include <memory>

namespace {

using desk::releaseNote;
using fabric::EventHandler;
using fabric::SerializableMessageData;
using fabric::SerializableMessageEvent;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr fabric::MsgMeta released = {0xFFFFFFFFU, 0, 0, 0xFF};
const nubEndianTable_t* const table = &__nub_EndianTable_chronalMsgTimezone_t;

TEST(Envelope, ReleasesItsPayloadWithTheLastOwner)
{
    desk::Journal journal;
    auto data = SerializableMessageData::create(table->size, *table);
    const void* const payload = data->payload;
    {
        const SerializableMessageEvent event({1, 2, 3, 0}, {-1, 4}, data);
        data.reset();
        EXPECT_THAT(journal.take(), IsEmpty());
    }
    EXPECT_THAT(journal.take(), ElementsAre(releaseNote(0, released, table, payload)));
}

TEST(Envelope, ReleasesANullPayloadToo)
{
    desk::Journal journal;
    {
        const SerializableMessageData data(nullptr, 17, table);
    }
    EXPECT_THAT(journal.take(), ElementsAre(releaseNote(17, released, table, nullptr)));
}

TEST(Envelope, OutlivesAMiddlewareThatDestroysTheEventAtOnce)
{
    desk::Desk<desk::BareAdapter> desk;
    desk.attach();
    const void* payload = nullptr;
    desk.journal.onNote = [&](const std::string& call) {
        if (call.find("sendEvent") != 0)
            return;
        payload = desk.application.sent->data->payload;
        desk.application.sent.reset();
        EXPECT_EQ(desk.journal.take().back(), call) << "there is another owner";
    };
    desk.adapter.cmdTimezoneSet(desk.ids, "Europe/Berlin");
    EXPECT_THAT(desk.journal.take(), ElementsAre(releaseNote(0, released, table, payload)));
}

struct Target
{
    virtual ~Target() = default;
    int receive(const SerializableMessageEvent& event)
    {
        received = &event;
        return -17;
    }

    const SerializableMessageEvent* received = nullptr;
};

struct DerivedTarget : Target
{
};

class Handler : public ::testing::Test
{
protected:
    DerivedTarget target_;
    EventHandler handler_{static_cast<Target*>(&target_), &Target::receive};
    EventHandler nobodys_{static_cast<Target*>(nullptr), &Target::receive};
    SerializableMessageEvent event_{{}, {}, nullptr};
};

TEST_F(Handler, PassesTheEventAndTheResultThrough)
{
    EXPECT_EQ(handler_.boundCaller().invoke(event_), -17);
    EXPECT_EQ(target_.received, &event_);
}

TEST_F(Handler, IsIndependentOfTheOneItIsCopiedFrom)
{
    auto original = std::make_unique<EventHandler>(handler_);
    const EventHandler copy(*original);
    EventHandler assigned(nobodys_);
    assigned = *original;
    std::memset(static_cast<void*>(original.get()), 0xA5, sizeof(*original));
    ::operator delete(original.release());

    for (const EventHandler* handler : {&copy, static_cast<const EventHandler*>(&assigned)}) {
        EXPECT_EQ(handler->boundCaller().invoke(event_), -17);
        EXPECT_EQ(handler->boundCaller().getObject(), &target_);
    }
}

TEST_F(Handler, NamesTheDynamicTypeOfItsObject)
{
    EXPECT_EQ(handler_.boundCaller().getClassName(), typeid(DerivedTarget).name());
    EXPECT_EQ(nobodys_.boundCaller().getClassName(), "fabric::Arg1Method");
}

TEST_F(Handler, NamesItsMethod)
{
    const EventHandler handler(static_cast<chronal::UserAdapter*>(nullptr),
                               &chronal::UserAdapter::callReplyResult);
    EXPECT_THAT(handler.boundCaller().getMethodName(), HasSubstr("callReplyResult"));
    desk::Journal journal;
    journal.symbolsKnown = false;
    EXPECT_EQ(handler.boundCaller().getMethodName(), "fabric::No name");
}

} // namespace
