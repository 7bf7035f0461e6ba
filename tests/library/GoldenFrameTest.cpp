#include "CommandRows.h"
#include "Desk.h"
#include "ReceiverRows.h"

#include <algorithm>
#include <cstring>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Session.h>

// The bytes of every message on the wire, in both directions, as every build has to write and read
// them.

namespace {

using desk::RecordingAdapter;
using fabric::host::FrameBytes;
using fabric::host::MessageType;
using ::testing::ElementsAre;

constexpr std::uint32_t serviceId = 0x01020304;

/// A service that writes down what it gets.
class CapturingLink : public fabric::host::Link
{
public:
    void open(boost::asio::io_context&, fabric::host::LinkListener& session) override
    {
        session.linkUp();
        for (const FrameBytes& frame : received)
            EXPECT_TRUE(session.frameReceived(frame));
    }
    void close() override {}
    int send(fabric::host::FrameView frame) override
    {
        sent.emplace_back(frame.data, frame.data + frame.size);
        return 0;
    }

    std::vector<FrameBytes> received; ///< at the opening
    std::vector<FrameBytes> sent;
};

FrameBytes bytesOf(const std::string& hexadecimal)
{
    FrameBytes bytes;
    for (std::size_t at = 0; at < hexadecimal.size(); at += 2)
        bytes.push_back(
            static_cast<std::uint8_t>(std::stoi(hexadecimal.substr(at, 2), nullptr, 16)));
    return bytes;
}

std::string hexadecimalOf(const FrameBytes& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

std::uint32_t wordAt(const FrameBytes& bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    for (std::size_t at = offset; at < offset + 4; ++at)
        word = word << 8 | bytes.at(at);
    return word;
}

/// The identities of all rows, with the record of each.
std::vector<MessageType> allTypes()
{
    std::vector<MessageType> types;
    const auto add = [&](const MessageType& type) {
        const bool known = std::any_of(types.begin(), types.end(), [&](const MessageType& other) {
            return other.resourceId == type.resourceId && other.operationId == type.operationId &&
                   other.kind == type.kind;
        });
        if (!known)
            types.push_back(type);
    };
    for (const CommandRow& row : commandRows)
        add({row.name, row.resourceId, row.operationId, 0, row.table});
    for (const ReceiverRow& row : receiverRows) {
        if (!row.frame)
            continue;
        const FrameBytes frame = bytesOf(row.frame);
        add({row.call, wordAt(frame, 8), wordAt(frame, 12), frame[16], row.data()->endianTable});
    }
    return types;
}

class GoldenFrame : public ::testing::Test
{
protected:
    GoldenFrame()
    {
        adapter.setServiceInterface(&session.service());
        session.attach(adapter);
    }
    ~GoldenFrame() override { session.detach(adapter); }

    std::vector<MessageType> types = allTypes();
    fabric::host::MessageCatalogue catalogue = {serviceId, types.data(), types.size()};
    CapturingLink* link = new CapturingLink;
    fabric::host::Session session{std::unique_ptr<fabric::host::Link>(link), catalogue};
    RecordingAdapter adapter{session.application(), session.component()};
};

TEST_F(GoldenFrame, CoversAllIdentities)
{
    // 22 commands, of which two share an identity, and twelve replies and notifications.
    EXPECT_EQ(types.size(), 21U + 12U);
}

TEST_F(GoldenFrame, IsWrittenByEveryCommand)
{
    for (const CommandRow& row : commandRows) {
        SCOPED_TRACE(row.name);
        fabric::MsgIds ids = {};
        link->sent.clear();
        row.send(adapter, ids);
        ASSERT_EQ(link->sent.size(), 1U);
        FrameBytes& frame = link->sent[0];
        ASSERT_GE(frame.size(), 36U);
        EXPECT_EQ(wordAt(frame, 24), session.component().componentId);
        EXPECT_EQ(wordAt(frame, 28), ids.originId);
        EXPECT_EQ(wordAt(frame, 32), ids.messageId);
        std::fill(frame.begin() + 24, frame.begin() + 36, std::uint8_t(0));
        EXPECT_EQ(hexadecimalOf(frame), row.frame);
    }
}

TEST_F(GoldenFrame, IsReadByEveryReceiver)
{
    std::vector<std::string> expected;
    for (const ReceiverRow& row : receiverRows) {
        if (!row.frame)
            continue;
        link->received.push_back(bytesOf(row.frame));
        expected.push_back(row.call);
    }
    session.connect();
    session.detach(adapter); // returns when all that came before has been delivered
    EXPECT_EQ(adapter.calls, expected);
}

} // namespace
