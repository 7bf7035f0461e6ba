// A small application of the time service that shows most of it: it sends commands, waits for the
// answer to each, and prints everything that arrives.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include <chronal-sim/Start.h>
#include <chronal/Helpers.h>
#include <chronal/UserAdapter.h>

namespace {

using chronal::Helpers::getRefTimeStr;
using chronal::Helpers::getTimeSpanStr;
using chronal::Helpers::getTimeStr;
using Ids = fabric::MsgIds;
using Time = nubOsalTime_struct;
using Source = chronal::ReferenceTimeId;

constexpr Time noTime = {0, 0};

void section(const char* title) { std::printf("\n%s\n", title); }

class Demo : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    /// Sends a command and waits for its answer, which carries the same ids.
    void ask(const std::string& command, const std::function<void(Ids&)>& send)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        Ids ids = {};
        send(ids);
        std::printf("  -> #%-2u %s\n", ids.messageId, command.c_str());
        wait(lock, "an answer", [&] { return answered_ == ids; });
    }

    /// Waits until this many notifications have arrived since the last call.
    void awaitNotifications(int count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        wait(lock, "a notification", [&] { return notifications_ >= count; });
        notifications_ = 0;
    }

    void awaitConnection(bool expected)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        wait(lock, "the connection", [&] { return connected_ == expected; });
    }

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        connection(true, "the service is there");
    }

    void onServiceConnectionFailed(int reason) override
    {
        UserAdapter::onServiceConnectionFailed(reason);
        connection(false, std::string("no service yet: ") + std::strerror(reason));
    }

    void onServiceDisconnected(int reason) override
    {
        UserAdapter::onServiceDisconnected(reason);
        connection(false, "the service is gone, reason " + std::to_string(reason));
    }

protected:
    void onReplyResult(const Ids& ids, int result) override
    {
        answer(ids, "result " + std::to_string(result) + (result < 0 ? ": refused" : ": done"));
    }

    void onReplyTimeRefInfo(const Ids& ids, const Time& deviation, const Time& utc,
                            const Time& local, const Source& source, bool valid, int) override
    {
        answer(ids, getRefTimeStr(source) +
                        (valid ? " is " + times(utc, local, deviation) : " has no time yet"));
    }

    void onReplyTimeRefAt(const Ids& ids, const Time& utc, const Time& local,
                          const Source& source) override
    {
        answer(ids, getRefTimeStr(source) + " will show UTC " + getTimeStr(utc) + ", local " +
                        getTimeStr(local));
    }

    void onReplyTimeAt(const Ids& ids, const Time& utc, const Time& local) override
    {
        answer(ids, "UTC " + getTimeStr(utc) + " is local " + getTimeStr(local));
    }

    void onReplyUtcDeviationInfo(const Ids& ids, const Time& deviation, const Time& utc,
                                 const Time&, const Source& source) override
    {
        answer(ids, getRefTimeStr(source) + " changes to " + getTimeSpanStr(deviation) +
                        " at UTC " + getTimeStr(utc));
    }

    void onReplyDateTimeSettingsInfo(const Ids& ids, const Time& now, const Time&, const Time&,
                                     const Time&, const Time&, const int& value,
                                     const std::string& server, const bool& automatic,
                                     const bool& ntp, const bool& zoneSync) override
    {
        answer(ids, "settings at " + getTimeStr(now) + ": value " + std::to_string(value) +
                        ", NTP server \"" + server + "\"" + (ntp ? " in use" : " not in use") +
                        (automatic ? ", automatic time" : ", manual time") +
                        (zoneSync ? ", zone synchronised" : ", zone not synchronised"));
    }

    void onReplyTimezoneInfo(const Ids& ids, const std::string& zone, const Time& time) override
    {
        answer(ids, "zone " + zone + " at " + getTimeStr(time));
    }

    void onNotifyCurrentTime(const Ids&, const Time& deviation, const Time& utc, const Time& local,
                             int, int) override
    {
        notification("it is " + times(utc, local, deviation));
    }

    void onNotifyDeviationChange(const Ids&, const Time& deviation, const Time& utc,
                                 const Time&) override
    {
        notification("deviation is now " + getTimeSpanStr(deviation) + ", at UTC " +
                     getTimeStr(utc));
    }

    void onNotifyTimezoneChange(const Ids&, const std::string& zone, const Time&) override
    {
        notification("zone is now " + zone);
    }

    void onNotifyDtvTimeChange(const Ids&, const Time& time) override
    {
        notification("broadcast time " + getTimeStr(time));
    }

    void onNotifyDSTChange(const Ids&, int dst) override
    {
        notification(dst ? "daylight saving begins" : "daylight saving ends");
    }

