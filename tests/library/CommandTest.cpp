#include "../support/NullMiddleware.h"
#include "CommandRows.h"
#include "Desk.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <thread>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Replaces a member of a record by zeros, its padding too.
template <typename Value>
Value take(unsigned char* member)
{
    Value value;
    std::memcpy(&value, member, sizeof(value));
    std::memset(member, 0, sizeof(value));
    return value;
}

/// The length and the characters, with a dot for each NUL.
std::string textOf(const nubDeserString_t& string)
{
    if (!string.chars)
        return "null";
    std::string characters(string.chars, string.length + 1);
    std::replace(characters.begin(), characters.end(), '\0', '.');
    return std::to_string(string.length) + ':' + characters;
}

/// Takes the members out of a record, in the order of its table, and leaves the padding, except
/// that of a caller's time.
std::string takeValues(unsigned char* record, const nubEndianTable_t& table)
{
    std::ostringstream values;
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        unsigned char* const member = record + (entry->code & 0xffff);
        values << (entry == table.entries ? "" : " ");
        if (entry->code >> 16 == 4) {
            values << take<std::int32_t>(member);
        } else if (entry->argument.table == &__nub_EndianTable_nubOsalTime_t) {
            const nubOsalTime_struct time = {take<std::int64_t>(member),
                                             take<std::int32_t>(member + 8)};
            values << desk::text(time);
            EXPECT_EQ(take<std::uint32_t>(member + 12), time.seconds ? paddingOfCaller : 0);
        } else {
            values << textOf(take<nubDeserString_t>(member));
        }
    }
    return values.str();
}

class Command : public ::testing::TestWithParam<CommandRow>, protected desk::Desk<desk::BareAdapter>
{
protected:
    void send() { GetParam().send(adapter, ids); }

    /// The note of a debug line of this command.
    std::string line(const std::string& code, const std::string& message) const
    {
        return code + ' ' + GetParam().name + "(): " + message;
    }

    /// Expects the notes of one message, and nothing else.
    void expectOneMessage()
    {
        const CommandRow& row = GetParam();
        const fabric::MsgMeta identity = {500, row.resourceId, row.operationId, 0};
        std::vector<std::string> notes = {"getServiceId", "sendEvent " + desk::text(identity) +
                                                              ", flags 0, from -1 77"};
        if (row.line && journal.linesWanted)
            notes.insert(notes.begin(), line("cb0fa0", row.line));
        EXPECT_EQ(journal.take(), notes);
    }
};

TEST_P(Command, SendsOneMessage)
{
    attach();
    send();
    expectOneMessage();
}

TEST_P(Command, SendsItsRecord)
{
    attach();
    send();
    ASSERT_EQ(application.sent->data.use_count(), 1);
    const fabric::SerializableMessageData& data = *application.sent->data;
    EXPECT_EQ(data.releaseWord, 0U);
    ASSERT_EQ(data.endianTable, GetParam().table);
    const auto* const record = static_cast<unsigned char*>(data.payload);
    std::vector<unsigned char> bytes(record, record + data.endianTable->size);
    EXPECT_EQ(takeValues(bytes.data(), *data.endianTable), GetParam().values);
    EXPECT_EQ(bytes, std::vector<unsigned char>(bytes.size())) << "other padding is zero";
}

TEST_P(Command, PassesTheIdsOnUntouched)
{
    attach();
    send();
    EXPECT_EQ(application.sentIds, &ids);
    EXPECT_EQ(ids, (fabric::MsgIds{1, 2}));
}

TEST_P(Command, IsRefusedWithoutAServiceInterface)
{
    send();
    EXPECT_THAT(journal.take(),
                ElementsAre(line("cb0bb8", "Unable to send command, not yet connected.")));
}

TEST_P(Command, ReportsANegativeResult)
{
    attach();
    application.result = -3;
    send();
    EXPECT_EQ(journal.take().back(), line("cb0bb8", "Error sending message event: -3."));
    EXPECT_EQ(application.sent->data.use_count(), 1) << "the event stays the middleware's";
}

TEST_P(Command, DoesNotReportAPositiveResult)
{
    attach();
    application.result = 1;
    send();
    expectOneMessage();
}

TEST_P(Command, WritesNoUnwantedLine)
{
    journal.linesWanted = false;
    application.result = -3;
    send();
    EXPECT_THAT(journal.take(), IsEmpty());
    attach();
    send();
    expectOneMessage();
}

TEST_P(Command, PassesOnWhatTheMiddlewareThrows)
{
    attach();
    for (const char* const thrower : {"getServiceId", "sendEvent"}) {
        journal.onNote = [&](const std::string& call) {
            if (call.find(thrower) == 0)
                throw thrower;
        };
        EXPECT_THROW(send(), const char*);
    }
}

std::string nameOf(const ::testing::TestParamInfo<CommandRow>& info)
{
    return info.param.name + ("_" + std::to_string(info.index));
}

INSTANTIATE_TEST_SUITE_P(All, Command, ::testing::ValuesIn(commandRows), nameOf);

// For the thread sanitizer.
TEST(Commands, MayBeSentByManyThreads)
{
    fabric::StateHolder holder;
    desk::NullApplication application(holder);
    desk::NullComponent component;
    desk::NullService service;
    desk::BareAdapter adapter(application, component);
    adapter.setServiceInterface(&service);
    const auto sendAll = [&] {
        fabric::MsgIds ids = {};
        for (const CommandRow& row : commandRows)
            row.send(adapter, ids);
    };
    std::thread other(sendAll);
    sendAll();
    other.join();
}

} // namespace
