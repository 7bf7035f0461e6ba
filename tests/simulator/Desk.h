#ifndef CHRONAL_TESTS_SIMULATOR_DESK_H
#define CHRONAL_TESTS_SIMULATOR_DESK_H

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <date/date.h>

#include <fabric-host/Service.h>

#include "Protocol.h"
#include "TimeService.h"
#include "WireTime.h"

namespace chronal::sim {

/// Reads "2026-03-29 01:00:00", with or without a fraction of a second.
template <class Time>
Time parsed(const std::string& text)
{
    Time time;
    std::istringstream stream(text);
    if (!(stream >> date::parse("%F %T", time)))
        throw std::invalid_argument("not a time: " + text);
    return time;
}

inline Utc utc(const std::string& text)
{
    return parsed<Utc>(text);
}

inline nubOsalTime_struct at(const std::string& text)
{
    return wireTime(utc(text));
}

inline nubOsalTime_struct span(std::int64_t seconds, std::int32_t microseconds = 0)
{
    nubOsalTime_struct span = {};
    span.seconds = seconds;
    span.microseconds = microseconds;
    return span;
}

inline std::string text(const nubOsalTime_struct& time)
{
    const std::string full =
        date::format("%F %T", Utc(std::chrono::seconds(time.seconds)) + Span(time.microseconds));
    return time.microseconds == 0 ? full.substr(0, full.find('.')) : full;
}

inline std::string spanText(const nubOsalTime_struct& span)
{
    std::string text = (span.seconds < 0 ? "" : "+") + std::to_string(span.seconds);
    if (span.microseconds != 0)
        text += "." + std::to_string(span.microseconds);
    return text;
}

/// Goes forward when told, both times alike.
class ManualClock : public Clock
{
public:
    explicit ManualClock(Utc start) : now(start) {}

    Utc utc() const override { return now; }
    TimePoint steady() const override { return steadyNow; }
    TimePoint steadyAt(Utc moment) const override
    {
        return moment - now > date::years(100) ? TimePoint::max() : steadyNow + (moment - now);
    }

    void advance(Span span)
    {
        now += span;
        steadyNow += span;
    }

private:
    Utc now;
    TimePoint steadyNow;
};

/// A message that the service has sent.
struct Sent
{
    fabric::host::ClientId client;
    std::unique_ptr<fabric::SerializableMessageEvent> event;

    std::string name() const
    {
        const fabric::MsgMeta& meta = event->meta;
        const fabric::host::MessageType* const type =
            catalogue().find(meta.resourceId, meta.operationId, meta.kind);
        return type && meta.serviceId == catalogue().serviceId ? type->name
                                                               : "not in the catalogue";
    }

    template <class Record>
    const Record& record() const
    {
        return *static_cast<const Record*>(event->data->payload);
    }

    /// Name and fields, as tests compare them.
    std::string text() const;
};

inline std::string text(const chronalMsgReplyTime_t& record)
{
    return " " + std::to_string(record.refTimeId) + ": " + text(record.utcTime) + " " +
           spanText(record.utcDeviation) + " = " + text(record.localTime) + ", " +
           std::to_string(record.flag) + " " + std::to_string(record.value);
}

inline std::string text(const chronalMsgDateTime_t& record)
{
    return " " + text(record.time0) + ", " + spanText(record.time1) + " " + spanText(record.time2) +
           " " + spanText(record.time3) + " " + spanText(record.time4) + " " +
           std::to_string(record.value) + " '" + readText(record.text) + "' " +
           std::to_string(record.flag1) + " " + std::to_string(record.flag2) + " " +
           std::to_string(record.timezoneSyncEnable);
}

inline std::string Sent::text() const
{
    const nubEndianTable_t* const table = event->data->endianTable;
    if (table == replyResult.table)
        return name() + " " + std::to_string(record<chronalMsgReplyResult_t>().result);
    if (table == replyTimeAt.table)
        return name() + sim::text(record<chronalMsgReplyTime_t>());
    if (table == replyDateTimeSettingsInfo.table)
        return name() + sim::text(record<chronalMsgDateTime_t>());
    if (table == replyTimezoneInfo.table)
        return name() + " " + readText(record<chronalMsgTimezone_t>().timezone) + " " +
               sim::text(record<chronalMsgTimezone_t>().time);
    if (table == notifyDtvTimeChange.table)
        return name() + " " + sim::text(record<chronalMsgDtvTime_t>().dtvTime);
    return name() + " " + std::to_string(record<chronalMsgDST_t>().dst);
}

typedef std::vector<std::string> Texts;

/// A service in Berlin on 2026-01-01, half past noon local time, with clients 1 and 2.
class Desk final : private fabric::host::ServiceOutlet
{
public:
    Desk() : clock(utc("2026-01-01 11:30:00")), service({"Europe/Berlin"}, clock)
    {
        service.start(*this);
        service.clientConnected(1);
        service.clientConnected(2);
        due = service.runDue();
    }

