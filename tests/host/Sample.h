#ifndef TESTS_HOST_SAMPLE_H
#define TESTS_HOST_SAMPLE_H

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>

#include <fabric-host/DebugSink.h>
#include <fabric-host/Frame.h>
#include <fabric-host/ServiceHost.h>
#include <fabric-host/Session.h>
#include <gmock/gmock.h>

/// A catalogue, a service and an application for tests.
namespace sample {

using namespace fabric::host;
using fabric::MsgIds;
using fabric::MsgMeta;
using fabric::SerializableMessageData;
using Message = fabric::SerializableMessageEvent;
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

constexpr nubEndianEntry_t entry(nubEndianKind_enum kind, std::size_t offset,
                                 const nubEndianTable_t* table = nullptr)
{
    return {(kind << 16) | static_cast<std::uint32_t>(offset), table};
}

constexpr nubEndianEntry_t end = {0, nubEndianArgument_t(std::uintptr_t{0xffffffff})};
inline const nubEndianEntry_t innerEntries[] = {entry(nubEndianWord64, offsetof(Inner, big)),
                                                entry(nubEndianWord32, offsetof(Inner, small)),
                                                end};
inline const nubEndianTable_t innerTable = {sizeof(Inner), innerEntries};
inline const nubEndianEntry_t recordEntries[] = {
    entry(nubEndianWord32, offsetof(Record, number)),
    entry(nubEndianWord32, offsetof(Record, last)),
    entry(nubEndianRecord, offsetof(Record, inner), &innerTable),
    entry(nubEndianRecord, offsetof(Record, text), &__nub_EndianTable_nubDeserString_t), end};
inline const nubEndianTable_t recordTable = {sizeof(Record), recordEntries};

constexpr MsgMeta ask = {7, 100, 1, kindCommand};
constexpr MsgMeta answer = {7, 100, 1, kindReply};
constexpr MsgMeta change = {7, 100, 3, kindNotification};
inline const MessageType types[] = {{"ask", 100, 1, kindCommand, &recordTable},
                                    {"answer", 100, 1, kindReply, &recordTable},
                                    {"change", 100, 3, kindNotification, &recordTable}};
inline const MessageCatalogue catalogue = {7, types, 3};

inline std::unique_ptr<Message> message(const MsgMeta& meta, std::uint32_t number,
                                        const std::string& text = "", const MsgIds& ids = {0, 0})
{
    const auto data = SerializableMessageData::create(sizeof(Record), recordTable);
    const auto chars = static_cast<char*>(std::malloc(text.size() + 1));
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

/// Returns the number and the text of a message.
inline std::string textOf(const Message& event)
{
    return std::to_string(recordOf(event).number) + recordOf(event).text.chars;
}

/// Keeps the notes of all threads in order.
class Journal
{
public:
    void note(const std::string& what)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (what == ignored)
            return;
        notes_ += (count_++ ? ", " : "") + what;
        noted_.notify_all();
    }

    /// Waits for at least `count` notes.
    std::unique_lock<std::mutex> await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        EXPECT_TRUE(noted_.wait_for(lock, bound, [&] { return count_ >= count; }));
        return lock;
    }

    /// Waits for at least `count` notes, and removes and returns all.
    std::string take(std::size_t count)
    {
        const auto lock = await(count);
        count_ = 0;
        return std::exchange(notes_, "");
    }

    std::string ignored;

private:
    std::mutex mutex_;
    std::condition_variable noted_;
    std::string notes_;
    std::size_t count_ = 0;
};

/// An event that happens once and can be waited for.
struct Gate : private Journal
{
    void open() { note("open"); }
    void pass() { await(1); }
};

inline std::string nameOf(int error) { return error ? strerrorname_np(error) : "0"; }

/// Notes its connection reports, then calls `also`.
struct Client final : fabric::ClientInterface
{
    explicit Client(Journal& target, std::string prefix = "") : journal(target), name(prefix) {}

    void onServiceConnected() override { report("up"); }
    void onServiceConnectionFailed(int why) override { report("failed " + nameOf(why)); }
    void onServiceDisconnected(int why) override { report("down " + nameOf(why)); }

    void report(const std::string& what)
    {
        journal.note(name + what);
        also(what);
    }

    Journal& journal;
    const std::string name;
    std::function<void(const std::string&)> also = [](const std::string&) {};
};

