#ifndef TESTS_HOST_SAMPLE_H
#define TESTS_HOST_SAMPLE_H

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <fabric-host/DebugSink.h>
#include <fabric-host/Frame.h>
#include <fabric-host/Link.h>
#include <fabric-host/Session.h>
#include <gmock/gmock.h>

namespace sample {

using fabric::MsgIds;
using fabric::MsgMeta;
using fabric::SerializableMessageData;
using Message = fabric::SerializableMessageEvent;
using fabric::host::decodeFrame;
using fabric::host::encodeFrame;
using fabric::host::FrameBytes;
using fabric::host::FrameView;
using fabric::host::Session;
using testing::ElementsAre;
using testing::HasSubstr;

/// Longer than any wait here takes on any machine.
constexpr std::chrono::seconds bound(20);

// The record has every kind of member; its table lists them in another order than the layout.

struct Inner
{
    std::uint64_t big;
    std::uint32_t small;
};

struct Record
{
    std::uint32_t number;
    Inner inner;
    nubDeserString_t text;
    std::uint32_t last;
};

constexpr nubEndianEntry_t end = {0, nubEndianArgument_t(std::uintptr_t{0xffffffff})};

constexpr nubEndianEntry_t word(nubEndianKind_enum kind, std::size_t offset)
{
    const auto code = (kind << 16) | static_cast<std::uint32_t>(offset);
    return {code, nubEndianArgument_t(std::uintptr_t{0})};
}

constexpr nubEndianEntry_t nested(std::size_t offset, const nubEndianTable_t& table)
{
    return {(nubEndianRecord << 16) | static_cast<std::uint32_t>(offset), &table};
}

inline const nubEndianEntry_t innerEntries[] = {word(nubEndianWord64, offsetof(Inner, big)),
                                                word(nubEndianWord32, offsetof(Inner, small)), end};
inline const nubEndianTable_t innerTable = {sizeof(Inner), innerEntries};
inline const nubEndianEntry_t recordEntries[] = {
    word(nubEndianWord32, offsetof(Record, number)), word(nubEndianWord32, offsetof(Record, last)),
    nested(offsetof(Record, inner), innerTable),
    nested(offsetof(Record, text), __nub_EndianTable_nubDeserString_t), end};
inline const nubEndianTable_t recordTable = {sizeof(Record), recordEntries};

constexpr MsgMeta ask = {7, 100, 1, 0};
constexpr MsgMeta answer = {7, 100, 1, 2};
constexpr MsgMeta change = {7, 100, 3, 1};

inline const fabric::host::MessageType types[] = {{"ask", 100, 1, 0, &recordTable},
                                                  {"answer", 100, 1, 2, &recordTable},
                                                  {"change", 100, 3, 1, &recordTable}};
inline const fabric::host::MessageCatalogue catalogue = {7, types, 3};

inline std::unique_ptr<Message> message(const MsgMeta& meta, std::uint32_t number,
                                        const std::string& text = "", const MsgIds& ids = {0, 0})
{
    const auto data = SerializableMessageData::create(sizeof(Record), recordTable);
    auto chars = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(chars, text.c_str(), text.size() + 1);
    *static_cast<Record*>(data->payload) = {number,
                                            {0x1112131415161718, 0x21222324},
                                            {static_cast<std::uint32_t>(text.size()), chars},
                                            0x31323334};
    auto event = std::make_unique<Message>(meta, fabric::EndpointId{-1, 9}, data);
    event->ids = ids;
    return event;
}

inline FrameBytes encoded(const Message& event)
{
    FrameBytes frame;
    std::string reason;
    EXPECT_EQ(0, encodeFrame(event, catalogue, frame, reason)) << reason;
    return frame;
}

inline Record& recordOf(const Message& event) { return *static_cast<Record*>(event.data->payload); }

/// Records events of all threads in order.
class Journal
{
public:
    void note(const std::string& what)
    {
        if (what == ignored)
            return;
        const std::lock_guard<std::mutex> lock(mutex);
        notes.push_back(what);
        noted.notify_all();
    }

    /// Waits for at least `count` notes and returns all of them.
    std::vector<std::string> await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(noted.wait_for(lock, bound, [&] { return notes.size() >= count; }));
        return notes;
    }

    std::string ignored;

private:
    std::mutex mutex;
    std::condition_variable noted;
    std::vector<std::string> notes;
};

/// An event that happens once and can be waited for.
struct Gate
{
    void open() { journal.note("open"); }
    void pass() { journal.await(1); }

    Journal journal;
};

/// Wraps a function as an event handler.
struct Callback : std::function<void(const Message&)>
{
    using function::function;

    fabric::EventHandler handler() { return fabric::EventHandler(this, &Callback::call); }
    int call(const Message& event) { return (*this)(event), 0; }
};

inline auto noteNumber(Journal& journal, const std::string& name)
{
    return [&journal, name](const Message& event) {
        journal.note(name + " " + std::to_string(recordOf(event).number));
    };
}

/// Notes its connection reports, then calls `also`.
struct Client final : fabric::ClientInterface
{
    explicit Client(Journal& target, std::string prefix = "") : journal(target), name(prefix) {}

    void onServiceConnected() override { report("connected"); }
    void onServiceConnectionFailed(int why) override { report("failed " + std::to_string(why)); }
    void onServiceDisconnected(int why) override { report("disconnected " + std::to_string(why)); }

    void report(const std::string& what)
    {
        journal.note(name + what);
        also(what);
    }

    Journal& journal;
    const std::string name;
    std::function<void(const std::string&)> also = [](const std::string&) {};
};

/// A temporary directory for a socket.
struct SocketDirectory
{
    SocketDirectory() { EXPECT_NE(mkdtemp(name), nullptr); }
    ~SocketDirectory() { rmdir(name); }

    char name[27] = "/tmp/chronal-socket-XXXXXX";
};

/// A link that is used without a session, with a loop and a listener of its own.
struct Linked final : fabric::host::LinkListener
{
    explicit Linked(std::unique_ptr<fabric::host::Link> used) : link(std::move(used))
    {
        boost::asio::post(loop, [this] { link->open(loop, *this); });
    }
    ~Linked()
    {
        boost::asio::post(loop, [this] {
            link->close();
            loop.stop();
        });
        thread.join();
    }

    void linkUp() override { journal.note("up"); }
    void linkFailed(int error) override { journal.note("failed " + std::to_string(error)); }
    void linkDown(int reason) override { journal.note("down " + std::to_string(reason)); }
    bool frameReceived(FrameView) override { return journal.note("frame"), !refuses; }

    Journal journal;
    std::atomic<bool> refuses{false};
    boost::asio::io_context loop;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        loop.get_executor()};
    const std::unique_ptr<fabric::host::Link> link;
    std::thread thread{[this] { loop.run(); }};
};

/// Collects the host platform's error lines during its lifetime.
struct DebugLines : Journal
{
    DebugLines()
    {
        fabric::host::setDebugSwitches("204:3000");
        fabric::host::setDebugSink([this](auto, const std::string& line) { note(line); });
    }

    ~DebugLines()
    {
        fabric::host::setDebugSink({});
        fabric::host::setDebugSwitches("");
    }
};

} // namespace sample

#endif
