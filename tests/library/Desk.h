#ifndef TESTS_LIBRARY_DESK_H
#define TESTS_LIBRARY_DESK_H

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

#include "Journal.h"

namespace desk {

constexpr std::uint32_t componentId = 77;
constexpr int firstHandlerId = -5; ///< so that negative ids and 0 are among those of a connection

class Application : public fabric::AbstractApplication
{
public:
    using AbstractApplication::AbstractApplication;

    int addEventHandler(const fabric::MsgMeta& key, int flags,
                        const fabric::EventHandler& handler) override
    {
        return add("application ", key, flags, handler);
    }
    int sendEvent(fabric::MsgIds& ids, int flags, fabric::SerializableMessageEvent* event) override
    {
        sent.reset(event);
        sentIds = &ids;
        Journal::note("sendEvent " + text(event->meta) + ", flags " + std::to_string(flags) +
                      ", from " + std::to_string(event->sender.node) + ' ' +
                      std::to_string(event->sender.componentId));
        return result;
    }
    int add(const std::string& where, const fabric::MsgMeta& key, int flags,
            const fabric::EventHandler& handler)
    {
        Journal::note(where + text(key) + ", flags " + std::to_string(flags));
        handlers.push_back(handler);
        return firstHandlerId - 1 + static_cast<int>(handlers.size());
    }

    std::vector<fabric::EventHandler> handlers;             ///< its own and its component's
    std::unique_ptr<fabric::SerializableMessageEvent> sent; ///< the last one
    const fabric::MsgIds* sentIds = nullptr;
    int result = 0; ///< of sendEvent()
};

class Component : public fabric::AbstractComponent
{
public:
    explicit Component(Application& owner) : AbstractComponent(desk::componentId), owner_(owner) {}
    int addEventHandler(const fabric::MsgMeta& key, int flags,
                        const fabric::EventHandler& handler) override
    {
        return owner_.add("component ", key, flags, handler);
    }
    void removeEventHandler(int id) override { Journal::note("remove " + std::to_string(id)); }

private:
    Application& owner_;
};

class Service : public fabric::ServiceInterface
{
public:
    explicit Service(std::uint32_t id) : nextId_(id) {}
    std::uint32_t getServiceId() override
    {
        Journal::note("getServiceId");
        return nextId_++; // another one each time, as after a restart
    }

private:
    std::uint32_t nextId_;
};

/// Overrides no callback.
class BareAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
};

/// Notes each callback with its arguments.
class RecordingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    std::vector<std::string> calls; ///< those of all threads, unlike the journal's
    const fabric::MsgIds* lastIds = nullptr;

private:
    using Ids = const fabric::MsgIds&;
    using Time = const nubOsalTime_struct&;
    using Source = const chronal::ReferenceTimeId&;
    using Text = const std::string&;

    static std::string show(Time time) { return text(time); }
    static std::string show(Text characters)
    {
        std::string shown = "\"";
        for (const char each : characters)
            shown += each ? std::string(1, each) : "\\0";
        return shown + '"';
    }
    static std::string show(bool truth) { return truth ? "true" : "false"; }
    static std::string show(int number) { return std::to_string(number); }
    static std::string show(chronal::referenceTimeId_enum source)
    {
        return "source " + std::to_string(static_cast<std::int32_t>(source));
    }

    template <typename... Arguments>
    void note(const char* callback, Ids ids, const Arguments&... arguments)
    {
        std::ostringstream out;
        out << callback;
        (void)(out << ... << (' ' + show(arguments)));
        calls.push_back(out.str());
        lastIds = &ids;
        Journal::note(out.str());
    }

protected:
#define NOTES(callback, parameters, ...)                                                           \
    void callback parameters override { note(#callback, ids, __VA_ARGS__); }
    // clang-format off
    NOTES(onReplyResult, (Ids ids, int result), result)
    NOTES(onReplyTimeRefInfo, (Ids ids, Time deviation, Time utc, Time local, Source source,
                               bool flag, int value),
          deviation, utc, local, source.id, flag, value)
    NOTES(onNotifyCurrentTime, (Ids ids, Time deviation, Time utc, Time local, int flag, int value),
          deviation, utc, local, flag, value)
    NOTES(onNotifyDeviationChange, (Ids ids, Time deviation, Time utc, Time local),
          deviation, utc, local)
    NOTES(onNotifyTimezoneChange, (Ids ids, Text zone, Time time), zone, time)
    NOTES(onReplyTimeRefAt, (Ids ids, Time utc, Time local, Source source), utc, local, source.id)
    NOTES(onReplyTimeAt, (Ids ids, Time utc, Time local), utc, local)
    NOTES(onReplyUtcDeviationInfo, (Ids ids, Time deviation, Time utc, Time local, Source source),
          deviation, utc, local, source.id)
    NOTES(onReplyDateTimeSettingsInfo, (Ids ids, Time time0, Time time1, Time time2, Time time3,
                                        Time time4, const int& value, Text server,
                                        const bool& flag1, const bool& flag2, const bool& sync),
          time0, time1, time2, time3, time4, value, server, flag1, flag2, sync)
    NOTES(onReplyTimezoneInfo, (Ids ids, Text zone, Time time), zone, time)
    NOTES(onNotifyDtvTimeChange, (Ids ids, Time time), time)
    NOTES(onNotifyDSTChange, (Ids ids, int dst), dst)
    // clang-format on
#undef NOTES
};

/// An adapter with a middleware that notes each call.
template <typename Adapter>
struct Desk
{
    fabric::StateHolder holder;
    Journal journal{&holder.mutex};
    Application application{holder};
    Component component{application};
    Service service{500};
    Adapter adapter{application, component};
    fabric::MsgIds ids = {1, 2};

    ~Desk() { journal.onNote = nullptr; } // it may refer to variables of the test

    void attach() { adapter.setServiceInterface(&service); }
};

} // namespace desk

#endif