    /// Lets a client send a command; its text in the result are what that client gets.
    Texts ask(const Content& command, fabric::host::ClientId client = 1)
    {
        sent.clear();
        fabric::SerializableMessageEvent event(command.meta, {-1, 7}, command.data);
        event.ids = {client, ++lastCommand};
        service.commandReceived(client, event);
        due = service.runDue();
        return sentTo(client);
    }

    Texts sentTo(fabric::host::ClientId client) const
    {
        Texts texts;
        for (const Sent& message : sent)
            if (message.client == client)
                texts.push_back(message.text());
        return texts;
    }

    /// Lets time pass; what is sent meanwhile stands in `sent`.
    void advance(Span span)
    {
        sent.clear();
        clock.advance(span);
        due = service.runDue();
    }

    /// All that can be asked, to see that nothing has changed.
    Texts everything();

    ManualClock clock;
    TimeService service;
    std::vector<Sent> sent;
    Clock::TimePoint due;
    std::uint32_t lastCommand = 0;

private:
    void drop(fabric::host::ClientId, int) override {}
    void send(fabric::host::ClientId client,
              std::unique_ptr<fabric::SerializableMessageEvent> event) override
    {
        sent.push_back({client, std::move(event)});
    }
};

inline Content about(const Message<chronalMsgCmdRefTimeId_t>& message, std::int32_t id)
{
    return compose(message, [&](chronalMsgCmdRefTimeId_t& record) {
        record.refTimeId = static_cast<referenceTimeId_enum>(id);
    });
}

inline Content about(const Message<chronalMsgCmdRefTimeData_t>& message, std::int32_t id,
                     nubOsalTime_struct time1, nubOsalTime_struct time2 = {},
                     nubOsalTime_struct time3 = {}, nubOsalTime_struct time4 = {},
                     std::int32_t value = 0)
{
    return compose(message, [&](chronalMsgCmdRefTimeData_t& record) {
        record.refTimeId = static_cast<referenceTimeId_enum>(id);
        record.time1 = time1;
        record.time2 = time2;
        record.time3 = time3;
        record.time4 = time4;
        record.value = value;
    });
}

/// A command whose record is all zero.
template <class Record>
Content plain(const Message<Record>& message)
{
    return compose(message, [](Record&) {});
}

inline Content timeAt(nubOsalTime_struct time, std::int32_t isUtc)
{
    return compose(cmdTimeAt, [&](chronalMsgCmdTimeAtData_t& record) {
        record.time = time;
        record.isUtc = isUtc;
    });
}

inline Content zoneSet(const std::string& zone)
{
    return compose(cmdTimezoneSet,
                   [&](chronalMsgTimezone_t& record) { fillText(record.timezone, zone); });
}

inline Content ntpSet(const std::string& server, std::int32_t used)
{
    return compose(cmdDateTimeNtpSet, [&](chronalMsgNtpData_t& record) {
        fillText(record.text, server);
        record.flag = used;
    });
}

inline Content autoTimeSet(std::int32_t on)
{
    return compose(cmdDateTimeAutoTimeSet,
                   [&](chronalMsgAutoTime_t& record) { record.autoTime = on; });
}

inline Content settingsSet(const std::string& server, std::int32_t flag1, std::int32_t flag2)
{
    return compose(cmdDateTimeSettingsSet, [&](chronalMsgDateTime_t& record) {
        fillText(record.text, server);
        record.time1 = span(1, -1);
        record.time2 = span(-2);
        record.time3 = span(3);
        record.time4 = span(4);
        record.value = -5;
        record.flag1 = flag1;
        record.flag2 = flag2;
        record.timezoneSyncEnable = 1;
    });
}

inline Texts Desk::everything()
{
    Texts texts;
    const auto add = [&](const Content& command) {
        const Texts answer = ask(command);
        texts.insert(texts.end(), answer.begin(), answer.end());
    };
    for (std::int32_t id = referenceTimeRtc; id <= referenceTimeAtsc; ++id) {
        add(about(cmdRefTimeFetch, id));
        add(about(cmdNextTimeDeviationChangeFetch, id));
        add(about(cmdRefTimeAt, id, at("2026-07-01 00:00:00")));
    }
    add(plain(cmdDateTimeSettingsFetch));
    add(plain(cmdTimezoneFetch));
    return texts;
}

} // namespace chronal::sim

#endif
