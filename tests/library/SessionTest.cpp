#include "Desk.h"

#include <algorithm>
#include <memory>

#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Session.h>

namespace {

using fabric::host::FrameBytes;
using fabric::host::MessageType;
using ::testing::ElementsAre;

// Frames as every build writes and reads them, whatever its byte order and width. The first one has
// the ids of its component and of the message set to 0.
const char* const writtenFrame =
    "000000780102030401d982cd018d378700010000ffffffff000000000000000000000000"
    "00000000000000000000000000000000000000050003d090fffffffffffffff9ffffffff"
    "0000000123456789000f42410000000000000001000000020000002a00000004706f6f6c"
    "ffffffffffffffff00000000";
const char* const readFrame =
    "000000780102030401d982cd018d378e02010000ffffffff000000030000000700000009"
    "000000000000000100000000000000000000000200000000000000000000000300000000"
    "0000000000000004000000000000000000000005fffffffa0000002a00000004706f6f6c"
    "ffffffff0000000000000005";

const MessageType types[] = {
    {"settings", 31032013, 26032007, 0, &__nub_EndianTable_chronalMsgDateTime_t},
    {"settings info", 31032013, 26032014, 2, &__nub_EndianTable_chronalMsgDateTime_t},
};
const fabric::host::MessageCatalogue catalogue = {0x01020304, types, std::size(types)};

FrameBytes bytesOf(const std::string& hexadecimal)
{
    FrameBytes bytes;
    for (std::size_t at = 0; at < hexadecimal.size(); at += 2)
        bytes.push_back(
            static_cast<std::uint8_t>(std::stoi(hexadecimal.substr(at, 2), nullptr, 16)));
    return bytes;
}

/// A service that keeps the last frame it gets, and sends `readFrame` when it is connected.
class CapturingLink : public fabric::host::Link
{
public:
    void open(boost::asio::io_context&, fabric::host::LinkListener& session) override
    {
        session.linkUp();
        EXPECT_TRUE(session.frameReceived(bytesOf(readFrame)));
    }
    void close() override {}
    int send(fabric::host::FrameView frame) override
    {
        last.assign(frame.data, frame.data + frame.size);
        return 0;
    }

    FrameBytes last;
};

class GoldenFrame : public ::testing::Test
{
protected:
    GoldenFrame()
    {
        adapter_.setServiceInterface(&session_.service());
        session_.attach(adapter_);
    }
    ~GoldenFrame() override { session_.detach(adapter_); }

    CapturingLink* link_ = new CapturingLink;
    fabric::host::Session session_{std::unique_ptr<fabric::host::Link>(link_), catalogue};
    desk::RecordingAdapter adapter_{session_.application(), session_.component()};
};

TEST_F(GoldenFrame, IsWrittenByItsCommand)
{
    fabric::MsgIds ids = {};
    adapter_.cmdDateTimeSettingsSet(ids, {5, 250000}, {-7, -1}, {0x123456789, 1000001}, {1, 2}, 42,
                                    "pool");
    std::fill_n(link_->last.begin() + 24, 12, std::uint8_t(0));
    EXPECT_EQ(link_->last, bytesOf(writtenFrame));
}

TEST_F(GoldenFrame, IsReadByItsReceiver)
{
    session_.connect();
    session_.detach(adapter_); // returns when everything received has been delivered
    EXPECT_THAT(adapter_.calls,
                ElementsAre("onReplyDateTimeSettingsInfo {1 0} {2 0} {3 0} {4 0} {5 -6} 42 "
                            "\"pool\" true false true"));
}

} // namespace