/// Wraps a function as an event handler.
struct Callback : std::function<void(const Message&)>
{
    using function::function;

    int call(const Message& event) { return (*this)(event), 0; }
};

/// A session that is connecting, with a client that is attached.
struct Application
{
    /// Checks the first report if it is given.
    explicit Application(std::unique_ptr<Link> link, const std::string& report = "")
        : session(std::in_place, std::move(link), catalogue)
    {
        session->attach(client);
        session->connect();
        EXPECT_EQ(report, report.empty() ? "" : journal.take(1));
    }

    /// Returns the handler's id.
    template <class Function>
    int on(const MsgMeta& key, const Function& called)
    {
        callbacks.emplace_back(called);
        const fabric::EventHandler handler(&callbacks.back(), &Callback::call);
        return key.kind == kindReply ? session->component().addEventHandler(key, 0, handler)
                                     : session->application().addEventHandler(key, 0, handler);
    }
    int note(const MsgMeta& key, const std::string& name)
    {
        return on(key, [=](const Message& event) { journal.note(name + textOf(event)); });
    }

    int send(std::uint32_t number, const std::string& text = "")
    {
        MsgIds ids;
        const int result =
            session->application().sendEvent(ids, 0, message(ask, number, text).release());
        EXPECT_EQ(result == 0, ids != MsgIds());
        return result;
    }

    Journal journal;
    Client client{journal};
    std::list<Callback> callbacks;
    std::optional<Session> session;
};

/// Answers a command with its content, unless the test sets another function.
struct ScriptedService : Service
{
    const MessageCatalogue& catalogue() const override { return sample::catalogue; }
    void start(ClientSender& out) override { outlet = &out; }
    void clientConnected(ClientId id) override { onStart(id); }
    void clientDisconnected(ClientId id) override { onEnd(id); }
    void commandReceived(ClientId client, const Message& command) override
    {
        onCommand(*outlet, client, command);
    }
    TimePoint runDue() override { return onDue(); }

    static void echo(ClientSender& out, ClientId client, const Message& command)
    {
        auto reply = std::make_unique<Message>(answer, command.sender, command.data);
        reply->ids = command.ids;
        out.send(client, std::move(reply));
    }

    std::function<void(ClientSender&, ClientId, const Message&)> onCommand = echo;
    std::function<void(ClientId)> onStart = [](ClientId) {}, onEnd = onStart;
    std::function<TimePoint()> onDue = [] { return TimePoint::max(); };
    ClientSender* outlet = nullptr;
};

/// A temporary directory for a socket.
struct SocketDirectory
{
    SocketDirectory() { EXPECT_TRUE(made); }
    ~SocketDirectory()
    {
        unlink(socket.c_str());
        rmdir(name);
    }

    char name[27] = "/tmp/chronal-socket-XXXXXX";
    const bool made = mkdtemp(name) != nullptr;
    const std::string socket =
        name + ("/" + std::string(longestSocketPath - sizeof(name), 's')); // as long as it may be
};

/// A scripted service that is not running yet.
struct Hosted
{
    const SocketDirectory directory;
    const std::string& path = directory.socket;
    Gate goOn;
    Journal journal;
    ScriptedService service;
    std::shared_ptr<ServiceHost> host = std::make_shared<ServiceHost>(service);
};

/// Tests of a running service that is reached in memory or over a socket.
struct ConnectionTest : testing::TestWithParam<const char*>, Hosted
{
    ConnectionTest()
    {
        if (overSocket)
            host->listen(path);
        host->start();
    }

    std::unique_ptr<Link> newLink() const
    {
        return overSocket ? newSocketLink(path) : newMemoryLink(host);
    }

    /// Returns the report of a loss. A socket does not carry the reason.
    std::string lost(const std::string& reason) const
    {
        return "down " + (overSocket ? "ECONNRESET" : reason);
    }

    const bool overSocket = GetParam() == std::string("Socket");
};

inline const auto transports = testing::Values("Memory", "Socket");

/// Collects the host platform's error lines during its lifetime.
struct DebugLines : Journal
{
    DebugLines()
    {
        setDebugSwitches("204:3000");
        setDebugSink([this](auto, const std::string& line) { note(line); });
    }
    ~DebugLines()
    {
        setDebugSink({});
        setDebugSwitches("");
    }
};

} // namespace sample

#endif