private:
    static std::string times(const Time& utc, const Time& local, const Time& deviation)
    {
        return "UTC " + getTimeStr(utc) + ", local " + getTimeStr(local) + ", deviation " +
               getTimeSpanStr(deviation);
    }

    void answer(const Ids& ids, const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::printf("  <- #%-2u %s\n", ids.messageId, text.c_str());
        answered_ = ids;
        changed_.notify_all();
    }

    void notification(const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::printf("  <- !   %s\n", text.c_str());
        ++notifications_;
        changed_.notify_all();
    }

    void connection(bool up, const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::printf("  <- =   %s\n", text.c_str());
        connected_ = up;
        changed_.notify_all();
    }

    template <typename Condition>
    void wait(std::unique_lock<std::mutex>& lock, const char* what, const Condition& condition)
    {
        if (!changed_.wait_for(lock, std::chrono::seconds(10), condition))
            throw std::runtime_error(std::string("waited in vain for ") + what);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Ids answered_ = {};
    int notifications_ = 0;
    bool connected_ = false;
};

void talk(Demo& demo)
{
    using namespace chronal;
    const Time summer = {1782907200, 0};        // 2026-07-01 12:00:00 UTC
    const Time springForward = {1774746000, 0}; // 2026-03-29 01:00:00 UTC

    section("Setting and fetching the time of several sources");
    demo.ask("set RTC to " + getTimeStr(summer), [&](Ids& ids) {
        demo.cmdRefTimeSet(ids, summer, noTime, referenceTimeRtc, 0, false);
    });
    demo.ask("set DVB to " + getTimeStr(summer), [&](Ids& ids) {
        demo.cmdRefTimeSet(ids, summer, noTime, referenceTimeDvb, 0, false);
    });
    demo.awaitNotifications(1);
    for (const Source source : {referenceTimeRtc, referenceTimeDvb, referenceTimeTeletext})
        demo.ask("fetch " + getRefTimeStr(source),
                 [&](Ids& ids) { demo.cmdRefTimeFetch(ids, source); });

    section("Changing the time zone");
    demo.ask("fetch the zone", [&](Ids& ids) { demo.cmdTimezoneFetch(ids); });
    demo.ask("set the zone to Europe/Berlin",
             [&](Ids& ids) { demo.cmdTimezoneSet(ids, "Europe/Berlin"); });
    demo.awaitNotifications(3);
    demo.ask("fetch the next change of RTC's deviation",
             [&](Ids& ids) { demo.cmdNextTimeDeviationChangeFetch(ids, referenceTimeRtc); });

    section("Asking for the time at a moment");
    demo.ask("what is the local time at UTC " + getTimeStr(springForward) + "?",
             [&](Ids& ids) { demo.cmdUTCTimeAt(ids, springForward); });
    demo.ask("what is UTC at local time " + getTimeStr(summer) + "?",
             [&](Ids& ids) { demo.cmdLocaltimeAt(ids, summer); });
    demo.ask("what will DVB show at " + getTimeStr(springForward) + "?",
             [&](Ids& ids) { demo.cmdRefTimeAt(ids, springForward, referenceTimeDvb); });

    section("Settings");
    demo.ask("use the NTP server pool.example",
             [&](Ids& ids) { demo.cmdDateTimeNtpSet(ids, "pool.example", true); });
    demo.ask("synchronise the zone", [&](Ids& ids) { demo.cmdTimezoneSyncEnableSet(ids, 1); });
    demo.ask("fetch the settings", [&](Ids& ids) { demo.cmdDateTimeSettingsFetch(ids); });

    section("Commands that the service refuses");
    demo.ask("lock DVB", [&](Ids& ids) { demo.cmdRefTimeLock(ids, referenceTimeDvb); });
    demo.ask("set the locked DVB", [&](Ids& ids) {
        demo.cmdRefTimeSet(ids, summer, noTime, referenceTimeDvb, 0, false);
    });
    demo.ask("unlock DVB", [&](Ids& ids) { demo.cmdRefTimeUnlock(ids, referenceTimeDvb); });
    demo.ask("set the zone to Europe/Atlantis",
             [&](Ids& ids) { demo.cmdTimezoneSet(ids, "Europe/Atlantis"); });

    section("Subscribing to the current time");
    demo.ask("subscribe to RTC",
             [&](Ids& ids) { demo.cmdRefTimeSubscribe(ids, referenceTimeRtc); });
    demo.awaitNotifications(3);
    demo.ask("unsubscribe from RTC",
             [&](Ids& ids) { demo.cmdRefTimeUnsubscribe(ids, referenceTimeRtc); });
}

void run()
{
    std::puts("->  sent     <-  received     #n  command and its answer     !  notification     =  "
              "connection");

    const std::unique_ptr<fabric::host::Session> session = chronal::sim::start();
    Demo demo(session->application(), session->component());
    demo.setServiceInterface(&session->service());
    const fabric::host::Attachment attachment(*session, demo);

    section("Connecting");
    session->connect();
    demo.awaitConnection(true);

    talk(demo);

    section("Losing the connection, and getting it back");
    session->disconnect();
    demo.awaitConnection(false);
    session->connect();
    demo.awaitConnection(true);
    demo.ask("fetch RTC", [&](Ids& ids) { demo.cmdRefTimeFetch(ids, chronal::referenceTimeRtc); });

    section("Leaving");
}

} // namespace

int main()
{
    try {
        run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "demo: %s\n", error.what());
        return 1;
    }
}
