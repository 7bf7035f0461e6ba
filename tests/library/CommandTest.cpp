#include "CommandRows.h"
#include "Desk.h"

#include <cstring>

namespace {

using desk::adapterLine;
using desk::BareAdapter;
using desk::DebugLines;
using fabric::MsgIds;
using fabric::SerializableMessageEvent;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Ref;
using ::testing::Return;

std::string textOf(const nubDeserString_t& field)
{
    if (!field.chars)
        return "null";
    EXPECT_EQ(field.chars[field.length], '\0');
    std::string characters(field.chars, field.length);
    for (char& character : characters)
        character = character ? character : '.';
    return std::to_string(field.length) + ':' + characters;
}

template <typename Value>
Value take(unsigned char* bytes)
{
    Value value;
    std::memcpy(&value, bytes, sizeof(value));
    std::memset(bytes, 0, sizeof(value));
    return value;
}

/// The members of a record in the order of its table. What is left of `bytes` is padding; a time
/// has taken its own along if it is a caller's.
std::string valuesOf(std::vector<unsigned char>& bytes, const nubEndianTable_t& table)
{
    std::string values;
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        unsigned char* const at = bytes.data() + (entry->code & 0xffff);
        values += values.empty() ? "" : " ";
        if (entry->code >> 16 == 4)
            values += std::to_string(take<std::int32_t>(at));
        else if (entry->argument.table == &__nub_EndianTable_nubDeserString_t) {
            values += textOf(take<nubDeserString_t>(at));
        } else {
            const auto seconds = take<std::int64_t>(at);
            values += desk::text({seconds, take<std::int32_t>(at + 8)});
            EXPECT_EQ(take<std::uint32_t>(at + 12), seconds != 0 ? paddingOfCaller : 0) << values;
        }
    }
    return values;
}

class Command : public ::testing::TestWithParam<CommandRow>, public desk::Desk<BareAdapter>
{
protected:
    MsgIds ids = {1, 2};
    DebugLines debug;

    void attach() { adapter.setServiceInterface(&service); }
    void send() { GetParam().send(adapter, ids); }
};

TEST_P(Command, SendsItsRecordUnderItsIdentity)
{
    const CommandRow& row = GetParam();
    std::unique_ptr<SerializableMessageEvent> event;
    std::size_t linesBeforeServiceId = 99;
    attach();
    {
        InSequence inOrder;
        EXPECT_CALL(service, getServiceId).WillOnce([&] {
            linesBeforeServiceId = debug.lines.size();
            return std::uint32_t(serviceId);
        });
        EXPECT_CALL(application, sendEvent(Ref(ids), 0, _))
            .WillOnce([&](MsgIds&, int, SerializableMessageEvent* sent) {
                EXPECT_EQ(sent->data.use_count(), 2);
                event.reset(sent);
                return 0;
            });
    }
    send();

    ASSERT_TRUE(event);
    EXPECT_EQ(event->meta.serviceId, std::uint32_t(serviceId));
    EXPECT_EQ(event->meta.resourceId, row.resourceId);
    EXPECT_EQ(event->meta.operationId, row.operationId);
    EXPECT_EQ(event->meta.kind, 0);
    EXPECT_EQ(event->sender.node, -1);
    EXPECT_EQ(event->sender.componentId, std::uint32_t(componentId));
    EXPECT_EQ(ids, (MsgIds{1, 2}));

    ASSERT_EQ(event->data.use_count(), 1);
    EXPECT_EQ(event->data->releaseWord, 0U);
    ASSERT_EQ(event->data->endianTable, row.table);
    const auto* const record = static_cast<unsigned char*>(event->data->payload);
    std::vector<unsigned char> bytes(record, record + row.table->size);
    EXPECT_EQ(valuesOf(bytes, *row.table), row.values);
    EXPECT_EQ(bytes, std::vector<unsigned char>(bytes.size())) << "other padding is zero";

    if (row.information)
        EXPECT_THAT(debug.lines, ElementsAre(adapterLine("cb0fa0", row.name, row.information)));
    else
        EXPECT_THAT(debug.lines, ElementsAre());
    EXPECT_EQ(linesBeforeServiceId, debug.lines.size());
}

TEST_P(Command, WritesOneLineAndCallsNothingWithoutAServiceInterface)
{
    send();
    EXPECT_THAT(debug.lines,
                ElementsAre(adapterLine("cb0bb8", GetParam().name,
                                        "Unable to send command, not yet connected.")));
}

TEST_P(Command, LeavesTheEventToAMiddlewareThatFails)
{
    attach();
    std::unique_ptr<SerializableMessageEvent> event;
    EXPECT_CALL(service, getServiceId);
    EXPECT_CALL(application, sendEvent).WillOnce([&](MsgIds&, int, SerializableMessageEvent* sent) {
        event.reset(sent);
        return -3;
    });
    send();
    EXPECT_EQ(event->data.use_count(), 1);
    EXPECT_THAT(debug.lines.back(),
                adapterLine("cb0bb8", GetParam().name, "Error sending message event: -3."));
}

TEST_P(Command, WritesNothingWhenNoLineIsEnabled)
{
    fabric::host::setDebugSwitches("");
    send();
    attach();
    EXPECT_CALL(service, getServiceId);
    EXPECT_CALL(application, sendEvent).WillOnce([](MsgIds&, int, SerializableMessageEvent* sent) {
        delete sent;
        return -1;
    });
    send();
    EXPECT_THAT(debug.lines, ElementsAre());
}

TEST_P(Command, PassesOnWhatTheMiddlewareThrows)
{
    attach();
    EXPECT_CALL(service, getServiceId).WillOnce([]() -> std::uint32_t { throw 1; });
    EXPECT_THROW(send(), int);
    EXPECT_CALL(service, getServiceId).WillOnce(Return(3));
    EXPECT_CALL(application, sendEvent)
        .WillOnce([](MsgIds&, int, SerializableMessageEvent* sent) -> int {
            delete sent;
            throw 2;
        });
    EXPECT_THROW(send(), int);
}

std::string nameOf(const ::testing::TestParamInfo<CommandRow>& info)
{
    return info.param.name + ("_" + std::to_string(info.index));
}

INSTANTIATE_TEST_SUITE_P(All, Command, ::testing::ValuesIn(commandRows), nameOf);

} // namespace
