#include "Frame.h"
#include "Sample.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <random>

namespace {

using namespace sample;
using fabric::host::decodeFrame;
using fabric::host::encodeFrame;
using fabric::host::frameHeaderSize;
using fabric::host::maxFrameSize;
using testing::HasSubstr;

const FrameBytes golden = {
    0,    0,    0,    62,                                       // length
    0,    0,    0,    7,    0,    0,    0,    100,              // service, resource
    0,    0,    0,    1,    0,    1,    0,    0,                // operation, kind, version
    0xff, 0xff, 0xff, 0xff, 0,    0,    0,    9,                // node, component
    0x41, 0x42, 0x43, 0x44, 0x51, 0x52, 0x53, 0x54,             // ids
    1,    2,    3,    4,    0x31, 0x32, 0x33, 0x34,             // first, last
    0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,             // inner.big
    0x21, 0x22, 0x23, 0x24, 0,    0,    0,    2,    0xc3, 0xa4, // inner.small, text
};

FrameBytes encoded(const SerializableMessageEvent& event)
{
    FrameBytes frame;
    EXPECT_EQ(0, encodeFrame(event, frame));
    return frame;
}

const Record& recordOf(const SerializableMessageEvent& event)
{
    return *static_cast<const Record*>(event.data->payload);
}

TEST(Frame, ARecordBecomesTheseBytesAndComesBackFromThem)
{
    EXPECT_EQ(golden, encoded(*recordEvent(setRecord, "\xc3\xa4")));

    std::string reason;
    const auto event = decodeFrame(golden, catalogue, reason);
    ASSERT_TRUE(event) << reason;
    EXPECT_EQ(0, std::memcmp(&setRecord, &event->meta, 13));
    EXPECT_EQ(-1, event->sender.node);
    EXPECT_EQ(9U, event->sender.componentId);
    EXPECT_EQ((MsgIds{0x41424344, 0x51525354}), event->ids);
    const Record& record = recordOf(*event);
    EXPECT_EQ(0x01020304U, record.first);
    EXPECT_EQ(0x1112131415161718U, record.inner.big);
    EXPECT_EQ(0x21222324U, record.inner.small);
    EXPECT_EQ(0x31323334U, record.last);
    EXPECT_EQ(2U, record.text.length);
    EXPECT_STREQ("\xc3\xa4", record.text.chars);
}

TEST(Frame, StringsTravelByTheirLength)
{
    const std::size_t longest = maxFrameSize - (golden.size() - 2);
    for (const std::string& text : {std::string(), std::string("a\0b\0", 4), std::string(300, 'x'),
                                    std::string(longest, 'y')}) {
        std::string reason;
        const auto event = decodeFrame(encoded(*recordEvent(setRecord, text)), catalogue, reason);
        ASSERT_TRUE(event) << reason;
        const nubDeserString_t& string = recordOf(*event).text;
        EXPECT_EQ(text, std::string(string.chars, string.length));
        EXPECT_EQ('\0', string.chars[string.length]);
    }

    auto event = recordEvent(setRecord, std::string(longest + 1, 'z'));
    FrameBytes frame;
    EXPECT_EQ(-EMSGSIZE, encodeFrame(*event, frame));
    nubDeserString_t& string = static_cast<Record*>(event->data->payload)->text;
    string.length = 0xffffffff;
    EXPECT_EQ(-EMSGSIZE, encodeFrame(*event, frame));
    std::free(std::exchange(string.chars, nullptr));
    EXPECT_EQ(encoded(*recordEvent(setRecord, "")), encoded(*event)) << "a length without chars";
}

TEST(Frame, MalformedFramesAreRefusedWithTheReason)
{
    const struct
    {
        std::function<void(FrameBytes&)> spoil;
        const char* reason;
    } rows[] = {
        {[](FrameBytes& frame) { frame.clear(); }, "frame of 0 bytes is shorter than a header"},
        {[](FrameBytes& frame) { frame.resize(35); }, "frame of 35 bytes is shorter"},
        {[](FrameBytes& frame) { frame[3] = 63; }, "frame of 62 bytes gives its length as 63"},
        {[](FrameBytes& frame) { frame[0] = 0x80; }, "gives its length as 2147483710"},
        {[](FrameBytes& frame) { frame.resize(maxFrameSize + 1); }, "65537 bytes is too long"},
        {[](FrameBytes& frame) { frame[7] = 8; }, "unknown service: service 8, resource 100"},
        {[](FrameBytes& frame) { frame[11] = 99; }, "unknown identity: service 7, resource 99"},
        {[](FrameBytes& frame) { frame[15] = 9; }, "operation 9, kind 0"},
        {[](FrameBytes& frame) { frame[16] = 3; }, "operation 1, kind 3"},
        {[](FrameBytes& frame) { frame[17] = 2; }, "unknown version 2"},
        {[](FrameBytes& frame) { frame[19] = 1; }, "reserved bytes are not zero"},
        {[](FrameBytes& frame) { frame[59] = 3; }, "setRecord: string length past the end"},
        {[](FrameBytes& frame) { frame[56] = 0xff; }, "setRecord: string length past the end"},
        {[](FrameBytes& frame) { frame[59] = 1; }, "setRecord: bytes behind the record"},
        {[](FrameBytes& frame) { frame.resize(58), frame[3] = 58; }, "setRecord: body too short"},
        {[](FrameBytes& frame) { frame.resize(36), frame[3] = 36; }, "setRecord: body too short"},
    };
    for (const auto& row : rows) {
        FrameBytes frame = golden;
        row.spoil(frame);
        std::string reason;
        EXPECT_FALSE(decodeFrame(frame, catalogue, reason)) << row.reason;
        EXPECT_THAT(reason, HasSubstr(row.reason));
    }
}

TEST(Frame, NoTruncationOrDamageIsTakenForSomethingElse)
{
    std::string reason;
    for (std::size_t size = 0; size < golden.size(); ++size) {
        FrameBytes frame(golden.begin(), golden.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(decodeFrame(frame, catalogue, reason)) << size;
        if (size < 4)
            continue;
        frame[3] = static_cast<std::uint8_t>(size);
        EXPECT_FALSE(decodeFrame(frame, catalogue, reason)) << size;
    }
    for (std::size_t at = 0; at < golden.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            FrameBytes frame = golden;
            frame[at] = static_cast<std::uint8_t>(value);
            if (const auto event = decodeFrame(frame, catalogue, reason)) {
                EXPECT_EQ(frame, encoded(*event)) << "byte " << at << ", value " << value;
            }
        }
}

TEST(Frame, RandomBodiesAreRefusedOrComeBackAsTheyWere)
{
    std::mt19937 random(20260101);
    unsigned accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        FrameBytes frame = golden;
        frame.resize(frameHeaderSize + random() % 48);
        frame[3] = static_cast<std::uint8_t>(frame.size());
        for (std::size_t at = frameHeaderSize; at < frame.size(); ++at)
            frame[at] = static_cast<std::uint8_t>(random());
        for (std::size_t at = 56; at < 60 && at < frame.size(); ++at)
            frame[at] &= at == 59 ? 31 : 0; // a length that may well fit
        std::string reason;
        const auto event = decodeFrame(frame, catalogue, reason);
        EXPECT_EQ(event != nullptr, reason.empty());
        if (event) {
            ++accepted;
            EXPECT_EQ(frame, encoded(*event));
        }
    }
    EXPECT_GT(accepted, 50U);
}

} // namespace
