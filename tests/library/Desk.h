#ifndef TESTS_LIBRARY_DESK_H
#define TESTS_LIBRARY_DESK_H

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>
#include <fabric-host/DebugSink.h>

// What the tests of the library put around an adapter: a mocked middleware, an adapter that writes
// down its callbacks, and the debug lines as they come.

namespace desk {

class MockComponent : public fabric::AbstractComponent
{
public:
    explicit MockComponent(std::uint32_t id) : AbstractComponent(id) {}
    MOCK_METHOD(int, addEventHandler, (const fabric::MsgMeta&, int, const fabric::EventHandler&),
                (override));
    MOCK_METHOD(void, removeEventHandler, (int), (override));
};

class MockApplication : public fabric::AbstractApplication
{
public:
    explicit MockApplication(fabric::StateHolder& holder) : AbstractApplication(holder) {}
    MOCK_METHOD(int, addEventHandler, (const fabric::MsgMeta&, int, const fabric::EventHandler&),
                (override));
    MOCK_METHOD(int, sendEvent, (fabric::MsgIds&, int, fabric::SerializableMessageEvent*),
                (override));
};

class MockService : public fabric::ServiceInterface
{
public:
    MOCK_METHOD(std::uint32_t, getServiceId, (), (override));
};

inline std::string text(const nubOsalTime_struct& time)
{
    std::ostringstream out;
    out << '{' << time.seconds << ' ' << time.microseconds << '}';
    return out.str();
}

/// Overrides nothing: what an application gets that is interested in nothing.
class BareAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
};

/// Writes down each callback with its arguments.
class RecordingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    std::vector<std::string> calls;

protected:
    using Ids = fabric::MsgIds;
    using Time = nubOsalTime_struct;
    using Source = chronal::ReferenceTimeId;

    void onReplyResult(const Ids& ids, int result) override { note("onReplyResult", ids, result); }
    void onReplyTimeRefInfo(const Ids& ids, const Time& deviation, const Time& utc,
                            const Time& local, const Source& source, bool flag, int value) override
    {
        note("onReplyTimeRefInfo", ids, deviation, utc, local, source.id, flag, value);
    }
    void onNotifyCurrentTime(const Ids& ids, const Time& deviation, const Time& utc,
                             const Time& local, int flag, int value) override
    {
        note("onNotifyCurrentTime", ids, deviation, utc, local, flag, value);
    }
    void onNotifyDeviationChange(const Ids& ids, const Time& deviation, const Time& utc,
                                 const Time& local) override
    {
        note("onNotifyDeviationChange", ids, deviation, utc, local);
    }
    void onNotifyTimezoneChange(const Ids& ids, const std::string& zone, const Time& time) override
    {
        note("onNotifyTimezoneChange", ids, zone, time);
    }
    void onReplyTimeRefAt(const Ids& ids, const Time& utc, const Time& local,
                          const Source& source) override
    {
        note("onReplyTimeRefAt", ids, utc, local, source.id);
    }
    void onReplyTimeAt(const Ids& ids, const Time& utc, const Time& local) override
    {
        note("onReplyTimeAt", ids, utc, local);
    }
    void onReplyUtcDeviationInfo(const Ids& ids, const Time& deviation, const Time& utc,
                                 const Time& local, const Source& source) override
    {
        note("onReplyUtcDeviationInfo", ids, deviation, utc, local, source.id);
    }
    void onReplyDateTimeSettingsInfo(const Ids& ids, const Time& time0, const Time& time1,
                                     const Time& time2, const Time& time3, const Time& time4,
                                     const int& value, const std::string& server, const bool& flag1,
                                     const bool& flag2, const bool& sync) override
    {
        note("onReplyDateTimeSettingsInfo", ids, time0, time1, time2, time3, time4, value, server,
             flag1, flag2, sync);
    }
    void onReplyTimezoneInfo(const Ids& ids, const std::string& zone, const Time& time) override
    {
        note("onReplyTimezoneInfo", ids, zone, time);
    }
    void onNotifyDtvTimeChange(const Ids& ids, const Time& time) override
    {
        note("onNotifyDtvTimeChange", ids, time);
    }
    void onNotifyDSTChange(const Ids& ids, int dst) override
    {
        note("onNotifyDSTChange", ids, dst);
    }

private:
    static std::string show(const Time& time) { return text(time); }
    static std::string show(const std::string& characters) { return '"' + characters + '"'; }
    static std::string show(bool truth) { return truth ? "true" : "false"; }
    static std::string show(int number) { return std::to_string(number); }
    static std::string show(chronal::referenceTimeId_enum source)
    {
        return "source " + std::to_string(static_cast<std::int32_t>(source));
    }

    template <typename... Arguments>
    void note(const char* callback, const Ids& ids, const Arguments&... arguments)
    {
        std::ostringstream out;
        out << callback << " [" << ids.originId << '/' << ids.messageId << ']';
        (void)(out << ... << (' ' + show(arguments)));
        calls.push_back(out.str());
    }
};

/// All debug lines, as long as it lives, as "code text".
class DebugLines
{
public:
    DebugLines()
    {
        fabric::host::setDebugSwitches("*:65535");
        fabric::host::setDebugSink([this](std::uint32_t code, const std::string& line) {
            std::ostringstream out;
            out << std::hex << code << ' ' << line;
            lines.push_back(out.str());
        });
    }
    ~DebugLines()
    {
        fabric::host::setDebugSink(nullptr);
        fabric::host::setDebugSwitches("");
    }
    DebugLines(const DebugLines&) = delete;
    DebugLines& operator=(const DebugLines&) = delete;

    std::vector<std::string> lines;
};

/// The statement of the adapter's source that covers the line whose number a debug line carries.
inline std::string statementOf(const std::string& debugLine)
{
    std::ifstream source(ADAPTER_SOURCE);
    std::string statement;
    std::string line;
    for (int left = std::stoi(debugLine.substr(debugLine.find(':') + 1)); left > 0; --left) {
        if (line.find_first_of(";{}") != std::string::npos)
            statement.clear();
        std::getline(source, line);
        statement += line;
    }
    while (line.find(';') == std::string::npos && std::getline(source, line))
        statement += line;
    return statement.substr(std::min(statement.size(), statement.find_first_not_of(' ')));
}

/// Matches a line of the adapter: code, function name, text up to its number, and the number. Its
/// line number is one of the statement that writes it.
inline ::testing::Matcher<std::string>
adapterLine(const std::string& code, const std::string& function, const std::string& message)
{
    using namespace ::testing;
    const std::string words = message.substr(0, message.find_first_of("-0123456789"));
    return AllOf(MatchesRegex(code + " api-chronal-service-adapter:[1-9][0-9]*:" + function +
                              "\\(\\): " + message + "\n"),
                 ResultOf(statementOf, AllOf(StartsWith("nubDebugOutput0("),
                                             HasSubstr("%s:%d:%s(): " + words))));
}

/// A mocked middleware around one adapter.
template <typename Adapter>
struct Desk
{
    static constexpr std::uint32_t serviceId = 0xC0FFEE;
    static constexpr std::uint32_t componentId = 77;

    fabric::StateHolder holder;
    ::testing::StrictMock<MockApplication> application{holder};
    ::testing::StrictMock<MockComponent> component{componentId};
    ::testing::StrictMock<MockService> service;
    Adapter adapter{application, component};

    Desk() { ON_CALL(service, getServiceId).WillByDefault(::testing::Return(serviceId)); }
};

} // namespace desk

#endif
