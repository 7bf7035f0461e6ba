#ifndef TESTS_HOST_SAMPLE_H
#define TESTS_HOST_SAMPLE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <fabric-host/DebugSink.h>
#include <fabric-host/Link.h>
#include <fabric-host/MessageCatalogue.h>
#include <fabric-host/Session.h>
#include <fabric/SerializableMessage.h>

namespace sample {

using fabric::ClientInterface;
using fabric::Event;
using fabric::EventHandler;
using fabric::MsgIds;
using fabric::MsgMeta;
using fabric::SerializableMessageData;
using fabric::SerializableMessageEvent;
using fabric::host::FrameBytes;

/// Longer than any of this takes, on any machine.
constexpr std::chrono::seconds bound(20);

// A record with every kind of member, listed in another order than it is laid out.

struct Inner
{
    std::uint64_t big;
    std::uint32_t small;
};

struct Record
{
    std::uint32_t first;
    Inner inner;
    nubDeserString_t text;
    std::uint32_t last;
};

struct Number
{
    std::uint32_t value;
};

constexpr nubEndianEntry_t end = {0, nubEndianArgument_t(std::uintptr_t{0xffffffff})};

constexpr nubEndianEntry_t word32(std::size_t offset)
{
    return {(nubEndianWord32 << 16) | static_cast<std::uint32_t>(offset),
            nubEndianArgument_t(std::uintptr_t{0})};
}

constexpr nubEndianEntry_t word64(std::size_t offset)
{
    return {(nubEndianWord64 << 16) | static_cast<std::uint32_t>(offset),
            nubEndianArgument_t(std::uintptr_t{0})};
}

constexpr nubEndianEntry_t nested(std::size_t offset, const nubEndianTable_t& table)
{
    return {(nubEndianRecord << 16) | static_cast<std::uint32_t>(offset), &table};
}

inline const nubEndianEntry_t innerEntries[] = {word64(offsetof(Inner, big)),
                                                word32(offsetof(Inner, small)), end};
inline const nubEndianTable_t innerTable = {sizeof(Inner), innerEntries};
inline const nubEndianEntry_t recordEntries[] = {
    word32(offsetof(Record, first)), word32(offsetof(Record, last)),
    nested(offsetof(Record, inner), innerTable),
    nested(offsetof(Record, text), __nub_EndianTable_nubDeserString_t), end};
inline const nubEndianTable_t recordTable = {sizeof(Record), recordEntries};
inline const nubEndianEntry_t numberEntries[] = {word32(0), end};
inline const nubEndianTable_t numberTable = {sizeof(Number), numberEntries};

constexpr MsgMeta setRecord = {7, 100, 1, 0};
constexpr MsgMeta ask = {7, 101, 2, 0};
constexpr MsgMeta answer = {7, 101, 2, 2};
constexpr MsgMeta change = {7, 101, 3, 1};
constexpr MsgMeta recordReply = {7, 100, 1, 2};

inline const fabric::host::MessageType types[] = {{"setRecord", 100, 1, 0, &recordTable},
                                                  {"ask", 101, 2, 0, &numberTable},
                                                  {"answer", 101, 2, 2, &numberTable},
                                                  {"change", 101, 3, 1, &numberTable},
                                                  {"recordReply", 100, 1, 2, &recordTable}};
inline const fabric::host::MessageCatalogue catalogue = {7, types, 5};

inline void setText(nubDeserString_t& text, const std::string& value)
{
    text.length = static_cast<std::uint32_t>(value.size());
    text.chars = static_cast<char*>(std::malloc(value.size() + 1));
    std::memcpy(text.chars, value.c_str(), value.size() + 1);
}

inline std::unique_ptr<SerializableMessageEvent>
numberEvent(const MsgMeta& meta, std::uint32_t value, const MsgIds& ids = {0, 0})
{
    const auto data = SerializableMessageData::create(sizeof(Number), numberTable);
    static_cast<Number*>(data->payload)->value = value;
    auto event = std::make_unique<SerializableMessageEvent>(meta, fabric::EndpointId{-1, 9}, data);
    event->ids = ids;
    return event;
}

inline std::unique_ptr<SerializableMessageEvent> recordEvent(const MsgMeta& meta,
                                                             const std::string& text)
{
    const auto data = SerializableMessageData::create(sizeof(Record), recordTable);
    Record& record = *static_cast<Record*>(data->payload);
    record.first = 0x01020304;
    record.inner = {0x1112131415161718, 0x21222324};
    record.last = 0x31323334;
    setText(record.text, text);
    auto event = std::make_unique<SerializableMessageEvent>(meta, fabric::EndpointId{-1, 9}, data);
    event->ids = {0x41424344, 0x51525354};
    return event;
}

inline std::uint32_t numberOf(const Event& event)
{
    return static_cast<const Number*>(
               static_cast<const SerializableMessageEvent&>(event).data->payload)
        ->value;
}

/// Something that happens once, to be waited for.
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        opened.notify_all();
    }

    /// False when it has not been opened in time.
    bool pass()
    {
        std::unique_lock<std::mutex> lock(mutex);
        return opened.wait_for(lock, bound, [this] { return isOpen; });
    }

private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

/// What happened, in order, on any thread.
class Journal
{
public:
    void note(const std::string& what)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        notes.push_back(what);
        noted.notify_all();
    }

    /// All of it, once there are `count` notes.
    std::vector<std::string> await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex);
        noted.wait_for(lock, bound, [&] { return notes.size() >= count; });
        return notes;
    }

private:
    std::mutex mutex;
    std::condition_variable noted;
    std::vector<std::string> notes;
};

/// A handler that calls a function.
class Callback
{
public:
    explicit Callback(std::function<void(const SerializableMessageEvent&)> called)
        : function(std::move(called))
    {
    }

    EventHandler handler() { return EventHandler(this, &Callback::call); }

private:
    int call(const SerializableMessageEvent& event)
    {
        function(event);
        return 0;
    }

    std::function<void(const SerializableMessageEvent&)> function;
};

/// A client that notes its reports, and does something more if asked to.
class Client final : public ClientInterface
{
public:
    explicit Client(Journal& target, std::string prefix = "") : journal(target), name(prefix) {}

    void onServiceConnected() override { report("connected"); }
    void onServiceConnectionFailed(int reason) override
    {
        report("failed " + std::to_string(reason));
    }
    void onServiceDisconnected(int reason) override
    {
        report("disconnected " + std::to_string(reason));
    }

    std::function<void(const std::string&)> also;

private:
    void report(const std::string& what)
    {
        journal.note(name + what);
        if (also)
            also(what);
    }

    Journal& journal;
    std::string name;
};

/// Collects debug lines as long as it lives.
class DebugLines
{
public:
    explicit DebugLines(const std::string& switches)
    {
        fabric::host::setDebugSwitches(switches);
        fabric::host::setDebugSink([this](std::uint32_t code, const std::string& line) {
            journal.note(std::to_string(code >> 16) + ":" + std::to_string(code & 0xffff) + " " +
                         line);
        });
    }

    ~DebugLines()
    {
        fabric::host::setDebugSink({});
        fabric::host::setDebugSwitches("");
    }

    Journal journal;
};

} // namespace sample

#endif
