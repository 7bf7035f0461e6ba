#include "Desk.h"

namespace {

using fabric::EventHandler;
using fabric::SerializableMessageEvent;

const nubEndianTable_t* const table = &__nub_EndianTable_chronalMsgTimezone_t;

std::string releaseOf(int word, const void* payload)
{
    return words("release", word, 0xFFFFFFFFU, 0, 0, 0xFF, table, payload) + '\n';
}

TEST(Envelope, ReleasesANullPayloadToo)
{
    Desk desk;
    EXPECT_EQ(desk.during([] { fabric::SerializableMessageData(nullptr, 17, table); }),
              releaseOf(17, nullptr));
}

TEST(Envelope, ReleasesItsPayloadWithTheLastOwner)
{
    Desk desk;
    desk.attach();
    desk.adapter->cmdTimezoneSet(desk.ids, "Europe/Berlin");
    const void* payload = desk.sent->data->payload;
    EXPECT_EQ(desk.during([&] { desk.sent.reset(); }), releaseOf(0, payload));

    desk.onNote = [&](const std::string& call) {
        if (call.find("sendEvent") != 0)
            return;
        payload = desk.sent->data->payload;
        EXPECT_EQ(desk.during([&] { desk.sent.reset(); }), "") << "the command is an owner, too";
    };
    desk.adapter->cmdTimezoneSet(desk.ids, "Europe/Berlin");
    EXPECT_EQ(desk.notes, releaseOf(0, payload));
}

struct Target
{
    virtual ~Target() = default;
    int receive(const SerializableMessageEvent& event) { return event.sender.node - 17; }
};
struct DerivedTarget : Target
{
};

TEST(Handler, IsAValueThatPassesTheEventOn)
{
    DerivedTarget target;
    EventHandler original(static_cast<Target*>(&target), &Target::receive);
    const EventHandler nobodys(static_cast<Target*>(nullptr), &Target::receive);
    const EventHandler copy(original);
    EventHandler assigned(nobodys);
    assigned = original;
    original = nobodys;
    for (const EventHandler* const handler : {&copy, const_cast<const EventHandler*>(&assigned)}) {
        EXPECT_EQ(handler->boundCaller().getObject(), &target);
        EXPECT_EQ(handler->boundCaller().getClassName(), typeid(DerivedTarget).name());
        EXPECT_EQ(handler->boundCaller().invoke(SerializableMessageEvent({}, {9, 1}, nullptr)), -8);
    }
    EXPECT_EQ(original.boundCaller().getClassName(), "fabric::Arg1Method");
}

TEST(Handler, NamesItsMethod)
{
    Desk desk;
    const EventHandler handler(desk.adapter.get(), &chronal::UserAdapter::callReplyResult);
    const std::string name = handler.boundCaller().getMethodName();
    EXPECT_NE(name.find("callReplyResult"), std::string::npos) << name;
    desk.symbolsKnown = false;
    EXPECT_EQ(handler.boundCaller().getMethodName(), "fabric::No name");
}

} // namespace
