#include "../support/NullMiddleware.h"
#include "CommandRows.h"
#include "Desk.h"

#include <thread>

namespace {

/// Expects of every command that it sends its message if it has a service interface, and that it
/// writes its information line and this error.
void expectNotes(bool attached, int result, bool linesWanted, const std::string& error)
{
    for (const CommandRow& row : commandRows) {
        std::string expected;
        if (attached && linesWanted && !row.line.empty())
            expected += words("line 13307808", row.name + "():", row.line + '\n');
        if (attached)
            expected += words("getServiceId\nsendEvent 1 2 0 -1 77 0 500", row.values + '\n');
        if (!error.empty())
            expected += words("line 13306808", row.name + "():", error + '\n');

        Desk desk;
        desk.result = result;
        desk.linesWanted = linesWanted;
        if (attached)
            desk.attach();
        EXPECT_EQ(desk.during([&] { row.send(*desk.adapter, desk.ids); }), expected);
        EXPECT_EQ(desk.ids.messageId, attached ? 3U : 2U) << "the middleware fills the caller's";
        EXPECT_EQ(attached, desk.sent && desk.sent->data.use_count() == 1);
    }
}

TEST(Commands, SendOneMessageEach)
{
    expectNotes(true, 0, true, "");
    expectNotes(true, 1, true, "");
}

TEST(Commands, AreRefusedWithoutAServiceInterface)
{
    expectNotes(false, 0, true, "Unable to send command, not yet connected.");
}

TEST(Commands, ReportANegativeResult)
{
    expectNotes(true, -3, true, "Error sending message event: -3.");
}

TEST(Commands, WriteNoUnwantedLine)
{
    expectNotes(false, 0, false, "");
    expectNotes(true, -3, false, "");
}

TEST(Commands, PassOnWhatTheMiddlewareThrows)
{
    for (const std::string thrower : {"getServiceId", "sendEvent"}) {
        Desk desk;
        desk.attach();
        desk.onNote = [&](const std::string& call) {
            if (call.find(thrower) == 0)
                throw thrower;
        };
        for (const CommandRow& row : commandRows)
            EXPECT_THROW(row.send(*desk.adapter, desk.ids), std::string) << row.name;
    }
}

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

// For the thread sanitizer.
TEST(Commands, MayBeSentByManyThreads)
{
    fabric::StateHolder holder;
    desk::NullApplication application(holder);
    desk::NullComponent component;
    desk::NullService service;
    BareAdapter adapter(application, component);
    adapter.setServiceInterface(&service);
    const auto sendAll = [&](fabric::MsgIds ids) {
        for (const CommandRow& row : commandRows)
            row.send(adapter, ids);
    };
    std::thread other(sendAll, fabric::MsgIds());
    sendAll({});
    other.join();
}

} // namespace
