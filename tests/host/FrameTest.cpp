#include "Sample.h"

#include <cerrno>

namespace {

using namespace sample;

const FrameBytes golden = {
    0,    0,    0,    62,                                       // length
    0,    0,    0,    7,    0,    0,    0,    100,              // service, resource
    0,    0,    0,    1,    0,    1,    0,    0,                // operation, kind, version
    0xff, 0xff, 0xff, 0xff, 0,    0,    0,    9,                // node, component
    0x41, 0x42, 0x43, 0x44, 0x51, 0x52, 0x53, 0x54,             // ids
    1,    2,    3,    4,    0x31, 0x32, 0x33, 0x34,             // number, last
    0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,             // inner.big
    0x21, 0x22, 0x23, 0x24, 0,    0,    0,    2,    0xc3, 0xa4, // inner.small, text
};

TEST(Frame, ARecordIsEncodedAsTheseBytesAndDecodedFromThem)
{
    const MsgIds ids = {0x41424344, 0x51525354};
    EXPECT_EQ(golden, encoded(*message(ask, 0x01020304, "\xc3\xa4", ids)));
    std::string reason;
    const auto event = decodeFrame(golden, catalogue, reason);
    ASSERT_TRUE(event) << reason;
    EXPECT_EQ(0x01020304U, recordOf(*event).number);
}

TEST(Frame, StringsAreEncodedByTheirLengthUpToThatOfAFrame)
{
    const std::size_t longest = maxFrameSize - (golden.size() - 2);
    std::string reason;
    for (const std::string& text : {std::string(), std::string("a\0b\0", 4), std::string(300, 'x'),
                                    std::string(longest, 'y')}) {
        const auto event = decodeFrame(encoded(*message(ask, 1, text)), catalogue, reason);
        ASSERT_TRUE(event) << reason;
        const nubDeserString_t& string = recordOf(*event).text;
        EXPECT_EQ(text, std::string(string.chars, string.length));
        EXPECT_EQ('\0', string.chars[string.length]);
    }

    const auto event = message(ask, 1, std::string(longest + 1, 'z'));
    FrameBytes frame;
    EXPECT_EQ(-EMSGSIZE, encodeFrame(*event, catalogue, frame, reason));
    EXPECT_EQ("longer than a frame", reason);
    nubDeserString_t& string = recordOf(*event).text;
    string.length = 0xffffffff;
    EXPECT_EQ(-EMSGSIZE, encodeFrame(*event, catalogue, frame, reason));
    std::free(std::exchange(string.chars, nullptr));
    EXPECT_EQ(encoded(*message(ask, 1)), encoded(*event)) << "a length without chars";
}

TEST(Frame, AMalformedFrameIsRefusedWithTheReason)
{
    const struct
    {
        std::size_t size, at;
        std::uint8_t value;
        const char* reason;
    } rows[] = {
        {0, 0, 0, "frame of 0 bytes is shorter than a header"},
        {3, 0, 0, "frame of 3 bytes is shorter than a header"},
        {35, 3, 35, "frame of 35 bytes gives its length as 35, not 36 to 65536"},
        {61, 3, 62, "frame of 61 bytes gives its length as 62"},
        {62, 0, 128, "frame of 62 bytes gives its length as 2147483710, not 36 to 65536"},
        {65537, 3, 62, "frame of 65537 bytes gives its length as 62"},
        {65598, 1, 1, "frame of 65598 bytes gives its length as 65598, not 36 to 65536"},
        {62, 7, 8, "unknown service: service 8, resource 100, operation 1, kind 0"},
        {62, 11, 99, "unknown identity: service 7, resource 99, operation 1, kind 0"},
        {62, 15, 9, "unknown identity: service 7, resource 100, operation 9, kind 0"},
        {62, 16, 3, "unknown identity: service 7, resource 100, operation 1, kind 3"},
        {62, 17, 2, "unknown version 2"},
        {62, 18, 1, "reserved bytes are not zero"},
        {62, 19, 1, "reserved bytes are not zero"},
        {62, 59, 3, "ask: string length past the end of the frame"},
        {62, 56, 255, "ask: string length past the end of the frame"},
        {62, 59, 1, "ask: bytes after the record"},
        {59, 3, 59, "ask: body too short for its record"},
        {36, 3, 36, "ask: body too short for its record"},
    };
    for (const auto& [size, at, value, expected] : rows) {
        FrameBytes frame = golden;
        frame.at(at) = value;
        frame.resize(size);
        std::string reason;
        EXPECT_FALSE(decodeFrame(frame, catalogue, reason)) << expected;
        EXPECT_EQ(expected, reason);
    }
}

TEST(Frame, ADamagedFrameIsRefusedOrDecodedAsItStands)
{
    std::string reason;
    for (std::size_t at = 0; at < golden.size(); ++at)
        for (unsigned value = 0; value < 256; ++value) {
            FrameBytes frame = golden;
            frame[at] = static_cast<std::uint8_t>(value);
            if (const auto event = decodeFrame(frame, catalogue, reason)) {
                EXPECT_EQ(frame, encoded(*event)) << "byte " << at << ", value " << value;
            }
        }
}

} // namespace
